#ifndef KEELSTONE_OBJECT_RULE_TABLE_H
#define KEELSTONE_OBJECT_RULE_TABLE_H

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/rule_records.h"
#include "keelstone/table_base.h"

namespace keelstone {

/// The object rules of a domain (table "KSObjectRule", database type 11) and their
/// histories (table "KSObjectHistory", database type 1000, a file of its own).
///
/// Every operation resolves the file, takes the database's process-wide lock, opens,
/// works, closes and lets go; none keeps a connection. All that answer int answer 0 when
/// the file is missing, 1 when the table is missing and -1 when the statements ran,
/// whether or not an error was caught and logged meanwhile. Failed writes are counted
/// (GetFailedWriteCount). Writes over many rows commit every 600 rows; an error rolls
/// back the open batch only. Without an object nothing is done, the answer is 0. Any
/// thread.
class KEELSTONE_EXPORT KSObjectRuleSql : public CKSDBOperateBase {
 public:
  KSObjectRuleSql();
  /// Files lie below the system root folder, then "data", then `subPath`.
  explicit KSObjectRuleSql(const std::string& subPath);
  ~KSObjectRuleSql() override;

  bool InitDB(const std::string& domainId) override;

  /// Histories of many units (at most 100,000 at a time are expected) in one opening of
  /// the database, by unit key string.
  virtual int GetMultiRuleHistoryDataBeDevParsers(
      std::map<std::string, std::shared_ptr<DevParserHistory>>& out,
      const std::vector<std::shared_ptr<UnitKey>>& keys, Enum_VariableSourceType type);
  /// Rules of many units, likewise.
  virtual int GetMultiRuleDefinitionDataByDevParsers(
      std::map<std::string, std::shared_ptr<DevParserRule>>& out,
      const std::vector<std::shared_ptr<UnitKey>>& keys, Enum_VariableSourceType type);
  /// Rules of one object by variable name, with their histories.
  virtual int GetRuleDefinitionDataByDevInf(RuleDefinitionMap& out, const ObjectDefine* object,
                                            const std::string& variableSource,
                                            const std::string& param, Enum_VariableSourceType type);
  /// Rules of all interfaces of one device and parser; the source type is always 2.
  virtual int GetRuleDefinitionDataByDev(DevParserRule& out, const ObjectDefine* object,
                                         const std::string& variableSource,
                                         const std::string& param, Enum_VariableSourceType type);
  /// Whether the device has a rule of this generate type; false also after an error.
  virtual bool IsExistRuleDefinitionByDevice(const ObjectDefine* object,
                                             const std::string& variableSource,
                                             const std::string& param,
                                             Enum_RuleGenerateType generateType,
                                             Enum_VariableSourceType type);
  /// History texts by interface value and variable name. An object with an interface
  /// value gets that interface's only, filed under the empty interface.
  virtual int GetRuleHistoryData(DevParserHistory& out, const ObjectDefine* object,
                                 const std::string& variableSource, const std::string& param,
                                 Enum_VariableSourceType type);

  // The deletes end with "VACUUM;", so that the file shrinks at once.
  virtual int RemoveRuleDefinitionData(const ObjectDefine* object,
                                       const std::string& variableSource,
                                       const std::string& variableName, const std::string& param,
                                       Enum_VariableSourceType type);
  virtual int RemoveRuleHistoryData(const ObjectDefine* object, const std::string& variableSource,
                                    const std::string& variableName, const std::string& param,
                                    Enum_VariableSourceType type);
  virtual int RemoveRuleHistoryDatas(
      std::vector<std::pair<std::shared_ptr<ObjectDefine>, std::shared_ptr<RuleDefinitionData>>>&
          items);
  /// All variables of one object and parser, and their histories.
  virtual int RemoveRuleDefinitionDataNoVar(const ObjectDefine* object,
                                            const std::string& variableSource,
                                            const std::string& param, Enum_VariableSourceType type);
  /// Rules and histories of every source that is not in `sources` (compared exactly). An
  /// empty list removes nothing.
  virtual int RemoveRuleDefinitionNoExistSource(const std::vector<std::string>& sources,
                                                Enum_VariableSourceType type);
  /// Removes nothing: devices are not known here. Answers -1.
  virtual int RemoveRuleDefinitionNoExistDevice(const std::vector<std::string>& devices,
                                                Enum_VariableSourceType type);

  /// Upserts rules, then the histories that their definitions carry.
  virtual int SetRuleAlgParam(const std::vector<ObjectRuleData>& rows);
  virtual int SetRuleAlgParam(const RuleDefinitionMap& definitions, const ObjectDefine* object,
                              const std::string& variableSource, const std::string& param,
                              Enum_VariableSourceType type);
  /// Upserts histories; makes the file and the table when they are missing.
  virtual int SetRuleHistoryData(const std::vector<ObjectRuleHistoryData>& rows);
  virtual int SetRuleHistoryData(const std::string& historyData, const ObjectDefine* object,
                                 const std::string& variableSource, const std::string& variableName,
                                 const std::string& param, Enum_VariableSourceType type);

  using RulePointers = std::vector<const ObjectRuleData*>;
  using HistoryPointers = std::vector<const ObjectRuleHistoryData*>;
  /// What the write-behind cache flushes, rows that lie where they are: `rules`, the
  /// histories that they carry, then `history`, in one commit over both files, so that a
  /// rule never is on disk without the history it was learned from. Where one of the files
  /// refuses, what the other takes is written as the two bulk writers would.
  void WriteFlush(const RulePointers& rules, const HistoryPointers& history);

 private:
  // With `histories` those of the written definitions are appended there instead of being
  // written.
  int WriteRuleRows(const RulePointers& rows,
                    std::vector<ObjectRuleHistoryData>* histories = nullptr);
  int WriteHistoryRows(const HistoryPointers& rows, int rowsATransaction);
  bool WriteTogether(const RulePointers& rules, const HistoryPointers& history);
  void WriteApart(const RulePointers& rules, const HistoryPointers& history);
  int GetAllSource(std::vector<std::string>& out, Enum_VariableSourceType type);
  int RemoveRuleDefinitionBySource(const std::vector<std::string>& sources,
                                   Enum_VariableSourceType type);
  int RemoveRuleHistoryBySource(const std::vector<std::string>& sources,
                                Enum_VariableSourceType type);
  int RemoveRuleDefinitionNoVar(const ObjectDefine* object, const std::string& variableSource,
                                const std::string& param, Enum_VariableSourceType type);
  int RemoveRuleHistoryDataNoVar(const ObjectDefine* object, const std::string& variableSource,
                                 const std::string& param, Enum_VariableSourceType type);
};

}  // namespace keelstone

#endif  // KEELSTONE_OBJECT_RULE_TABLE_H
