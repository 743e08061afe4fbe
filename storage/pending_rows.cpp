#include "storage/pending_rows.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/fork_gate.h"

namespace keelstone {

namespace {

std::size_t Combine(std::size_t seed, std::string_view text) noexcept {
  return (seed ^ std::hash<std::string_view>()(text)) * 0x9E3779B97F4A7C15U;
}

template <class Rows>
void MoveBehind(Rows& rows, Rows& later) {
  rows.insert(rows.end(), std::make_move_iterator(later.begin()),
              std::make_move_iterator(later.end()));
}

template <class Row>
void PointAt(const std::vector<std::vector<Row>>& batches, std::vector<const Row*>& out) {
  for (const auto& batch : batches) {
    for (const Row& row : batch) out.push_back(&row);
  }
}

}  // namespace

PendingUnit::PendingUnit(std::vector<ObjectRuleData> ruleRows,
                         std::vector<ObjectRuleHistoryData> historyRows) {
  firstDefinition.Reserve(ruleRows.size());
  for (const ObjectRuleData& row : ruleRows) {
    for (const auto& entry : row.definitions) {
      if (entry.second != nullptr) firstDefinition.Add({&row, &entry});
    }
  }
  firstHistory.Reserve(historyRows.size());
  for (const ObjectRuleHistoryData& row : historyRows) firstHistory.Add({&row});
  // Moving a vector leaves its rows where they lie.
  if (!ruleRows.empty()) rules.push_back(std::move(ruleRows));
  if (!historyRows.empty()) history.push_back(std::move(historyRows));
}

void PendingUnit::Append(PendingUnit&& later) {
  MoveBehind(rules, later.rules);
  MoveBehind(history, later.history);
  firstDefinition.Add(later.firstDefinition);
  firstHistory.Add(later.firstHistory);
}

std::vector<const PendingUnit*> PendingGeneration::UnitsInOrder() const {
  std::vector<const decltype(units)::value_type*> entries;
  entries.reserve(units.size());
  for (const auto& entry : units) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });
  std::vector<const PendingUnit*> ordered;
  ordered.reserve(entries.size());
  for (const auto* entry : entries) ordered.push_back(&entry->second);
  return ordered;
}

std::vector<const ObjectRuleData*> PendingGeneration::RuleRows() const {
  std::vector<const ObjectRuleData*> out;
  for (const PendingUnit* unit : UnitsInOrder()) PointAt(unit->rules, out);
  return out;
}

std::vector<const ObjectRuleHistoryData*> PendingGeneration::HistoryRows() const {
  std::vector<const ObjectRuleHistoryData*> out;
  for (const PendingUnit* unit : UnitsInOrder()) PointAt(unit->history, out);
  return out;
}

std::size_t PendingRows::SlotOf(std::string_view domainId, std::string_view unitKey) noexcept {
  // The high bits of the product are its well mixed ones.
  return Combine(Combine(0, domainId), unitKey) >> 32U & (kSlots - 1);
}

void PendingRows::Add(const std::string& domainId, const std::string& unitKey,
                      std::vector<ObjectRuleData> rules,
                      std::vector<ObjectRuleHistoryData> history) {
  const std::size_t count = rules.size() + history.size();
  if (count == 0) return;
  PendingUnit unit(std::move(rules), std::move(history));  // indexed before the lock is taken
  unit.slot = SlotOf(domainId, unitKey);
  const WriterLock lock(mutex_);
  Domain& domain = domains_.try_emplace(domainId).first->second;
  if (domain.open == nullptr) domain.open = std::make_unique<PendingGeneration>();
  const auto place = domain.open->units.find(unitKey);
  if (place != domain.open->units.end()) {
    place->second.Append(std::move(unit));
  } else {
    present_[unit.slot].fetch_add(1, std::memory_order_release);
    domain.open->units.emplace(unitKey, std::move(unit));
  }
  domain.open->rows += count;
  openRows_.fetch_add(static_cast<std::int64_t>(count));
}

