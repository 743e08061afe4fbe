#include "engine/resident_unit.h"

#include <utility>

#include "storage/tables/stored_definition.h"

namespace keelstone {

namespace {

// What the allocator and the maps take besides the texts, about.
constexpr std::size_t kNodeBytes = 64;    // links of a map and of the allocator
constexpr std::size_t kShortText = 15;    // bytes that lie in the text itself
constexpr std::size_t kRecordBytes = sizeof(RuleDefinitionData) + 32;

template <class Plain>
std::size_t SizeOf(const Plain& value) {
  return sizeof value;
}

std::size_t SizeOf(const std::string& text) {
  return sizeof(std::string) + (text.capacity() > kShortText ? text.capacity() + 1 : 0);
}

std::size_t SizeOf(const std::shared_ptr<RuleDefinitionData>& record) {
  return sizeof record + (record ? kRecordBytes + SizeOf(record->ruleParam) : 0);
}

template <class Value>
std::size_t SizeOf(const std::map<std::string, Value>& map) {
  std::size_t bytes = sizeof map;
  for (const auto& [key, value] : map) bytes += kNodeBytes + SizeOf(key) + SizeOf(value);
  return bytes;
}

template <class Entry>
std::size_t SizeOfNode(const Entry& entry) {
  return kNodeBytes + SizeOf(entry.first) + SizeOf(entry.second);
}

/// Moves all of `from` into `to` without a need for memory; where both have a key, `replace` is
/// called with the old value and the new one. Answers by how many bytes `to` has grown.
template <class Value, class Replace>
std::size_t MoveInto(std::map<std::string, std::map<std::string, Value>>& to,
                     std::map<std::string, std::map<std::string, Value>>& from,
                     const Replace& replace) noexcept {
  std::size_t grown = 0;  // may wrap around on its way
  while (!from.empty()) {
    auto outer = to.insert(from.extract(from.begin()));
    if (outer.inserted) {
      grown += SizeOfNode(*outer.position);
      continue;
    }
    auto& values = outer.position->second;
    auto& newer = outer.node.mapped();
    while (!newer.empty()) {
      auto inner = values.insert(newer.extract(newer.begin()));
      if (!inner.inserted) {
        grown -= SizeOfNode(*inner.position);
        replace(inner.position->second, inner.node.mapped());
      }
      grown += SizeOfNode(*inner.position);
    }
  }
  return grown;
}

constexpr auto kSwap = [](auto& old, auto& newer) { old.swap(newer); };

}  // namespace

/// What the rows of a run change, made before the first of it is put in.
struct ResidentUnit::Change {
  DevParserRule rules;
  DevParserHistory histories;
  UnwrittenMap unwritten;

  void Add(const ObjectRuleData& row) {
    for (const auto& [variableName, definition] : row.definitions) {
      if (definition == nullptr) continue;
      const std::string& interfaceValue = row.object.interfaceValue;
      rules[interfaceValue][variableName] =
          StoredDefinition(definition->ruleType, definition->ruleParam,
                           definition->ruleGenerateType, definition->variableType);
      Unwritten& what = unwritten[interfaceValue][variableName];
      what.rule = true;
      what.interfacePath = row.object.interfacePath;
      what.nodePathSchema = row.object.nodePathSchema;
      if (definition->history.empty()) continue;
      what.history = true;
      histories[interfaceValue][variableName] = definition->history;
    }
  }

  void Add(ObjectRuleHistoryData&& row) {
    unwritten[row.object.interfaceValue][row.variableName].history = true;
    histories[row.object.interfaceValue][row.variableName] = std::move(row.history);
  }
};

void ResidentUnit::SetRules(DevParserRule rules) {
  rules_ = std::move(rules);
  areRulesLoaded_ = true;
  bytes_ += SizeOf(rules_);
}

void ResidentUnit::SetHistories(DevParserHistory histories) {
  histories_ = std::move(histories);
  areHistoriesLoaded_ = true;
  bytes_ += SizeOf(histories_);
}

void ResidentUnit::Drop() noexcept {
  rules_.clear();
  histories_.clear();
  areRulesLoaded_ = areHistoriesLoaded_ = isRefused_ = false;
  bytes_ = 0;
}

void ResidentUnit::Apply(const std::vector<ObjectRuleData>& rules,
                         std::vector<ObjectRuleHistoryData> histories) {
  Change change;
  for (const ObjectRuleData& row : rules) change.Add(row);
  for (ObjectRuleHistoryData& row : histories) change.Add(std::move(row));
  const MutexLock lock(mutex_);
  bytes_ += MoveInto(rules_, change.rules, kSwap);
  bytes_ += MoveInto(histories_, change.histories, kSwap);
  MoveInto(unwritten_, change.unwritten, [](Unwritten& old, Unwritten& newer) {
    old.history = old.history || newer.history;
    if (!newer.rule) return;
    old.rule = true;
    old.interfacePath.swap(newer.interfacePath);
    old.nodePathSchema.swap(newer.nodePathSchema);
  });
  rowCount_ += static_cast<std::int64_t>(rules.size() + histories.size());
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
    for (const auto& [interfaceValue, variables] : unwritten_) {
      for (const auto& [variableName, what] : variables) {
        AppendKey(interfaceValue, variableName, what, rows);
      }
    }
  } catch (...) {
    rows.rules.resize(ruleCount);
    rows.histories.resize(historyCount);
    throw;
  }
  writing_.swap(unwritten_);
}

// A rule carries its history, so that it never is on disk without it.
void ResidentUnit::AppendKey(const std::string& interfaceValue, const std::string& variableName,
                             const Unwritten& what, SourceRows& rows) const {
  ObjectDefine object;
  object.deviceName = key_.deviceName;
  object.interfaceValue = interfaceValue;
  static const std::string kNoText;
  const std::string& history =
      what.history ? histories_.at(interfaceValue).at(variableName) : kNoText;
  if (what.rule) {
    std::shared_ptr<RuleDefinitionData> record = rules_.at(interfaceValue).at(variableName);
    if (!history.empty()) {
      record = std::make_shared<RuleDefinitionData>(*record);
      record->history = history;
    }
    ObjectRuleData& row = rows.rules.emplace_back();
    row.definitions.emplace(variableName, std::move(record));
    row.object = object;
    row.object.interfacePath = what.interfacePath;
    row.object.nodePathSchema = what.nodePathSchema;
    row.variableSource = key_.variableSource;
    row.variableParam = key_.variableParam;
  }
  if (!what.history || (what.rule && !history.empty())) return;
  rows.histories.push_back({history, std::move(object), key_.variableSource, variableName,
                            key_.variableParam, kVariableSourceParser});
}

void ResidentUnit::Written(bool isOnDisk) noexcept {
  const MutexLock lock(mutex_);
  if (!isOnDisk) {
    // What has come since is newer.
    MoveInto(writing_, unwritten_, [](Unwritten& old, Unwritten& newer) {
      old.history = old.history || newer.history;
      if (newer.rule) std::swap(old, newer);
      old.history = old.history || newer.history;
    });
    unwritten_.swap(writing_);
  }
  writing_.clear();
}

}  // namespace keelstone
