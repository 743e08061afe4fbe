#include "program/report/sparkline.h"

#include <langinfo.h>
#include <locale.h>  // NOLINT(modernize-deprecated-headers): newlocale is not in <clocale>

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

namespace keelstone::host {

namespace {

constexpr std::array<const char*, 8> kBlocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<const char*, 8> kPlain = {"_", ".", "-", "=", "+", "*", "%", "#"};
constexpr std::size_t kLetters = 26;

}  // namespace

bool IsUtf8Locale() {
  const locale_t locale = ::newlocale(LC_CTYPE_MASK, "", nullptr);
  if (locale == nullptr) return false;
  const std::string_view codeset = ::nl_langinfo_l(CODESET, locale);
  const bool isUtf8 = codeset == "UTF-8" || codeset == "utf8";
  ::freelocale(locale);
  return isUtf8;
}

std::string Sparkline(const std::vector<double>& values, bool isUtf8) {
  if (values.empty()) return {};
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  // Halves, because the difference of the two may be beyond what a double holds.
  const double height = *most / 2 - *least / 2;
  std::string text;
  for (const double value : values) {
    const double share = height > 0 ? (value / 2 - *least / 2) / height : 0;
    const auto level = std::min<std::size_t>(static_cast<std::size_t>(share * 8), 7);
    text += isUtf8 ? kBlocks[level] : kPlain[level];
  }
  return text;
}

StateStrip MakeStateStrip(const std::vector<std::string>& values) {
  StateStrip made;
  std::map<std::string_view, std::size_t> known;
  for (const std::string& value : values) {
    const auto [place, isNew] = known.try_emplace(value, known.size());
    const std::size_t index = place->second;
    if (index >= kLetters) {
      made.strip += '?';
      continue;
    }
    if (isNew) made.states.push_back({static_cast<char>('A' + index), value, 0});
    ++made.states[index].count;
    made.strip += made.states[index].letter;
  }
  return made;
}

}  // namespace keelstone::host
