#include "engine/resident_unit.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <new>

#include "storage/tables/stored_definition.h"

namespace keelstone {

namespace {

constexpr std::size_t kBlockBytes = 16;  // the allocator's own, a block of memory
constexpr std::size_t kShortText = 15;   // bytes that lie in the text itself
// An entry of the table of places with its share of free ones.
constexpr std::size_t kPlaceBytes = 24;

std::size_t HeapOfText(const std::string& text) noexcept {
  return text.capacity() > kShortText ? text.capacity() + 1 + kBlockBytes : 0;
}

}  // namespace

/// The rows of a run, with all the memory that they need.
struct ResidentUnit::Change {
  struct Row {
    std::uint32_t place = 0;
    bool isRule = false;
    bool hasHistory = false;
    std::int32_t ruleType = 0;
    std::int32_t generateType = 0;
    std::int32_t variableType = 0;
    std::string ruleParam;
    PackedHistory history;
  };
  std::vector<Row> rows;
  UnwrittenMap unwritten;
};

std::shared_ptr<RuleDefinitionData> ResidentVariable::Record() const {
  return StoredDefinition(ruleType, ruleParam, generateType, variableType);
}

std::uint64_t ResidentUnit::KeyOf(std::string_view interfaceValue, std::string_view variableName) {
  const std::hash<std::string_view> hash;
  std::uint64_t key = hash(interfaceValue);
  key = (key ^ key >> 32U) * 0x9E3779B97F4A7C15U;
  return key + hash(variableName);
}

bool ResidentUnit::IsAt(std::uint32_t place, std::string_view interfaceValue,
                        std::string_view variableName) const {
  const ResidentVariable& variable = variables_[place];
  return variable.name == variableName && interfaces_[variable.interface] == interfaceValue;
}

bool ResidentUnit::FindPlace(std::string_view interfaceValue, std::string_view variableName,
                             std::uint32_t& place) const {
  const auto found = places_.find(KeyOf(interfaceValue, variableName));
  if (found == places_.end()) return false;
  place = found->second;
  if (IsAt(place, interfaceValue, variableName)) return true;
  // Two with one key: next to never.
  for (place = 0; place < variables_.size(); ++place) {
    if (IsAt(place, interfaceValue, variableName)) return true;
  }
  return false;
}

const ResidentVariable* ResidentUnit::Next(std::string_view interfaceValue,
                                           std::string_view variableName, Course& course) const {
  std::uint32_t place = course.expected;
  if (place >= variables_.size() || !IsAt(place, interfaceValue, variableName)) {
    if (!FindPlace(interfaceValue, variableName, place)) return nullptr;
    (course.last == kNoPlace ? first_ : variables_[course.last].next) = place;
  }
  course.last = place;
  course.expected = variables_[place].next;
  return &variables_[place];
}

const ResidentVariable* ResidentUnit::Find(std::string_view interfaceValue,
                                           std::string_view variableName) const {
  std::uint32_t place = 0;
  return FindPlace(interfaceValue, variableName, place) ? &variables_[place] : nullptr;
}

ResidentUnit::Course ResidentUnit::BeginRun() {
  if (runs_ < 2) ++runs_;
  if (runs_ == 2 && !isPacked_) Pack();
  return {first_, kNoPlace};
}

/// What there is no memory for stays as it is.
void ResidentUnit::Pack() {
  isPacked_ = true;
  const MutexLock lock(mutex_);
  try {
    for (ResidentVariable& variable : variables_) {
      const std::size_t before = HeapOf(variable);
      variable.history.Pack();
      heapBytes_ += HeapOf(variable) - before;
    }
    variables_.shrink_to_fit();
  } catch (const std::bad_alloc&) {
  }
}

std::uint32_t ResidentUnit::InterfaceOf(const std::string& interfaceValue) {
  // The last one first: they come interface by interface.
  const auto found = std::find(interfaces_.rbegin(), interfaces_.rend(), interfaceValue);
  if (found != interfaces_.rend()) {
    return static_cast<std::uint32_t>(interfaces_.rend() - found - 1);
  }
  interfaces_.push_back(interfaceValue);
  return static_cast<std::uint32_t>(interfaces_.size() - 1);
}

/// The place of a variable, which is made where there is none: without rows, it is as good as
/// none.
std::uint32_t ResidentUnit::PlaceOf(const std::string& interfaceValue,
                                    const std::string& variableName) {
  std::uint32_t place = 0;
  if (FindPlace(interfaceValue, variableName, place)) return place;
  if (variables_.size() >= std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
  const MutexLock lock(mutex_);
  place = static_cast<std::uint32_t>(variables_.size());
  ResidentVariable variable;
  variable.interface = InterfaceOf(interfaceValue);
  variable.next = place + 1;
  variable.name = variableName;
  variables_.push_back(std::move(variable));
  try {
    places_.try_emplace(KeyOf(interfaceValue, variableName), place);
  } catch (...) {
    variables_.pop_back();
    throw;
  }
  heapBytes_ += HeapOf(variables_.back());
  return place;
}

void ResidentUnit::Reserve(std::size_t count) {
  const MutexLock lock(mutex_);
  variables_.reserve(count);
  places_.reserve(count);
}

std::size_t ResidentUnit::HeapOf(const ResidentVariable& variable) noexcept {
  const std::size_t history = variable.history.bytes();
  return HeapOfText(variable.name) + HeapOfText(variable.ruleParam) +
         (history > 0 ? history + kBlockBytes : 0);
}

std::size_t ResidentUnit::bytes() const noexcept {
  std::size_t interfaces = 0;
  for (const std::string& name : interfaces_) interfaces += sizeof name + HeapOfText(name);
  return variables_.capacity() * sizeof(ResidentVariable) + places_.size() * kPlaceBytes +
         interfaces + heapBytes_;
}

void ResidentUnit::SetRules(const DevParserRule& rules) {
  std::size_t count = variables_.size();
  for (const auto& [interfaceValue, definitions] : rules) count += definitions.size();
  Reserve(count);
  for (const auto& [interfaceValue, definitions] : rules) {
    for (const auto& [variableName, definition] : definitions) {
      if (definition == nullptr) continue;
      ResidentVariable& variable = variables_[PlaceOf(interfaceValue, variableName)];
      heapBytes_ -= HeapOf(variable);
      variable.ruleParam = definition->ruleParam;
      variable.ruleType = definition->ruleType;
      variable.generateType = definition->ruleGenerateType;
      variable.variableType = definition->variableType;
      heapBytes_ += HeapOf(variable);
      if (!std::exchange(variable.hasRule, true)) ++ruleCount_;
    }
  }
  areRulesLoaded_ = true;
}

void ResidentUnit::SetHistories(const DevParserHistory& histories) {
  for (const auto& [interfaceValue, texts] : histories) {
    for (const auto& [variableName, text] : texts) {
      ResidentVariable& variable = variables_[PlaceOf(interfaceValue, variableName)];
      heapBytes_ -= HeapOf(variable);
      variable.history = PackedHistory::OfText(text);
      heapBytes_ += HeapOf(variable);
    }
  }
  areHistoriesLoaded_ = true;
}

void ResidentUnit::Drop() noexcept {
  variables_.clear();
  interfaces_.clear();
  places_.clear();
  areRulesLoaded_ = areHistoriesLoaded_ = isRefused_ = isPacked_ = false;
  runs_ = first_ = 0;
  ruleCount_ = heapBytes_ = 0;
}

/// What becomes of a history that a run has; a unit that may not come again keeps its text,
/// which mostly lies ready.
PackedHistory ResidentUnit::Stored(const std::shared_ptr<HistoryDataBase>& history,
                                   const std::string& text) const {
  if (!text.empty() || !history) return PackedHistory::OfText(text);
  if (isPacked_) return PackedHistory::Of(*history);
  std::string written;
  history->WriteTo(written);
  return PackedHistory::OfText(written);
}

void ResidentUnit::Apply(const std::vector<ResidentRow>& rules,
                         const std::vector<ResidentRow>& histories,
                         const std::string& nodePathSchema) {
  Change change;
  change.rows.reserve(rules.size() + histories.size());
  for (const ResidentRow& row : rules) {
    const RuleDefinitionData& record = *row.rule->record;
    Change::Row& made = change.rows.emplace_back();
    made.place = PlaceOf(row.interfaceValue, row.variableName);
    made.isRule = true;
    made.ruleType = record.ruleType;
    made.generateType = record.ruleGenerateType;
    made.variableType = record.variableType;
    made.ruleParam = record.ruleParam;
    const auto& history = row.rule->history;
    made.hasHistory = !record.history.empty() || (history && history->GetDataCount() > 0);
    if (made.hasHistory) made.history = Stored(history, record.history);
    Unwritten& what = change.unwritten[made.place];
    what.rule = true;
    what.history = what.history || made.hasHistory;
    what.nodePathSchema = nodePathSchema;
  }
  for (const ResidentRow& row : histories) {
    Change::Row& made = change.rows.emplace_back();
    made.place = PlaceOf(row.interfaceValue, row.variableName);
    made.hasHistory = true;
    made.history = Stored(row.history, row.historyText);
    change.unwritten[made.place].history = true;
  }
  const MutexLock lock(mutex_);
  Take(change);
}

void ResidentUnit::Take(Change& change) noexcept {
  rowCount_ += static_cast<std::int64_t>(change.rows.size());
  for (Change::Row& row : change.rows) {
    ResidentVariable& variable = variables_[row.place];
    heapBytes_ -= HeapOf(variable);
    if (row.hasHistory) variable.history = std::move(row.history);
    if (row.isRule) {
      variable.ruleParam.swap(row.ruleParam);
      variable.ruleType = row.ruleType;
      variable.generateType = row.generateType;
      variable.variableType = row.variableType;
      if (!std::exchange(variable.hasRule, true)) ++ruleCount_;
    }
    heapBytes_ += HeapOf(variable);
  }
  Merge(change.unwritten, unwritten_);
}

/// Needs no memory.
void ResidentUnit::Merge(UnwrittenMap& newer, UnwrittenMap& into) noexcept {
  while (!newer.empty()) {
    auto place = into.insert(newer.extract(newer.begin()));
    if (place.inserted) continue;
    Unwritten& old = place.position->second;
    Unwritten& what = place.node.mapped();
    old.history = old.history || what.history;
    if (!what.rule) continue;
    old.rule = true;
    old.nodePathSchema.swap(what.nodePathSchema);
  }
}

std::int64_t ResidentUnit::TakeRowCount() noexcept { return std::exchange(rowCount_, 0); }

bool ResidentUnit::HasUnwritten() const {
  const MutexLock lock(mutex_);
  return !unwritten_.empty() || !writing_.empty();
}

void ResidentUnit::Append(SourceRows& rows) {
  const MutexLock lock(mutex_);
  const std::size_t ruleCount = rows.rules.size();
  const std::size_t historyCount = rows.histories.size();
  try {
    for (const auto& [place, what] : unwritten_) AppendRows(variables_[place], what, rows);
  } catch (...) {
    rows.rules.resize(ruleCount);
    rows.histories.resize(historyCount);
    throw;
  }
  writing_.swap(unwritten_);
}

// A rule carries its history, so that it never is on disk without it.
void ResidentUnit::AppendRows(const ResidentVariable& variable, const Unwritten& what,
                              SourceRows& rows) const {
  ObjectDefine object;
  object.deviceName = key_.deviceName;
  object.interfaceValue = interfaces_[variable.interface];
  std::string history = what.history ? variable.history.ToText() : std::string();
  const bool isCarried = what.rule && !history.empty();
  if (what.rule) {
    ObjectRuleData& row = rows.rules.emplace_back();
    const auto record = variable.Record();
    if (isCarried) record->history = std::move(history);
    row.definitions.emplace(variable.name, record);
    row.object = object;
    row.object.nodePathSchema = what.nodePathSchema;
    row.variableSource = key_.variableSource;
    row.variableParam = key_.variableParam;
  }
  if (!what.history || isCarried) return;
  rows.histories.push_back({std::move(history), std::move(object), key_.variableSource,
                            variable.name, key_.variableParam, kVariableSourceParser});
}

void ResidentUnit::Written(bool isOnDisk) noexcept {
  const MutexLock lock(mutex_);
  if (!isOnDisk) {
    // What has come since is newer.
    Merge(unwritten_, writing_);
    unwritten_.swap(writing_);
  }
  writing_.clear();
}

}  // namespace keelstone
