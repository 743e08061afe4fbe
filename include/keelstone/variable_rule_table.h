#ifndef KEELSTONE_VARIABLE_RULE_TABLE_H
#define KEELSTONE_VARIABLE_RULE_TABLE_H

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_value.h"
#include "keelstone/mutex.h"
#include "keelstone/rule_records.h"
#include "keelstone/table_base.h"

namespace keelstone {

/// The variable rules of a domain (table "KSVariableRule", database type 10): which
/// variables of which parsers are watched, with which rule to begin with. Read once into
/// memory and answered from there. Any thread.
class KEELSTONE_EXPORT KSVariableRuleSql final : public CKSDBOperateBase {
 public:
  explicit KSVariableRuleSql(const std::string& subPath);
  ~KSVariableRuleSql() override;

  bool InitDB(const std::string& domainId) override;
  /// Reads the table anew: 1 when it was read (a missing file or table is an empty one),
  /// 0 after an error, which leaves what was loaded before. A row that is no JSON object
  /// or has a member of the wrong kind is logged and passed over; of two rows with one key
  /// the later wins.
  int LoadDBData() override;

  // A definition is found by source, name and parameter; the source type plays no part.

  /// Copies the definition of the variable into `out`: -1 when there is one, else 2.
  int GetRuleDefinitionData(RuleDefinitionData& out, const std::string& variableSource,
                            const std::string& variableName, const std::string& param,
                            Enum_VariableSourceType type) const;
  /// The definition itself, shared with the table and never changed; empty when absent.
  std::shared_ptr<const RuleDefinitionData> GetRuleDefinitionData(
      const std::string& variableSource, const std::string& variableName, const std::string& param,
      Enum_VariableSourceType type) const;
  /// Whether the source has a definition, of this name unless the name is empty.
  bool IsExistRuleDefinition(const std::string& variableSource, const std::string& variableName,
                             Enum_VariableSourceType type) const;

  /// Whether there is any definition.
  bool HasDefinitions() const;

  /// Adds definitions to the table on disk (made when it is missing) and in memory; one
  /// whose key is there already is left out. False, and memory as it was, when the write
  /// failed or the last LoadDBData did (logged and counted): what is not known to be missing
  /// is not added.
  [[nodiscard]] bool AddRuleDefinitions(const std::vector<RuleDefinitionData>& definitions);

  /// Throws JsonError, naming the member, for a row that would be passed over.
  static void RequireRow(const JsonValue& row);

 private:
  using Definitions = std::map<std::string, std::shared_ptr<const RuleDefinitionData>>;

  static std::string GenerateKey(std::string_view variableSource, std::string_view variableName,
                                 std::string_view param);
  static void SpliteKey(std::string_view key, std::string& variableSource,
                        std::string& variableName, std::string& param);

  /// Fills `definition` from its row and answers its key.
  static std::string ReadRow(const JsonValue& row, RuleDefinitionData& definition);
  bool WriteRows(const std::vector<std::shared_ptr<const RuleDefinitionData>>& added);

  // Held while the table is read or extended, so that memory changes in the order of the
  // file; taken before mutex_ and the lock record. Lookups never wait for it.
  Mutex changeMutex_;
  bool isLoaded_ KS_GUARDED_BY(changeMutex_) = true;  // or never read
  Definitions definitions_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_VARIABLE_RULE_TABLE_H
