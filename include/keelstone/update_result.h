#ifndef KEELSTONE_UPDATE_RESULT_H
#define KEELSTONE_UPDATE_RESULT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/rule_records.h"

/// What one evaluation found, and its JSON document. The texts are valid UTF-8 whatever
/// the device sent: a byte that is not part of valid UTF-8 stands as U+FFFD there, while
/// the records keep it. One thread at a time.
namespace keelstone {

/// The largest rule parameter or golden value (bytes) that a result takes.
inline constexpr std::size_t kMaxResultTextBytes = 0xE00000;

/// A rule was learned or changed.
struct KEELSTONE_EXPORT KSRuleUpdateResultItem {
  std::int32_t nRuleId = 0;  // EnumRuleType
  std::string strRuleAlgParam;
  std::string strVariableName;
  std::string strNodeId;
  std::string strInterfaceName;
  std::string strVariableSource;
  std::string strVariableParam;
  std::string strDeviceName;
  std::string strInterfacePath;
  std::string strNodePathSchema;
  std::int32_t nVariableSourceType = kVariableSourceParser;
  std::int32_t nVariableType = -1;
  std::int32_t nOperateType = kUploadUpdate;
  /// Learned with the value just evaluated, and not taken over from the variable rules. Not
  /// part of the document.
  bool isLearned = false;

  KSRuleUpdateResultItem() = default;
  KSRuleUpdateResultItem(int ruleId, const std::string& ruleAlgParam,
                         const std::string& variableName, const std::string& nodeId,
                         const std::string& interfaceName, const std::string& variableSource,
                         const std::string& variableParam, int variableSourceType);

  /// Takes rule type, source type, param, name, source and variable type over.
  void SetRuleDefinition(const RuleDefinitionData& definition);
  JsonValue ToJsonValue() const;
  std::string ToJsonString() const;
  /// Reads the same keys back; a missing one gives 0 or "". False, and no change, when a
  /// member is of a kind that does not convert.
  bool LoadFromJson(const JsonValue& value);
};

/// A variable's golden value changed.
struct KEELSTONE_EXPORT KSValueUpdateResultItem {
  std::int32_t nRuleId = -1;
  std::string strVariableName;
  std::string strNodeId;
  std::string strInterfaceName;
  std::string strVariableSource;
  std::string strVariableParam;
  std::string strDeviceName;
  std::string strInterfacePath;
  std::string strNodePathSchema;
  std::int32_t nVariableSourceType = kVariableSourceParser;
  std::int32_t nVariableType = -1;
  std::string strJsonValue;      // JSON text of the golden value
  std::int64_t nValueTime = -1;  // seconds since the epoch
  std::string strStructureId;

  KSValueUpdateResultItem() = default;
  KSValueUpdateResultItem(const std::string& nodeId, const std::string& interfaceName,
                          const std::string& variableSource, const std::string& variableName,
                          const std::string& jsonValue, std::int64_t valueTime,
                          const std::string& structureId, const std::string& variableParam,
                          int variableSourceType);

  void SetRuleDefinition(const RuleDefinitionData& definition);
  JsonValue ToJsonValue() const;
  std::string ToJsonString() const;
  bool LoadFromJson(const JsonValue& value);
};

/// A value broke its rule.
class KEELSTONE_EXPORT KSAlertData {
 public:
  const std::string& GetNodeId() const { return nodeId_; }
  const std::string& GetNodeSchema() const { return nodeSchema_; }
  const std::string& GetDeviceName() const { return deviceName_; }
  const std::string& GetInterfacePath() const { return interfacePath_; }
  const std::string& GetInterfaceValue() const { return interfaceValue_; }
  const JsonValue& GetParserParam() const { return parserParam_; }
  const std::string& GetSourcePath() const { return sourcePath_; }
  // Spelled so in the interface, as is its JSON key.
  const std::string& GetVaraibleName() const { return varaibleName_; }
  /// Compact JSON text of the broken rule: "_t" its type, "_p" its parameter text, "_v"
  /// the value text (left out for variables with long names).
  const std::string& GetAlertInfo() const { return alertInfo_; }
  const std::vector<std::string>& GetTaskIds() const { return taskIds_; }
  /// Seconds since the epoch.
  std::int64_t GetLiveTime() const { return liveTime_; }

  void SetNodeId(std::string text) { nodeId_ = std::move(text); }
  void SetNodeSchema(std::string text) { nodeSchema_ = std::move(text); }
  void SetDeviceName(std::string text) { deviceName_ = std::move(text); }
  void SetInterfacePath(std::string text) { interfacePath_ = std::move(text); }
  void SetInterfaceValue(std::string text) { interfaceValue_ = std::move(text); }
  void SetParserParam(JsonValue value) { parserParam_ = std::move(value); }
  void SetSourcePath(std::string text) { sourcePath_ = std::move(text); }
  void SetVaraibleName(std::string text) { varaibleName_ = std::move(text); }
  void SetAlertInfo(std::string text) { alertInfo_ = std::move(text); }
  void SetTaskIds(std::vector<std::string> ids) { taskIds_ = std::move(ids); }
  void SetLiveTime(std::int64_t seconds) { liveTime_ = seconds; }

  JsonValue ToJsonValue() const;
  std::string ToJsonString() const;
  bool LoadFromJson(const JsonValue& value);

 private:
  std::string nodeId_;
  std::string nodeSchema_;
  std::string deviceName_;
  std::string interfacePath_;
  std::string interfaceValue_;
  JsonValue parserParam_;
  std::string sourcePath_;
  std::string varaibleName_;
  std::string alertInfo_;
  std::vector<std::string> taskIds_;  // not part of the document
  std::int64_t liveTime_ = 0;
};

/// All that one evaluation found.
class KEELSTONE_EXPORT KSRuleUpdateResultData {
 public:
  /// Appends and answers the new number of items; an empty pointer is passed over. An item whose
  /// rule parameter (golden value) is longer than kMaxResultTextBytes is dropped and logged (level
  /// 2).
  int AddKSRuleUpdateResultItem(std::shared_ptr<KSRuleUpdateResultItem> item);
  int AddKSValueUpdateResultItem(std::shared_ptr<KSValueUpdateResultItem> item);
  /// Appends whatever its size.
  int AddKSAlertResultItem(std::shared_ptr<KSAlertData> alert);

  const std::vector<std::shared_ptr<KSRuleUpdateResultItem>>& GetKSRuleUpdateResults() const {
    return ruleItems_;
  }
  const std::vector<std::shared_ptr<KSValueUpdateResultItem>>& GetKSValueUpdateResults() const {
    return valueItems_;
  }
  const std::vector<std::shared_ptr<KSAlertData>>& GetKSAlertResults() const { return alertItems_; }

  /// Sets the node id of every item, and the task ids of every alert.
  void ReSetDeviceID(const std::string& nodeId, const std::vector<std::string>& taskIds);

  /// An object with the arrays "ruleItems", "valueItems" and "alertItems".
  JsonValue ToJsonValue() const;
  std::string ToJsonString() const;
  /// Replaces the content; no item is judged by its size. False, and empty, when an item
  /// is refused.
  bool LoadFromJson(const JsonValue& value);

 private:
  std::vector<std::shared_ptr<KSRuleUpdateResultItem>> ruleItems_;
  std::vector<std::shared_ptr<KSValueUpdateResultItem>> valueItems_;
  std::vector<std::shared_ptr<KSAlertData>> alertItems_;
};

}  // namespace keelstone

#endif  // KEELSTONE_UPDATE_RESULT_H
