// An ini file: read, and one value of it set, which changes nothing else.
#include "base/files/ini_file.h"

#include <filesystem>
#include <fstream>

#include "keelstone/ini_reader.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/temp_root.h"

namespace keelstone::fuzz {
namespace {

constexpr const char* kFile = "fix_frontserver.ini";

void ExpectValueTaken(const std::string& text) {
  const IniFile file(text);
  const std::string changed = file.WithValue("Keelstone", "CacheSize", "77");
  const IniFile again(changed);
  const IniFile::Entry* const entry = again.Find("Keelstone", "CacheSize");
  KS_PROMISE(entry != nullptr && entry->value == "77");
  KS_PROMISE(again.WithValue("Keelstone", "CacheSize", "77") == changed);
  const IniFile::Entry* const other = file.Find("Keelstone", "CacheTime");
  const IniFile::Entry* const otherAgain = again.Find("keelstone", "CACHETIME");
  KS_PROMISE((other == nullptr) == (otherAgain == nullptr));
  KS_PROMISE(other == nullptr || other->value == otherAgain->value);
}

void ReadFile(const std::string& text) {
  static const testing::TempRoot root;
  static const bool kQuiet = (QuietLog(), true);
  KS_PROMISE(kQuiet);
  const auto folder = root.path() / "conf";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / kFile, std::ios::binary | std::ios::trunc) << text;
  const int value = IniReader::GetInt("Keelstone", "CacheTime", -7, kFile);
  KS_PROMISE(IniReader::SetInt("Keelstone", "CacheSize", 123, kFile));
  KS_PROMISE(IniReader::GetInt("Keelstone", "CacheSize", -1, kFile) == 123);
  KS_PROMISE(IniReader::GetInt("Keelstone", "CacheTime", -7, kFile) == value);
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  keelstone::fuzz::ExpectValueTaken(text);
  keelstone::fuzz::ReadFile(text);
  return 0;
}
