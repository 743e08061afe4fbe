#include "keelstone/judged_values.h"

#include <boost/unordered/unordered_flat_map.hpp>
#include <functional>
#include <string_view>
#include <utility>

namespace keelstone {

namespace {

std::uint64_t HashOf(std::string_view text) { return std::hash<std::string_view>{}(text); }

/// Spreads the bits of a number over all of it, without two numbers becoming one.
std::uint64_t Spread(std::uint64_t bits) {
  bits ^= bits >> 32U;
  bits *= 0x9E3779B97F4A7C15U;
  return bits ^ (bits >> 29U);
}

}  // namespace

std::uint64_t VariableKeyOf(const VarInfo& variable) {
  return Spread(HashOf(variable.variableName) + Spread(HashOf(variable.interfaceValue)));
}

struct UnitMemory::Table {
  struct Entry {
    NewestValue newest;
    std::uint64_t position = 0;
  };
  struct Behind {
    std::uint32_t count = 0;
    std::int64_t time = 0;
    std::uint64_t position = 0;
  };

  bool IsPast(std::uint64_t then, std::uint64_t now) const { return now > then + reach; }

  void NoteBehind(const Judged& value, std::uint64_t position) {
    Behind& behind = behinds[value.key];
    const bool isInOrder =
        behind.count > 0 && value.value.time > behind.time && !IsPast(behind.position, position);
    behind = {isInOrder ? behind.count + 1 : 1, value.value.time, position};
  }

  void Note(const Judged& value, std::uint64_t position) {
    if (value.step == Step::kBehind) return NoteBehind(value, position);
    if (!behinds.empty()) behinds.erase(value.key);
    const auto [place, isNew] = entries.try_emplace(value.key);
    Entry& entry = place->second;
    const bool isOlder = !isNew && value.step == Step::kNewest &&
                         entry.newest.time > value.value.time && !IsPast(entry.position, position);
    if (!isOlder) entry.newest = value.value;
    entry.position = position;
  }

  /// Gives back what no run can find any more. So often that no more than twice the reach
  /// values of all units are held.
  void Sweep(std::uint64_t position) {
    if (!IsPast(swept, position)) return;
    swept = position;
    const auto isPast = [&](const auto& entry) { return IsPast(entry.second.position, position); };
    const bool isShorter = boost::unordered::erase_if(entries, isPast) > 0;
    boost::unordered::erase_if(behinds, isPast);
    if (isShorter) entries.rehash(0);
  }

  const std::uint64_t reach;
  boost::unordered_flat_map<std::uint64_t, Entry> entries;
  boost::unordered_flat_map<std::uint64_t, Behind> behinds;
  std::uint64_t swept = 0;
};

UnitMemory::UnitMemory(std::uint64_t reach)
    : table_(std::make_unique<Table>(Table{.reach = reach, .entries = {}, .behinds = {}})) {}
UnitMemory::~UnitMemory() = default;

std::vector<UnitMemory::Known> UnitMemory::Look(const std::vector<std::uint64_t>& keys,
                                                std::uint64_t position) const {
  std::vector<Known> known(keys.size());
  const MutexLock lock(mutex_);
  if (table_->entries.empty() && table_->behinds.empty()) return known;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto entry = table_->entries.find(keys[i]);
    if (entry != table_->entries.end() && !table_->IsPast(entry->second.position, position)) {
      known[i].isKnown = true;
      known[i].newest = entry->second.newest;
    }
    if (table_->behinds.empty()) continue;
    const auto behind = table_->behinds.find(keys[i]);
    if (behind == table_->behinds.end() || table_->IsPast(behind->second.position, position)) {
      continue;
    }
    known[i].behindCount = behind->second.count;
    known[i].behindTime = behind->second.time;
  }
  return known;
}

void UnitMemory::Note(const std::vector<Judged>& values, std::uint64_t position) {
  const MutexLock lock(mutex_);
  table_->Sweep(position);
  for (const Judged& value : values) table_->Note(value, position);
}

JudgedValues::Place JudgedValues::Of(const ParsedRun& run) {
  std::string key;
  AssignUnitKey(key, run);
  return Of(key, run.variables.size());
}

JudgedValues::Place JudgedValues::Of(const std::string& unitKey, std::size_t values) {
  const MutexLock lock(mutex_);
  position_ += values;
  const auto known = places_.find(unitKey);
  if (known != places_.end()) {
    units_.splice(units_.begin(), units_, known->second);
  } else {
    units_.push_front({unitKey, std::make_shared<UnitMemory>(reach_), 0});
    places_.emplace(units_.front().key, units_.begin());
  }
  units_.front().position = position_;
  while (position_ > units_.back().position + reach_) {
    places_.erase(units_.back().key);
    units_.pop_back();
  }
  return {units_.front().memory, position_};
}

void JudgedValues::Clear() {
  const MutexLock lock(mutex_);
  places_.clear();
  units_.clear();
}

}  // namespace keelstone
