#include "storage/pending/pending_index.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <functional>
#include <utility>

namespace keelstone {

namespace {

constexpr std::size_t kLeastSlots = 8;
using Lengths = std::array<std::size_t, 4>;

std::uint32_t TagOf(std::size_t hash) noexcept { return static_cast<std::uint32_t>(hash >> 32U); }

std::size_t Combine(std::size_t seed, std::string_view text) noexcept {
  const std::size_t mixed = (seed ^ std::hash<std::string_view>()(text)) * 0x9E3779B97F4A7C15U;
  return mixed ^ mixed >> 32U;  // the low bits choose the slot
}

}  // namespace

std::size_t PendingKey::Hash() const noexcept {
  return Combine(Combine(Combine(Combine(0, variableName), interfaceValue), variableSource), param);
}

template <class Row>
void PendingIndex<Row>::Reserve(std::size_t rows) {
  const std::size_t wanted = std::bit_ceil(std::max(2 * rows, kLeastSlots));
  if (wanted <= slots_.size()) return;
  slots_.assign(wanted, Slot());
  std::uint32_t number = 0;
  for (const Entry& entry : entries_) {
    std::size_t place = entry.hash & (wanted - 1);
    while (slots_[place].number != 0) place = (place + 1) & (wanted - 1);
    slots_[place] = {TagOf(entry.hash), ++number};
  }
}

template <class Row>
PendingKey PendingIndex<Row>::KeyOf(const Entry& entry) const noexcept {
  Lengths lengths;
  std::memcpy(lengths.data(), keys_.data() + entry.key, sizeof lengths);
  const char* text = keys_.data() + entry.key + sizeof lengths;
  const auto next = [&text](std::size_t length) {
    return std::string_view(std::exchange(text, text + length), length);
  };
  PendingKey key;
  key.interfaceValue = next(lengths[0]);
  key.variableSource = next(lengths[1]);
  key.param = next(lengths[2]);
  key.variableName = next(lengths[3]);
  return key;
}

// The place of the key's slot, or of the free one where it belongs.
template <class Row>
std::size_t PendingIndex<Row>::Seek(const PendingKey& key, std::size_t hash) const noexcept {
  const std::size_t mask = slots_.size() - 1;
  std::size_t place = hash & mask;
  for (; slots_[place].number != 0; place = (place + 1) & mask) {
    if (slots_[place].tag != TagOf(hash)) continue;
    if (KeyOf(entries_[slots_[place].number - 1]) == key) break;
  }
  return place;
}

template <class Row>
void PendingIndex<Row>::Add(const Row& row, const PendingKey& key, std::size_t hash) {
  Reserve(entries_.size() + 1);
  Slot& slot = slots_[Seek(key, hash)];
  if (slot.number != 0) return;
  entries_.push_back({row, hash, keys_.size()});
  slot = {TagOf(hash), static_cast<std::uint32_t>(entries_.size())};
  const Lengths lengths = {key.interfaceValue.size(), key.variableSource.size(), key.param.size(),
                           key.variableName.size()};
  keys_.append(reinterpret_cast<const char*>(lengths.data()), sizeof lengths);
  keys_.append(key.interfaceValue).append(key.variableSource);
  keys_.append(key.param).append(key.variableName);
}

template <class Row>
void PendingIndex<Row>::Add(const PendingIndex& later) {
  Reserve(entries_.size() + later.entries_.size());
  for (const Entry& entry : later.entries_) Add(entry.row, later.KeyOf(entry), entry.hash);
}

template <class Row>
Row PendingIndex<Row>::Find(const PendingKey& key) const noexcept {
  if (entries_.empty()) return {};
  const Slot& slot = slots_[Seek(key, key.Hash())];
  return slot.number != 0 ? entries_[slot.number - 1].row : Row();
}

template class PendingIndex<PendingDefinition>;
template class PendingIndex<PendingHistory>;

}  // namespace keelstone
