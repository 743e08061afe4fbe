#include "storage/pending_index.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <utility>

namespace keelstone {

namespace {

constexpr std::size_t kLeastSlots = 8;

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
    while (slots_[place].row) place = (place + 1) & (slots_.size() - 1);
    slots_[place] = slot;
  }
}

template <class Row>
void PendingIndex<Row>::Add(const Row& row, std::size_t hash) {
  Reserve(taken_ + 1);
  std::size_t place = Place(hash);
  for (; slots_[place].row; place = (place + 1) & (slots_.size() - 1)) {
    if (slots_[place].hash == hash && slots_[place].row.Key() == row.Key()) return;
  }
  slots_[place] = {hash, row};
  ++taken_;
}

template <class Row>
void PendingIndex<Row>::Add(const PendingIndex& later) {
  Reserve(taken_ + later.taken_);
  for (const Slot& slot : later.slots_) {
    if (slot.row) Add(slot.row, slot.hash);
  }
}

template <class Row>
Row PendingIndex<Row>::Find(const PendingKey& key) const noexcept {
  if (slots_.empty()) return {};
  const std::size_t hash = key.Hash();
  std::size_t place = Place(hash);
  for (; slots_[place].row; place = (place + 1) & (slots_.size() - 1)) {
    if (slots_[place].hash == hash && slots_[place].row.Key() == key) return slots_[place].row;
  }
  return {};
}

template class PendingIndex<PendingDefinition>;
template class PendingIndex<PendingHistory>;

}  // namespace keelstone
