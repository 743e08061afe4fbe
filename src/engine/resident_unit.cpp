#include "engine/resident_unit.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <new>

namespace keelstone {

namespace {

constexpr std::size_t kBlockBytes = 16;  // the allocator's own, a block of memory
constexpr std::size_t kShortText = 15;   // bytes that lie in the text itself
// An entry of the table of places with its share of free ones.
constexpr std::size_t kPlaceBytes = 24;

std::uint32_t DigestOf(std::string_view text) {
  const std::uint64_t hash = std::hash<std::string_view>{}(text);
  return static_cast<std::uint32_t>(hash ^ hash >> 32U) | 1U;  // never 0
}

std::uint32_t RuleDigest(std::int32_t ruleType, std::int32_t generateType,
                         std::int32_t variableType, std::string_view ruleParam) {
  std::uint32_t digest = DigestOf(ruleParam);
  for (const std::int32_t number : {ruleType, generateType, variableType}) {
    digest = (digest ^ static_cast<std::uint32_t>(number)) * 0x9E3779B1U;
  }
  return digest | 1U;
}

std::uint32_t RuleDigest(const ResidentVariable& variable) {
  if (!variable.hasRule) return 0;
  return RuleDigest(variable.ruleType, variable.generateType, variable.variableType,
                    variable.ruleParam);
}

/// The value of a two-step map; nullptr when there is none.
template <class Map>
auto* ValueIn(const Map& map, const std::string& first, const std::string& second) {
  const auto outer = map.find(first);
  if (outer == map.end()) return static_cast<decltype(&outer->second.begin()->second)>(nullptr);
  const auto inner = outer->second.find(second);
  return inner == outer->second.end() ? nullptr : &inner->second;
}

std::size_t HeapOfText(const std::string& text) noexcept {
  return text.capacity() > kShortText ? text.capacity() + 1 + kBlockBytes : 0;
}

}  // namespace

void ResidentVariable::FillRecord(RuleDefinitionData& record) const {
  record.ruleType = ruleType;
  record.ruleParam = ruleParam;
  record.ruleGenerateType = generateType;
  record.variableType = variableType;
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
  if (areHistoriesLoaded_) NoteStored();
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
  if (areRulesLoaded_) NoteStored();
}

/// All is as it was read just now.
void ResidentUnit::NoteStored() {
  const MutexLock lock(mutex_);
  for (ResidentVariable& variable : variables_) {
    const auto text = variable.history.Text();
    variable.storedRule = RuleDigest(variable);
    variable.storedHistory = text ? DigestOf(*text) : 0;
  }
}

std::size_t ResidentUnit::GiveWay(const DevParserRule& rules, const DevParserHistory& histories) {
  std::size_t count = 0;
  const MutexLock lock(mutex_);
  for (const std::uint32_t place : unwritten_) {
    ResidentVariable& variable = variables_[place];
    const std::string& interfaceValue = interfaces_[variable.interface];
    const auto* const rule = ValueIn(rules, interfaceValue, variable.name);
    const auto* const history = ValueIn(histories, interfaceValue, variable.name);
    const std::uint32_t ruleNow = rule == nullptr || *rule == nullptr
                                      ? 0
                                      : RuleDigest((*rule)->ruleType, (*rule)->ruleGenerateType,
                                                   (*rule)->variableType, (*rule)->ruleParam);
    const std::uint32_t historyNow = history == nullptr ? 0 : DigestOf(*history);
    if (variable.isRuleUnwritten && ruleNow != variable.storedRule) {
      variable.isRuleUnwritten = false;
      ++count;
    }
    if (variable.isHistoryUnwritten && historyNow != variable.storedHistory) {
      variable.isHistoryUnwritten = false;
      ++count;
    }
  }
  std::erase_if(unwritten_, [this](std::uint32_t place) KS_REQUIRES(mutex_) {
    return !variables_[place].isRuleUnwritten && !variables_[place].isHistoryUnwritten;
  });
  return count;
}

void ResidentUnit::Drop() noexcept {
  variables_.clear();
  interfaces_.clear();
  schemas_.clear();
  places_.clear();
  areRulesLoaded_ = areHistoriesLoaded_ = isRefused_ = isPacked_ = false;
  runs_ = first_ = 0;
  ruleCount_ = heapBytes_ = 0;
}

std::uint32_t ResidentUnit::SchemaOf(const std::string& nodePathSchema) {
  const auto found = std::find(schemas_.begin(), schemas_.end(), nodePathSchema);
  if (found != schemas_.end()) return static_cast<std::uint32_t>(found - schemas_.begin());
  const MutexLock lock(mutex_);
  schemas_.push_back(nodePathSchema);
  return static_cast<std::uint32_t>(schemas_.size() - 1);
}

/// Where the variables of the rows are, or will be.
ResidentUnit::Places ResidentUnit::PlacesOf(const std::vector<ResidentRow>& rows) {
  Places places;
  places.reserve(rows.size());
  // First those that are there: new ones may move them.
  for (const ResidentRow& row : rows) {
    places.push_back(row.stored == nullptr
                         ? kNoPlace
                         : static_cast<std::uint32_t>(row.stored - variables_.data()));
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (places[i] != kNoPlace) continue;
    places[i] = PlaceOf(rows[i].interfaceValue, rows[i].variableName);
  }
  return places;
}

void ResidentUnit::Apply(std::vector<ResidentRow>& rules, std::vector<ResidentRow>& histories,
                         const std::string& nodePathSchema) {
  for (const ResidentRow& row : rules) {
    ResidentCopy& rule = *row.rule;
    if (rule.record->history.empty()) continue;
    rule.history = PackedHistory::OfText(rule.record->history);
  }
  const std::uint32_t schema = rules.empty() ? 0 : SchemaOf(nodePathSchema);
  const Places rulePlaces = PlacesOf(rules);
  const Places historyPlaces = PlacesOf(histories);
  const MutexLock lock(mutex_);
  unwritten_.reserve(variables_.size());
  writing_.reserve(variables_.size());
  // From here on no memory is needed.
  for (std::size_t i = 0; i < rules.size(); ++i) TakeRule(rulePlaces[i], *rules[i].rule, schema);
  for (std::size_t i = 0; i < histories.size(); ++i) {
    TakeHistory(historyPlaces[i], histories[i].history);
  }
  rowCount_ += static_cast<std::int64_t>(rules.size() + histories.size());
}

void ResidentUnit::TakeRule(std::uint32_t place, ResidentCopy& rule,
                            std::uint32_t schema) noexcept {
  ResidentVariable& variable = variables_[place];
  RuleDefinitionData& record = *rule.record;
  heapBytes_ -= HeapOf(variable);
  variable.ruleParam.swap(record.ruleParam);
  variable.ruleType = record.ruleType;
  variable.generateType = record.ruleGenerateType;
  variable.variableType = record.variableType;
  variable.schema = schema;
  if (!std::exchange(variable.hasRule, true)) ++ruleCount_;
  heapBytes_ += HeapOf(variable);
  NoteUnwritten(place, true, false);
  if (rule.history.IsThere()) TakeHistory(place, rule.history);
}

void ResidentUnit::TakeHistory(std::uint32_t place, PackedHistory& history) noexcept {
  ResidentVariable& variable = variables_[place];
  heapBytes_ -= HeapOf(variable);
  variable.history = std::move(history);
  heapBytes_ += HeapOf(variable);
  NoteUnwritten(place, false, true);
}

void ResidentUnit::NoteUnwritten(std::uint32_t place, bool rule, bool history) noexcept {
  ResidentVariable& variable = variables_[place];
  if (!variable.isRuleUnwritten && !variable.isHistoryUnwritten) unwritten_.push_back(place);
  variable.isRuleUnwritten = variable.isRuleUnwritten || rule;
  variable.isHistoryUnwritten = variable.isHistoryUnwritten || history;
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
    writingDigests_.clear();
    writingDigests_.reserve(unwritten_.size());
    for (const std::uint32_t place : unwritten_) {
      writingDigests_.push_back(AppendRows(variables_[place], rows));
    }
  } catch (...) {
    rows.rules.resize(ruleCount);
    rows.histories.resize(historyCount);
    throw;
  }
  writing_.swap(unwritten_);
  for (const std::uint32_t place : writing_) {
    ResidentVariable& variable = variables_[place];
    variable.isRuleBeingWritten = std::exchange(variable.isRuleUnwritten, false);
    variable.isHistoryBeingWritten = std::exchange(variable.isHistoryUnwritten, false);
  }
}

