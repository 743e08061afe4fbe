#include "storage/pending_index.h"

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
  const std::vector<Slot> old = std::exchange(slots_, std::vector<Slot>(wanted));
  for (const Slot& slot : old) {
    if (!slot.row) continue;
    std::size_t place = Place(slot.hash);
    while (slots_[place].row) place = Place(place + 1);
    slots_[place] = slot;
  }
}

template <class Row>
PendingKey PendingIndex<Row>::KeyAt(std::size_t place) const noexcept {
  Lengths lengths;
  std::memcpy(lengths.data(), keys_.data() + place, sizeof lengths);
  const char* text = keys_.data() + place + sizeof lengths;
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

/// The key's slot, or the free one where it belongs.
template <class Row>
auto PendingIndex<Row>::Seek(const PendingKey& key, std::size_t hash) const noexcept
    -> const Slot* {
  std::size_t place = Place(hash);
  while (slots_[place].row && !(slots_[place].hash == hash && KeyAt(slots_[place].key) == key)) {
    place = Place(place + 1);
  }
  return &slots_[place];
}

template <class Row>
void PendingIndex<Row>::Add(const Row& row, const PendingKey& key, std::size_t hash) {
  Reserve(taken_ + 1);
  const Slot* const found = Seek(key, hash);
  if (found->row) return;
  slots_[static_cast<std::size_t>(found - slots_.data())] = {hash, keys_.size(), row};
  ++taken_;
  const Lengths lengths = {key.interfaceValue.size(), key.variableSource.size(), key.param.size(),
                           key.variableName.size()};
  keys_.append(reinterpret_cast<const char*>(lengths.data()), sizeof lengths);
  keys_.append(key.interfaceValue).append(key.variableSource);
  keys_.append(key.param).append(key.variableName);
}

template <class Row>
void PendingIndex<Row>::Add(const PendingIndex& later) {
  Reserve(taken_ + later.taken_);
  for (const Slot& slot : later.slots_) {
    if (slot.row) Add(slot.row, later.KeyAt(slot.key), slot.hash);
  }
}

template <class Row>
Row PendingIndex<Row>::Find(const PendingKey& key) const noexcept {
  return slots_.empty() ? Row() : Seek(key, key.Hash())->row;
}

template class PendingIndex<PendingDefinition>;
template class PendingIndex<PendingHistory>;

}  // namespace keelstone
