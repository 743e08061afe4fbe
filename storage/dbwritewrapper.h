#ifndef KEELSTONE_STORAGE_DBWRITEWRAPPER_H
#define KEELSTONE_STORAGE_DBWRITEWRAPPER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/ksrulerecords.h"
#include "platform/export.h"

namespace keelstone {

/// The write-behind cache in front of the object-rule and history tables. Evaluation
/// hands rows over and goes on; one worker thread writes them when "CacheSize" rows
/// (10000) are pending, or every "CacheTime" seconds (60). Both are read from section
/// "Keelstone" of fix_frontserver.ini and frontserver.ini when the cache is first used;
/// "BachCount" (10000), the rows a database call, at every flush.
///
/// A row is found by the lookups from the moment it is handed over until it is on disk,
/// the oldest of a key first: rows that a flush is writing come before those that have
/// come since. The rows of one domain reach the disk in the order in which they came.
///
/// Made on first use and never destroyed; the worker never ends, and what is pending when
/// the process ends is lost: a host calls ForceWriteDisk before it goes. Any thread.
class KEELSTONE_EXPORT DBWriteWrapper {
 public:
  static DBWriteWrapper* Instance();

  /// Takes rows over. The definitions in `rules` stay shared with the caller; a change
  /// made to them before they are written is written.
  void CacheData(const std::string& domainId, const std::string& unitKey,
                 std::vector<ObjectRuleData> rules, std::vector<ObjectRuleHistoryData> history);

  /// The oldest pending definition of the variable, itself and not a copy; empty when
  /// there is none.
  std::shared_ptr<RuleDefinitionData> GetCachedRuleDefinition(
      const std::string& domainId, const std::string& unitKey, const std::string& interfaceValue,
      const std::string& variableSource, const std::string& param,
      const std::string& variableName) const;
  /// Copies the oldest pending history text of the variable: 1, or 0 when there is none.
  int GetCachedHistoryData(const std::string& domainId, const std::string& unitKey,
                           const std::string& interfaceValue, const std::string& variableSource,
                           const std::string& param, const std::string& variableName,
                           std::string& historyOut) const;

  /// Whether rows of the unit wait to be written.
  bool HasPendingRows(const std::string& domainId, const std::string& unitKey) const;

  /// Writes what is pending of one domain and answers the number of rows that this call
  /// wrote. Returns when every row handed over before the call is written, also those
  /// that another flush had taken. From within a flush (a host's log callback) it does
  /// nothing and answers 0.
  int WriteDomain(const std::string& domainId);
  /// Writes everything that is pending, "BachCount" rows a call: the rules of all domains
  /// in order of their ids, then the histories. Returns as WriteDomain does, also from
  /// within a flush.
  void ForceWriteDisk();

 private:
  struct State;
  DBWriteWrapper();
  ~DBWriteWrapper() = delete;
  void Work();

  State* state_;
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_DBWRITEWRAPPER_H
