#include "keelstone/filesystem.h"
#include "keelstone/database_files.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <random>

#include "tests/support/file_text.h"
#include "tests/support/temp_root.h"

namespace keelstone {
namespace {

using testing::TempRoot;
using testing::WriteFile;

TEST(DomainFolderNameTest, EncodesWhatIsUnsafe) {
  const std::map<std::string, std::string> cases = {
      {"", "%"},
      {".", "%2E"},
      {"..", "%2E%2E"},
      {"...", "..."},
      {".a", ".a"},
      {"a/b", "a%2Fb"},
      {"a\\b", "a%5Cb"},
      {"%", "%25"},
      {"%2E", "%252E"},
      {"../../etc", "..%2F..%2Fetc"},
      {std::string("a\0b", 3), "a%00b"},
      {"\n\x1F\x7F", "%0A%1F%7F"},
      {" A b~", " A b~"},
      {"K\xC3\xB6ln\xFF", "K\xC3\xB6ln\xFF"},
  };
  for (const auto& [id, name] : cases) EXPECT_EQ(DomainFolderName(id), name) << id;
}

TEST(DomainFolderNameTest, NoTwoIdsShareAFolder) {
  // Few different bytes, so that near misses of encoded and plain texts are met.
  const std::string alphabet(
      "%25E.F/\\\0\x7F"
      "a",
      11);
  std::mt19937 random(1);
  std::map<std::string, std::string> idOf;
  for (int i = 0; i < 200000; ++i) {
    std::string id(random() % 7, ' ');
    for (char& c : id) c = alphabet[random() % alphabet.size()];
    const std::string name = DomainFolderName(id);
    EXPECT_EQ(name.find('/'), std::string::npos);
    EXPECT_TRUE(name != "." && name != ".." && !name.empty());
    const auto [known, isNew] = idOf.emplace(name, id);
    ASSERT_EQ(known->second, id) << "both give " << name;
  }
}

TEST(FSResFileSystemTest, NamesTheFilesOfADomain) {
  const FSResFileSystem files("/r//data/" + std::string("/FSParserData"));
  EXPECT_EQ(files.GetFolder(), "/r/data/FSParserData");
  EXPECT_EQ(files.GetDomainFolder("d"), "/r/data/FSParserData/d");
  const std::map<int, std::string> names = {{9, "KSGlobalSetting"},  {10, "KSVariableRule"},
                                            {11, "KSObjectRule"},    {12, "KSBlockSetting"},
                                            {13, "KSInterfaceType"}, {1000, "KSObjectHistory"}};
  for (const auto& [type, name] : names) {
    EXPECT_EQ(files.GetDBFile(type, "a/b"), "/r/data/FSParserData/a%2Fb/" + name + ".db");
  }
  EXPECT_EQ(files.GetDBFile(8, "d"), "");
  EXPECT_EQ(FSResFileSystem("/r/data//").GetDBFile(11, ""), "/r/data/%/KSObjectRule.db");
  EXPECT_EQ(FSResFileSystem("//").GetDomainFolder("d"), "/d");
}

TEST(VXFileSystemTest, RootComesFromTheHostThenTheEnvironment) {
  VXFileSystem::SetSystemRootFolder("/some/where");
  EXPECT_EQ(VXFileSystem::GetSystemRootFolder(), "/some/where/");
  ::setenv("KEELSTONE_ROOT", "/from/environment/", 1);
  EXPECT_EQ(VXFileSystem::GetSystemRootFolder(), "/some/where/");
  VXFileSystem::SetSystemRootFolder("");
  EXPECT_EQ(VXFileSystem::GetSystemRootFolder(), "/from/environment/");
  ::unsetenv("KEELSTONE_ROOT");
  VXFileSystem::SetSystemRootFolder("");
  EXPECT_EQ(VXFileSystem::GetSystemRootFolder(), "./keelstone-root/");
}

TEST(FoldersTest, ParentFoldersAreMadeUnlessAFileStandsThere) {
  const TempRoot root;
  const std::string file = (root.path() / "a/b/c.db").string();
  EXPECT_TRUE(MakeParentFolders(file));
  EXPECT_TRUE(MakeParentFolders(file));
  EXPECT_FALSE(FileExists(file));
  EXPECT_FALSE(FileExists((root.path() / "a/b").string())) << "a folder is no file";
  WriteFile(file, "x");
  EXPECT_TRUE(FileExists(file));
  EXPECT_FALSE(MakeParentFolders(file + "/d/e.db"));
  EXPECT_TRUE(MakeParentFolders("plain-name"));
}

}  // namespace
}  // namespace keelstone