template <class Look>
bool PendingRows::LookUp(std::string_view domainId, std::string_view unitKey,
                         const Look& look) const {
  if (present_[SlotOf(domainId, unitKey)].load(std::memory_order_acquire) == 0) return false;
  const ReaderLock lock(mutex_);
  const auto domain = domains_.find(domainId);
  if (domain == domains_.end()) return false;
  const auto lookIn = [&](const PendingGeneration& generation) {
    const auto unit = generation.units.find(unitKey);
    return unit != generation.units.end() && look(unit->second);
  };
  for (const auto& generation : domain->second.sealed) {
    if (lookIn(*generation)) return true;
  }
  return domain->second.open != nullptr && lookIn(*domain->second.open);
}

std::shared_ptr<RuleDefinitionData> PendingRows::FindDefinition(std::string_view domainId,
                                                                std::string_view unitKey,
                                                                const PendingKey& key) const {
  std::shared_ptr<RuleDefinitionData> definition;
  LookUp(domainId, unitKey, [&](const PendingUnit& unit) {
    const PendingDefinition found = unit.firstDefinition.Find(key);
    if (found) definition = found.entry->second;
    return static_cast<bool>(found);
  });
  return definition;
}

bool PendingRows::FindHistory(std::string_view domainId, std::string_view unitKey,
                              const PendingKey& key, std::string& out) const {
  return LookUp(domainId, unitKey, [&](const PendingUnit& unit) {
    const PendingHistory found = unit.firstHistory.Find(key);
    if (found) out = found.row->history;
    return static_cast<bool>(found);
  });
}

bool PendingRows::HasUnit(std::string_view domainId, std::string_view unitKey) const {
  return LookUp(domainId, unitKey, [](const PendingUnit& /*unit*/) { return true; });
}

std::uint64_t PendingRows::SealDomain(Domain& domain) {
  if (domain.open != nullptr) {
    domain.open->number = ++domain.lastNumber;
    openRows_.fetch_sub(static_cast<std::int64_t>(domain.open->rows));
    domain.sealed.push_back(std::move(domain.open));
  }
  return domain.sealed.empty() ? 0 : domain.sealed.back()->number;
}

std::uint64_t PendingRows::Seal(const std::string& domainId) {
  const WriterLock lock(mutex_);
  const auto domain = domains_.find(domainId);
  return domain != domains_.end() ? SealDomain(domain->second) : 0;
}

std::vector<std::pair<std::string, std::uint64_t>> PendingRows::SealAll() {
  std::vector<std::pair<std::string, std::uint64_t>> sealed;
  const WriterLock lock(mutex_);
  for (auto& [domainId, domain] : domains_) {
    const std::uint64_t last = SealDomain(domain);
    if (last != 0) sealed.emplace_back(domainId, last);
  }
  return sealed;
}

const PendingGeneration* PendingRows::Oldest(const std::string& domainId,
                                             std::uint64_t last) const {
  const ReaderLock lock(mutex_);
  const auto domain = domains_.find(domainId);
  if (domain == domains_.end() || domain->second.sealed.empty()) return nullptr;
  const PendingGeneration* oldest = domain->second.sealed.front().get();
  return oldest->number <= last ? oldest : nullptr;
}

void PendingRows::DropOldest(const std::string& domainId) {
  std::unique_ptr<PendingGeneration> dropped;  // freed after the lock is
  const WriterLock lock(mutex_);
  const auto domain = domains_.find(domainId);
  if (domain == domains_.end() || domain->second.sealed.empty()) return;
  dropped = std::move(domain->second.sealed.front());
  domain->second.sealed.pop_front();
  for (const auto& [unitKey, unit] : dropped->units) {
    present_[unit.slot].fetch_sub(1, std::memory_order_release);
  }
}

void PendingRows::Claim(const std::string& domainId) {
  const ForkGate::Outside outside;  // the flush that is waited for may be in a host's callback
  const MutexLock lock(flushMutex_);
  while (!flushing_.insert(domainId).second) flushEnded_.Wait(flushMutex_);
}

void PendingRows::Release(const std::string& domainId) noexcept {
  const MutexLock lock(flushMutex_);
  flushing_.erase(domainId);
  flushEnded_.NotifyAll();
}

PendingRows::Flush::Flush(PendingRows& rows, const std::string& domainId, std::uint64_t last)
    : rows_(rows), domainId_(domainId), last_(last) {
  rows_.Claim(domainId_);
}

PendingRows::Flush::~Flush() { rows_.Release(domainId_); }

}  // namespace keelstone
