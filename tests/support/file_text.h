#ifndef KEELSTONE_TESTS_SUPPORT_FILE_TEXT_H
#define KEELSTONE_TESTS_SUPPORT_FILE_TEXT_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace keelstone::testing {

/// The bytes of a file; the empty text when there is none.
inline std::string FileText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Writes `text` as the whole content of a file; its folder is made when it is missing.
inline void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_FILE_TEXT_H
