#include "storage/load/unit_changes.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>

namespace keelstone {

namespace {

// So many that a change seldom concerns a second device of a fleet that is being loaded.
constexpr std::size_t kSlots = 16384;

using Counters = std::array<std::atomic<std::uint64_t>, kSlots>;

Counters changes{};
Counters othersChanges{};
std::atomic<std::uint64_t> changesOfAll{0};
thread_local bool writesOfSource = false;

std::size_t SlotOf(std::string_view domainId, std::string_view deviceName) noexcept {
  const std::hash<std::string_view> hash;
  const std::size_t mixed = (hash(domainId) * 0x9E3779B97F4A7C15U ^ hash(deviceName));
  return mixed * 0x9E3779B97F4A7C15U >> 32U & (kSlots - 1);
}

}  // namespace

std::uint64_t UnitChanges(std::string_view domainId, std::string_view deviceName) noexcept {
  // Both only rise: their sum is the same only when both are.
  return changes[SlotOf(domainId, deviceName)].load() + changesOfAll.load();
}

std::uint64_t OthersUnitChanges(std::string_view domainId, std::string_view deviceName) noexcept {
  return othersChanges[SlotOf(domainId, deviceName)].load() + changesOfAll.load();
}

void NoteUnitChange(std::string_view domainId, std::string_view deviceName) noexcept {
  const std::size_t slot = SlotOf(domainId, deviceName);
  changes[slot].fetch_add(1);
  if (!writesOfSource) othersChanges[slot].fetch_add(1);
}

void NoteChangeOfAllUnits() noexcept { changesOfAll.fetch_add(1); }

SourceWriteMark::SourceWriteMark() noexcept { writesOfSource = true; }

SourceWriteMark::~SourceWriteMark() { writesOfSource = false; }

}  // namespace keelstone
