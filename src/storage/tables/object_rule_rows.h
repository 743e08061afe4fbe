#ifndef KEELSTONE_STORAGE_TABLES_OBJECT_RULE_ROWS_H
#define KEELSTONE_STORAGE_TABLES_OBJECT_RULE_ROWS_H

#include <vector>

#include "keelstone/rule_records.h"
#include "storage/tables/row_stream.h"

namespace keelstone {

/// The definitions of rows as rows of the rule table. Borrows `rows`; those whose
/// definitions carry a history are copied to `histories` as they are passed. One thread.
class RuleRows final : public RowStream {
 public:
  RuleRows(const std::vector<const ObjectRuleData*>& rows,
           std::vector<ObjectRuleHistoryData>& histories);

  const char* Columns() const noexcept override;
  bool HasRow() const noexcept override { return row_ != rows_.end(); }
  void Next() override;
  void Answer(int column, ColumnValue value) const noexcept override;

  static const char* const kUpdated;

 private:
  // What a row takes of a definition, copied under the definition's lock so that SQLite
  // never runs under it. One is used for all rows: its texts keep their memory.
  struct Definition {
    std::int32_t variableType = 0;
    std::int32_t ruleGenerateType = 0;
    std::int32_t ruleType = 0;
    std::string ruleParam;
    std::string history;

    void Take(const RuleDefinitionData& definition);
  };

  void FindDefinition();

  const std::vector<const ObjectRuleData*>& rows_;
  std::vector<ObjectRuleHistoryData>& histories_;
  std::vector<const ObjectRuleData*>::const_iterator row_;
  RuleDefinitionMap::const_iterator entry_;  // of the row
  Definition definition_;
};

/// The rows of the history table. Borrows them. One thread.
class HistoryRows final : public RowStream {
 public:
  explicit HistoryRows(const std::vector<const ObjectRuleHistoryData*>& rows);

  const char* Columns() const noexcept override;
  bool HasRow() const noexcept override { return row_ != rows_.end(); }
  void Next() override { ++row_; }
  void Answer(int column, ColumnValue value) const noexcept override;

  static const char* const kUpdated;

 private:
  const std::vector<const ObjectRuleHistoryData*>& rows_;
  std::vector<const ObjectRuleHistoryData*>::const_iterator row_;
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_OBJECT_RULE_ROWS_H
