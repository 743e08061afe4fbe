#include "keelstone/judged_values.h"

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstring>
#include <string_view>
#include <utility>

namespace keelstone {

namespace {

/// Spreads the bits of a number over all of it, without two numbers becoming one.
std::uint64_t Spread(std::uint64_t bits) {
  bits ^= bits >> 32U;
  bits *= 0x9E3779B97F4A7C15U;
  return bits ^ (bits >> 29U);
}

/// Eight bytes a step; no two texts of one length and with but one step different have one hash.
std::uint64_t HashOf(std::string_view text) {
  std::uint64_t hash = text.size() + 1;
  std::uint64_t eight = 0;
  for (; text.size() >= sizeof eight; text.remove_prefix(sizeof eight)) {
    std::memcpy(&eight, text.data(), sizeof eight);
    hash = Spread(hash ^ eight);
  }
  eight = 0;
  for (const char c : text) eight = eight << 8U | static_cast<unsigned char>(c);
  return Spread(hash ^ eight);
}

}  // namespace

std::uint64_t VariableKeyOf(const VarInfo& variable) {
  return Spread(HashOf(variable.variableName) + Spread(HashOf(variable.interfaceValue)));
}

/// Variables in the order in which they came: a run mostly has those of the run before in the
/// same order, so that each is looked for behind the one before it.
struct UnitMemory::Table {
  struct Entry {
    std::uint64_t key = 0;
    NewestValue newest;
    std::uint64_t position = 0;
  };
  struct Behind {
    std::uint32_t count = 0;
    std::int64_t time = 0;
    std::uint64_t position = 0;
  };

  bool IsPast(std::uint64_t then, std::uint64_t now) const { return now > then + reach; }

  /// The variable's entry, or nullptr; `next` is where it is expected, and then the place
  /// behind it.
  Entry* Find(std::uint64_t key, std::size_t& next) {
    if (next == entries.size()) next = 0;
    if (next < entries.size() && entries[next].key == key) return &entries[next++];
    const auto place = places.find(key);
    if (place == places.end()) return nullptr;
    next = place->second + 1;
    return &entries[place->second];
  }

  Entry& Add(std::uint64_t key) {
    entries.push_back({key, {}, 0});
    try {
      places.emplace(key, entries.size() - 1);
    } catch (...) {
      entries.pop_back();
      throw;
    }
    return entries.back();
  }

  void NoteBehind(const Judged& value, std::uint64_t position) {
    Behind& behind = behinds[value.key];
    const bool isInOrder =
        behind.count > 0 && value.value.time > behind.time && !IsPast(behind.position, position);
    behind = {isInOrder ? behind.count + 1 : 1, value.value.time, position};
  }

  void Note(const Judged& value, std::uint64_t position, std::size_t& next) {
    if (value.step == Step::kBehind) return NoteBehind(value, position);
    if (!behinds.empty()) behinds.erase(value.key);
    Entry* entry = Find(value.key, next);
    const bool isOlder = entry != nullptr && value.step == Step::kNewest &&
                         entry->newest.time > value.value.time &&
                         !IsPast(entry->position, position);
    if (entry == nullptr) entry = &Add(value.key);
    if (!isOlder) entry->newest = value.value;
    entry->position = position;
  }

  /// Gives back what no run can find any more. So often that no more than twice the reach
  /// values of all units are held.
  void Sweep(std::uint64_t position) {
    if (!IsPast(swept, position)) return;
    swept = position;
    boost::unordered::erase_if(
        behinds, [&](const auto& entry) { return IsPast(entry.second.position, position); });
    const auto isPast = [&](const Entry& entry) { return IsPast(entry.position, position); };
    if (std::erase_if(entries, isPast) == 0) return;
    places.clear();
    for (std::size_t i = 0; i < entries.size(); ++i) {
      places.emplace(entries[i].key, i);  // needs no memory: there were more
    }
    entries.shrink_to_fit();
    places.rehash(0);
  }

  const std::uint64_t reach;
  std::vector<Entry> entries;
  boost::unordered_flat_map<std::uint64_t, std::size_t> places;  // in entries
  boost::unordered_flat_map<std::uint64_t, Behind> behinds;
  std::uint64_t swept = 0;
};

UnitMemory::UnitMemory(std::uint64_t reach)
    : table_(std::make_unique<Table>(
          Table{.reach = reach, .entries = {}, .places = {}, .behinds = {}})) {}
UnitMemory::~UnitMemory() = default;

std::vector<UnitMemory::Known> UnitMemory::Look(const std::vector<std::uint64_t>& keys,
                                                std::uint64_t position) const {
  std::vector<Known> known(keys.size());
  const MutexLock lock(mutex_);
  if (table_->entries.empty() && table_->behinds.empty()) return known;
  std::size_t next = 0;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const Table::Entry* const entry = table_->Find(keys[i], next);
    if (entry != nullptr && !table_->IsPast(entry->position, position)) {
      known[i].isKnown = true;
      known[i].newest = entry->newest;
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
  std::size_t next = 0;
  for (const Judged& value : values) table_->Note(value, position, next);
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
