#include "keelstone/update_result.h"

#include <utility>

#include "keelstone/logger.h"

namespace keelstone {

namespace {

// A record as a table: one row a JSON key, in the order in which it is written.
template <class Record>
struct Member {
  const char* key;
  std::string Record::* text = nullptr;
  std::int32_t Record::* number = nullptr;
  std::int64_t Record::* seconds = nullptr;

  constexpr Member(const char* k, std::string Record::* m) : key(k), text(m) {}
  constexpr Member(const char* k, std::int32_t Record::* m) : key(k), number(m) {}
  constexpr Member(const char* k, std::int64_t Record::* m) : key(k), seconds(m) {}
};

using RuleItem = KSRuleUpdateResultItem;
constexpr Member<RuleItem> kRuleMembers[] = {
    {"nRuleId", &RuleItem::nRuleId},
    {"strRuleAlgParam", &RuleItem::strRuleAlgParam},
    {"nVariableSourceType", &RuleItem::nVariableSourceType},
    {"nVariableType", &RuleItem::nVariableType},
    {"strVariableParam", &RuleItem::strVariableParam},
    {"strVariableName", &RuleItem::strVariableName},
    {"strNodeId", &RuleItem::strNodeId},
    {"strInterfaceName", &RuleItem::strInterfaceName},
    {"strVariableSource", &RuleItem::strVariableSource},
    {"strDeviceName", &RuleItem::strDeviceName},
    {"strInterfacePath", &RuleItem::strInterfacePath},
    {"strNodePathSchema", &RuleItem::strNodePathSchema},
    {"nOperateType", &RuleItem::nOperateType},
};

using ValueItem = KSValueUpdateResultItem;
constexpr Member<ValueItem> kValueMembers[] = {
    {"nVariableSourceType", &ValueItem::nVariableSourceType},
    {"nVariableType", &ValueItem::nVariableType},
    {"strVariableParam", &ValueItem::strVariableParam},
    {"strVariableName", &ValueItem::strVariableName},
    {"strNodeId", &ValueItem::strNodeId},
    {"strInterfaceName", &ValueItem::strInterfaceName},
    {"strVariableSource", &ValueItem::strVariableSource},
    {"strJsonValue", &ValueItem::strJsonValue},
    {"nValueTime", &ValueItem::nValueTime},
    {"strStructureId", &ValueItem::strStructureId},
    {"nRuleId", &ValueItem::nRuleId},
    {"strDeviceName", &ValueItem::strDeviceName},
    {"strInterfacePath", &ValueItem::strInterfacePath},
    {"strNodePathSchema", &ValueItem::strNodePathSchema},
};

template <class Record, std::size_t kCount>
JsonValue Write(const Record& record, const Member<Record> (&members)[kCount]) {
  JsonValue object(JsonType::Object);
  for (const Member<Record>& member : members) {
    JsonValue& value = object[member.key];
    if (member.text != nullptr) {
      value = JsonValue(record.*member.text);
    } else if (member.number != nullptr) {
      value = JsonValue(record.*member.number);
    } else {
      value = JsonValue(record.*member.seconds);
    }
  }
  return object;
}

template <class Record, std::size_t kCount>
void ReadMembers(const JsonValue& object, Record& record, const Member<Record> (&members)[kCount]) {
  for (const Member<Record>& member : members) {
    const JsonValue& value = object[member.key];
    if (member.text != nullptr) {
      record.*member.text = value.asString();
    } else if (member.number != nullptr) {
      record.*member.number = value.asInt();
    } else {
      record.*member.seconds = value.asInt64();
    }
  }
}

/// Runs a reading on a copy of the record, which takes its place when nothing was refused.
template <class Record, class Reading>
bool ReadWhole(Record& record, Reading read) {
  try {
    Record changed = record;
    read(changed);
    record = std::move(changed);
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

/// The text for receivers: valid UTF-8 whatever the device sent.
std::string DocumentText(const JsonValue& value) {
  JsonWriteOptions options;
  options.replaceInvalidUtf8 = true;
  return value.toString(options);
}

template <class Item>
void TakeDefinition(Item& item, const RuleDefinitionData& definition) {
  item.nRuleId = definition.ruleType;
  item.nVariableSourceType = definition.variableSourceType;
  item.strVariableParam = definition.variableParam;
  item.strVariableName = definition.variableName;
  item.strVariableSource = definition.variableSource;
  item.nVariableType = definition.variableType;
}

template <class Item>
int AddIfSmall(std::vector<std::shared_ptr<Item>>& items, std::shared_ptr<Item> item,
               std::size_t bytes, const char* function) {
  if (bytes > kMaxResultTextBytes) {
    KS_LOG("FS_Keelstone", function, "keelstoneupdateruledata", kLogNotice,
           "Device %s, interface %s, variable %s is too big", item->strDeviceName.c_str(),
           item->strInterfaceName.c_str(), item->strVariableName.c_str());
  } else if (item) {
    items.push_back(std::move(item));
  }
  return static_cast<int>(items.size());
}

template <class Item>
JsonValue WriteItems(const std::vector<std::shared_ptr<Item>>& items) {
  JsonValue array(JsonType::Array);
  for (const auto& item : items) array.append(item->ToJsonValue());
  return array;
}

/// A list that is missing is an empty one.
template <class Item>
bool ReadItems(const JsonValue& array, std::vector<std::shared_ptr<Item>>& items) {
  if (!array.isArray() && !array.isNull()) return false;
  for (const JsonValue& element : array) {
    auto item = std::make_shared<Item>();
    if (!item->LoadFromJson(element)) return false;
    items.push_back(std::move(item));
  }
  return true;
}

}  // namespace

KSRuleUpdateResultItem::KSRuleUpdateResultItem(
    int ruleId, const std::string& ruleAlgParam, const std::string& variableName,
    const std::string& nodeId, const std::string& interfaceName, const std::string& variableSource,
    const std::string& variableParam, int variableSourceType)
    : nRuleId(ruleId),
      strRuleAlgParam(ruleAlgParam),
      strVariableName(variableName),
      strNodeId(nodeId),
      strInterfaceName(interfaceName),
      strVariableSource(variableSource),
      strVariableParam(variableParam),
      nVariableSourceType(variableSourceType) {}

void KSRuleUpdateResultItem::SetRuleDefinition(const RuleDefinitionData& definition) {
  TakeDefinition(*this, definition);
}
JsonValue KSRuleUpdateResultItem::ToJsonValue() const { return Write(*this, kRuleMembers); }
std::string KSRuleUpdateResultItem::ToJsonString() const { return DocumentText(ToJsonValue()); }
bool KSRuleUpdateResultItem::LoadFromJson(const JsonValue& value) {
  return ReadWhole(
      *this, [&value](KSRuleUpdateResultItem& item) { ReadMembers(value, item, kRuleMembers); });
}

KSValueUpdateResultItem::KSValueUpdateResultItem(
    const std::string& nodeId, const std::string& interfaceName, const std::string& variableSource,
    const std::string& variableName, const std::string& jsonValue, std::int64_t valueTime,
    const std::string& structureId, const std::string& variableParam, int variableSourceType)
    : strVariableName(variableName),
      strNodeId(nodeId),
      strInterfaceName(interfaceName),
      strVariableSource(variableSource),
      strVariableParam(variableParam),
      nVariableSourceType(variableSourceType),
      strJsonValue(jsonValue),
      nValueTime(valueTime),
      strStructureId(structureId) {}

void KSValueUpdateResultItem::SetRuleDefinition(const RuleDefinitionData& definition) {
  TakeDefinition(*this, definition);
}
JsonValue KSValueUpdateResultItem::ToJsonValue() const { return Write(*this, kValueMembers); }
std::string KSValueUpdateResultItem::ToJsonString() const { return DocumentText(ToJsonValue()); }
bool KSValueUpdateResultItem::LoadFromJson(const JsonValue& value) {
  return ReadWhole(
      *this, [&value](KSValueUpdateResultItem& item) { ReadMembers(value, item, kValueMembers); });
}

JsonValue KSAlertData::ToJsonValue() const {
  JsonValue object(JsonType::Object);
  object["NodeId"] = nodeId_;
  object["NodeSchema"] = nodeSchema_;
  object["DeviceName"] = deviceName_;
  object["InterfacePath"] = interfacePath_;
  object["InterfaceValue"] = interfaceValue_;
  object["ParserParam"] = parserParam_;
  object["SourcePath"] = sourcePath_;
  object["VaraibleName"] = varaibleName_;
  object["LiveTime"] = liveTime_;
  object["RuleParam"] = alertInfo_;
  return object;
}

std::string KSAlertData::ToJsonString() const { return DocumentText(ToJsonValue()); }

bool KSAlertData::LoadFromJson(const JsonValue& value) {
  return ReadWhole(*this, [&value](KSAlertData& alert) {
    alert.nodeId_ = value["NodeId"].asString();
    alert.nodeSchema_ = value["NodeSchema"].asString();
    alert.deviceName_ = value["DeviceName"].asString();
    alert.interfacePath_ = value["InterfacePath"].asString();
    alert.interfaceValue_ = value["InterfaceValue"].asString();
    alert.parserParam_ = value["ParserParam"];
    alert.sourcePath_ = value["SourcePath"].asString();
    alert.varaibleName_ = value["VaraibleName"].asString();
    alert.liveTime_ = value["LiveTime"].asInt64();
    alert.alertInfo_ = value["RuleParam"].asString();
  });
}

int KSRuleUpdateResultData::AddKSRuleUpdateResultItem(
    std::shared_ptr<KSRuleUpdateResultItem> item) {
  const std::size_t bytes = item ? item->strRuleAlgParam.size() : 0;
  return AddIfSmall(ruleItems_, std::move(item), bytes,
                    "KSRuleUpdateResultData::AddKSRuleUpdateResultItem");
}

int KSRuleUpdateResultData::AddKSValueUpdateResultItem(
    std::shared_ptr<KSValueUpdateResultItem> item) {
  const std::size_t bytes = item ? item->strJsonValue.size() : 0;
  return AddIfSmall(valueItems_, std::move(item), bytes,
                    "KSRuleUpdateResultData::AddKSValueUpdateResultItem");
}

int KSRuleUpdateResultData::AddKSAlertResultItem(std::shared_ptr<KSAlertData> alert) {
  if (alert) alertItems_.push_back(std::move(alert));
  return static_cast<int>(alertItems_.size());
}

void KSRuleUpdateResultData::ReSetDeviceID(const std::string& nodeId,
                                           const std::vector<std::string>& taskIds) {
  for (const auto& item : ruleItems_) item->strNodeId = nodeId;
  for (const auto& item : valueItems_) item->strNodeId = nodeId;
  for (const auto& alert : alertItems_) {
    alert->SetNodeId(nodeId);
    alert->SetTaskIds(taskIds);
  }
}

JsonValue KSRuleUpdateResultData::ToJsonValue() const {
  JsonValue document(JsonType::Object);
  document["ruleItems"] = WriteItems(ruleItems_);
  document["valueItems"] = WriteItems(valueItems_);
  document["alertItems"] = WriteItems(alertItems_);
  return document;
}

std::string KSRuleUpdateResultData::ToJsonString() const { return DocumentText(ToJsonValue()); }

bool KSRuleUpdateResultData::LoadFromJson(const JsonValue& value) {
  *this = KSRuleUpdateResultData();
  if (!value.isObject()) return value.isNull();
  KSRuleUpdateResultData loaded;
  if (!ReadItems(value["ruleItems"], loaded.ruleItems_) ||
      !ReadItems(value["valueItems"], loaded.valueItems_) ||
      !ReadItems(value["alertItems"], loaded.alertItems_)) {
    return false;
  }
  *this = std::move(loaded);
  return true;
}

}  // namespace keelstone