// A rule carries its history, so that it never is on disk without it.
ResidentUnit::Digests ResidentUnit::AppendRows(const ResidentVariable& variable,
                                               SourceRows& rows) const {
  ObjectDefine object;
  object.deviceName = key_.deviceName;
  object.interfaceValue = interfaces_[variable.interface];
  std::string history = variable.isHistoryUnwritten ? variable.history.ToText() : std::string();
  const bool isCarried = variable.isRuleUnwritten && !history.empty();
  const Digests written = {
      variable.isRuleUnwritten ? RuleDigest(variable) : variable.storedRule,
      variable.isHistoryUnwritten ? DigestOf(history) : variable.storedHistory};
  if (variable.isRuleUnwritten) {
    const auto record = std::make_shared<RuleDefinitionData>();
    variable.FillRecord(*record);
    if (isCarried) record->history = std::move(history);
    ObjectRuleData& row = rows.rules.emplace_back();
    row.definitions.emplace(variable.name, record);
    row.object = object;
    row.object.nodePathSchema = schemas_[variable.schema];
    row.variableSource = key_.variableSource;
    row.variableParam = key_.variableParam;
  }
  if (!variable.isHistoryUnwritten || isCarried) return written;
  rows.histories.push_back({std::move(history), std::move(object), key_.variableSource,
                            variable.name, key_.variableParam, kVariableSourceParser});
  return written;
}

void ResidentUnit::Written(bool isOnDisk) noexcept {
  const MutexLock lock(mutex_);
  for (std::size_t i = 0; i < writing_.size(); ++i) {
    ResidentVariable& variable = variables_[writing_[i]];
    const bool rule = std::exchange(variable.isRuleBeingWritten, false);
    const bool history = std::exchange(variable.isHistoryBeingWritten, false);
    if (!isOnDisk) {
      NoteUnwritten(writing_[i], rule, history);
    } else {
      variable.storedRule = writingDigests_[i].rule;
      variable.storedHistory = writingDigests_[i].history;
    }
  }
  writing_.clear();
}

}  // namespace keelstone
