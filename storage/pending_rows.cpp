#include "storage/pending_rows.h"

#include <algorithm>
#include <iterator>
#include <utility>

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
void PointAt(const std::vector<std::shared_ptr<const std::vector<Row>>>& batches,
             std::vector<const Row*>& out) {
  for (const auto& batch : batches) {
    for (const Row& row : *batch) out.push_back(&row);
  }
}

template <class Row>
std::shared_ptr<const std::vector<Row>> BatchOf(std::vector<Row>&& rows) {
  return std::make_shared<const std::vector<Row>>(std::move(rows));
}

template <class Row>
std::shared_ptr<const std::vector<Row>> WithoutOld(const std::vector<Row>& rows,
                                                   const std::vector<bool>& isOld) {
  std::vector<Row> left;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (!isOld[i]) left.push_back(rows[i]);
  }
  return BatchOf(std::move(left));
}

bool HasNewer(const PendingUnit& newer, const ObjectRuleData& row) {
  return std::any_of(row.definitions.begin(), row.definitions.end(), [&](const auto& entry) {
    return newer.Has(PendingDefinition{&row, &entry}.Key());
  });
}

bool HasNewer(const PendingUnit& newer, const ObjectRuleHistoryData& row) {
  return newer.Has(PendingHistory{&row}.Key());
}

template <class Row>
void MarkOld(const PendingUnit& newer, const std::vector<Row>& rows, std::vector<bool>& isOld) {
  for (std::size_t i = 0; i < rows.size(); ++i) isOld[i] = isOld[i] || HasNewer(newer, rows[i]);
}

std::string NameOf(const std::string& domainId, const std::string& unitKey) {
  return std::to_string(domainId.size()) + ' ' + domainId + unitKey;
}

}  // namespace

PendingUnit::PendingUnit(RuleRowBatch ruleRows, HistoryRowBatch historyRows) {
  firstDefinition.Reserve(ruleRows->size());
  for (const ObjectRuleData& row : *ruleRows) {
    for (const auto& entry : row.definitions) {
      if (entry.second != nullptr) firstDefinition.Add({&row, &entry});
    }
  }
  firstHistory.Reserve(historyRows->size());
  for (const ObjectRuleHistoryData& row : *historyRows) firstHistory.Add({&row});
  ruleCount = ruleRows->size();
  historyCount = historyRows->size();
  if (ruleCount != 0) rules.push_back(std::move(ruleRows));
  if (historyCount != 0) history.push_back(std::move(historyRows));
}

void PendingUnit::Append(PendingUnit&& later) {
  MoveBehind(rules, later.rules);
  MoveBehind(history, later.history);
  firstDefinition.Add(later.firstDefinition);
  firstHistory.Add(later.firstHistory);
  ruleCount += later.ruleCount;
  historyCount += later.historyCount;
}

HandedRows::HandedRows(PendingRows& owner, std::string unit, RuleRowBatch rules,
                       HistoryRowBatch history)
    : owner_(owner),
      unit_(std::move(unit)),
      rules_(std::move(rules)),
      history_(std::move(history)),
      isRuleOld_(rules_->size()),
      isHistoryOld_(history_->size()) {}

HandedRows::~HandedRows() { owner_.Forget(*this); }

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
  // Indexed before the lock is taken.
  PendingUnit unit(BatchOf(std::move(rules)), BatchOf(std::move(history)));
  const WriterLock lock(mutex_);
  AddUnit(domainId, unitKey, std::move(unit), nullptr);
}

std::shared_ptr<HandedRows> PendingRows::AddKept(const std::string& domainId,
                                                 const std::string& unitKey,
                                                 std::vector<ObjectRuleData> rules,
                                                 std::vector<ObjectRuleHistoryData> history) {
  const RuleRowBatch ruleBatch = BatchOf(std::move(rules));
  const HistoryRowBatch historyBatch = BatchOf(std::move(history));
  std::shared_ptr<HandedRows> kept(
      new HandedRows(*this, NameOf(domainId, unitKey), ruleBatch, historyBatch));
  PendingUnit unit(ruleBatch, historyBatch);
  const WriterLock lock(mutex_);
  AddUnit(domainId, unitKey, std::move(unit), nullptr);
  handed_.emplace(kept->unit_, kept.get());
  return kept;
}

void PendingRows::AddAgain(const std::string& domainId, const std::string& unitKey,
                           const HandedRows& rows) {
  const WriterLock lock(mutex_);
  AddUnit(domainId, unitKey,
          PendingUnit(WithoutOld(*rows.rules_, rows.isRuleOld_),
                      WithoutOld(*rows.history_, rows.isHistoryOld_)),
          &rows);
}

void PendingRows::Overtake(const std::string& unit, const PendingUnit& newer,
                           const HandedRows* own) {
  const auto [begin, end] = handed_.equal_range(unit);
  for (auto entry = begin; entry != end; ++entry) {
    HandedRows& older = *entry->second;
    if (&older == own) continue;
    MarkOld(newer, *older.rules_, older.isRuleOld_);
    MarkOld(newer, *older.history_, older.isHistoryOld_);
  }
}

void PendingRows::Forget(const HandedRows& rows) {
  const WriterLock lock(mutex_);
  const auto [begin, end] = handed_.equal_range(rows.unit_);
  const auto entry = std::find_if(begin, end, [&](const auto& e) { return e.second == &rows; });
  if (entry != end) handed_.erase(entry);
}

void PendingRows::AddUnit(const std::string& domainId, const std::string& unitKey, PendingUnit unit,
                          const HandedRows* own) {
  const std::size_t ruleCount = unit.ruleCount;
  const std::size_t count = ruleCount + unit.historyCount;
  if (count == 0) return;
  if (!handed_.empty()) Overtake(NameOf(domainId, unitKey), unit, own);
  unit.slot = SlotOf(domainId, unitKey);
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
  domain.open->ruleRows += ruleCount;
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
