#ifndef KEELSTONE_RULE_RECORDS_H
#define KEELSTONE_RULE_RECORDS_H

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/mutex.h"
#include "keelstone/rule_enums.h"

/// The plain records that the library passes around. All are value types; none locks.
namespace keelstone {

/// Where a variable comes from.
enum Enum_VariableSourceType : std::int32_t {
  kVariableSourceUnknown = -1,
  kVariableSourceParser = 2,  // a parser's variable: every lookup and row of the engine
};

/// How a rule came to be; 0 marks a learned rule, everything else a fixed one.
enum Enum_RuleGenerateType : std::int32_t {
  kRuleLearned = 0,
  kRulePrescribed = 1,
};

/// What the receiver of a result does with it.
enum Enum_UploadOperateType : std::int32_t {
  kUploadUpdate = 0,
};

/// One variable's rule: what kind, with which parameters, learned from which history.
///
/// Records that lie behind a shared pointer may be held by several rule instances, the
/// pending rows and the write-behind cache at once; read and write those under a
/// DefinitionLock.
struct KEELSTONE_EXPORT RuleDefinitionData {
  std::int32_t ruleType = kRuleTypeNone;  // EnumRuleType
  std::string ruleParam;                  // JSON text of the rule's parameters
  std::string history;                    // history text, "" when there is none
  bool enableFlag = false;
  std::int32_t enableState = 0;  // 0: the flag decides, 1: enabled, else: disabled
  std::int32_t ruleGenerateType = kRuleLearned;
  std::int32_t variableSourceType = kVariableSourceUnknown;
  std::string variableSource;  // identity of the parser
  std::string variableName;
  std::int32_t variableType = -1;  // the parser's type code; 0: not yet known
  std::string variableParam;       // the parser's parameter text

  RuleDefinitionData() = default;
  RuleDefinitionData(int type, int generateType, const std::string& param);
  RuleDefinitionData(int type, int sourceType, const std::string& param, const std::string& source,
                     const std::string& name, int valueType, const std::string& parserParam);

  bool IsEnable() const noexcept { return enableState == 0 ? enableFlag : enableState == 1; }
};

/// Holds one shared record for a scope: records share a fixed set of innermost mutexes,
/// so take no second lock of any kind meanwhile.
class KEELSTONE_EXPORT DefinitionLock {
 public:
  explicit DefinitionLock(const RuleDefinitionData& record) KS_NO_THREAD_SAFETY_ANALYSIS;
  ~DefinitionLock() KS_NO_THREAD_SAFETY_ANALYSIS;
  DefinitionLock(const DefinitionLock&) = delete;
  DefinitionLock& operator=(const DefinitionLock&) = delete;

 private:
  Mutex& mutex_;
};

/// What an object rule applies to.
struct KEELSTONE_EXPORT ObjectDefine {
  std::string nodeId;
  std::string nodePathSchema;
  std::string deviceName;
  std::string interfaceValue;
  std::string interfacePath;
};

/// Definitions by variable name.
using RuleDefinitionMap = std::map<std::string, std::shared_ptr<RuleDefinitionData>>;

/// The rules of one object, as written to the rule table.
struct KEELSTONE_EXPORT ObjectRuleData {
  RuleDefinitionMap definitions;
  ObjectDefine object;
  std::string variableSource;
  std::string variableParam;
  std::int32_t variableSourceType = kVariableSourceParser;
};

/// One row of the history table.
struct KEELSTONE_EXPORT ObjectRuleHistoryData {
  std::string history;
  ObjectDefine object;
  std::string variableSource;
  std::string variableName;
  std::string variableParam;
  std::int32_t variableSourceType = kVariableSourceParser;
};

/// Interface value → variable name → definition: all rules of one device and parser.
using DevParserRule = std::map<std::string, RuleDefinitionMap>;
/// Interface value → variable name → history text, likewise.
using DevParserHistory = std::map<std::string, std::map<std::string, std::string>>;

/// What is loaded and cached as one: a device and a parser with its parameter.
struct KEELSTONE_EXPORT UnitKey {
  std::string deviceName;
  std::string variableSource;
  std::string variableParam;

  UnitKey() = default;
  UnitKey(std::string device, std::string source, std::string param);

  /// The three joined by "$$$".
  std::string GetKeyString() const;
  /// Reads such a text back; false, and no change, unless it has exactly three pieces.
  bool LoadKeyString(const std::string& text);
};

/// A period during which devices are checked but nothing is learned of them.
struct KEELSTONE_EXPORT BlockSettingItem {
  std::set<std::string> devices;
  std::int64_t start = 0;  // seconds since the epoch, both ends included
  std::int64_t end = 0;

  BlockSettingItem() = default;
  BlockSettingItem(std::set<std::string> names, std::int64_t from, std::int64_t to);
};

/// One value as the host hands it in.
struct KEELSTONE_EXPORT VarInfo {
  std::string variableName;
  std::int32_t dataType = KSDataUnknown;  // EnumKSDataType
  std::int32_t variableType = 0;          // the parser's type code
  std::string interfacePath;
  std::string interfaceValue;
  JsonValue value;                  // the structured value of a table
  std::set<std::string> tableKeys;  // the columns that entered a table's digest
  std::int64_t tableFlag = 0;       // the low byte: rows were sorted before digesting
  std::string valueText;            // the value as text; a table's digest
};

}  // namespace keelstone

#endif  // KEELSTONE_RULE_RECORDS_H
