#include "keelstone/filesystem.h"
#include "keelstone/database_files.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <random>

namespace keelstone {
namespace {

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

}  // namespace
}  // namespace keelstone
