#include "base/json/json_keys.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <stdexcept>
#include <utility>

namespace keelstone {
namespace {

constexpr std::size_t kUsualCount = 8;

bool IsPlain(char c) noexcept { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; }

}  // namespace

JsonKeys::JsonKeys(const JsonKeys& other, std::size_t count)
    : arePlain_(other.arePlain_),
      names_(other.names_.begin(), other.names_.begin() + static_cast<std::ptrdiff_t>(count)) {
  Reserve(count);
}

std::size_t JsonKeys::Find(std::string_view name) const noexcept {
  if (slots_.empty()) {
    for (std::size_t i = 0; i < names_.size(); ++i) {
      if (names_[i] == name) return i;
    }
    return kNowhere;
  }
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = std::hash<std::string_view>{}(name)&mask;; slot = (slot + 1) & mask) {
    if (slots_[slot] == 0) return kNowhere;
    const std::size_t position = slots_[slot] - 1;
    if (names_[position] == name) return position;
  }
}

bool JsonKeys::IsSmall() const noexcept {
  constexpr std::size_t kMost = 32;
  constexpr std::size_t kLongest = 64;
  return names_.size() <= kMost &&
         std::all_of(names_.begin(), names_.end(),
                     [](const std::string& name) { return name.size() <= kLongest; });
}

void JsonKeys::Add(std::string_view name) {
  Reserve(names_.size() + 1);
  if (names_.empty()) names_.reserve(kUsualCount);
  names_.emplace_back(name);
  arePlain_ = arePlain_ && std::all_of(name.begin(), name.end(), IsPlain);
  if (!slots_.empty()) Enter(slots_, names_.back(), names_.size() - 1);
}

void JsonKeys::Erase(std::size_t position) noexcept {
  names_.erase(names_.begin() + static_cast<std::ptrdiff_t>(position));
  std::fill(slots_.begin(), slots_.end(), 0);
  if (slots_.empty()) return;
  for (std::size_t i = 0; i < names_.size(); ++i) Enter(slots_, names_[i], i);
}

void JsonKeys::Reserve(std::size_t count) {
  if (count <= kUnindexed || count * 2 <= slots_.size()) return;
  if (count >= std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("too many members in a JSON object");
  }
  std::size_t size = kUnindexed * 4;
  while (size < count * 2) size *= 2;
  std::vector<std::uint32_t> slots(size, 0);
  for (std::size_t i = 0; i < names_.size(); ++i) Enter(slots, names_[i], i);
  slots_ = std::move(slots);
}

void JsonKeys::Enter(std::vector<std::uint32_t>& slots, std::string_view name,
                     std::size_t position) noexcept {
  const std::size_t mask = slots.size() - 1;
  std::size_t slot = std::hash<std::string_view>{}(name)&mask;
  while (slots[slot] != 0) slot = (slot + 1) & mask;
  slots[slot] = static_cast<std::uint32_t>(position + 1);
}

}  // namespace keelstone
