#include "program/commands/general_settings.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "keelstone/json_reader.h"
#include "program/file_descriptor.h"

namespace keelstone::host {

namespace {

/// False: errno says why.
bool ReadWhole(const std::string& file, std::string& text) {
  const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return false;
  std::array<char, 16384> block{};
  while (true) {
    const ssize_t count = ::read(fd.get(), block.data(), block.size());
    if (count == 0) return true;
    if (count > 0) text.append(block.data(), static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) return false;
  }
}

}  // namespace

std::string ReadJsonObjectFile(const std::string& file, JsonValue& value) {
  std::string text;
  if (!ReadWhole(file, text)) return file + ": " + std::strerror(errno);
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  JsonParseError error;
  const JsonReadOptions options{.allowComments = true, .requireUtf8 = true};
  if (!JsonReader::Parse(text, value, &error, options)) {
    const auto place =
        text.begin() + static_cast<std::ptrdiff_t>(std::min(error.offset, text.size()));
    const auto line = 1 + std::count(text.begin(), place, '\n');
    return file + ":" + std::to_string(line) + ": not JSON: " + error.message;
  }
  if (!value.isObject()) return file + ":1: the settings must be a JSON object";
  return {};
}

}  // namespace keelstone::host
