#ifndef KEELSTONE_STORAGE_FS_KSDATASYNCMANAGER_H
#define KEELSTONE_STORAGE_FS_KSDATASYNCMANAGER_H

#include <string>

#include "platform/cppsqlite3.h"
#include "platform/export.h"

namespace keelstone {

/// Takes databases over that were delivered from elsewhere. The settings are replaced as
/// whole files, the object rules merged row by row.
///
/// Every merge takes the file `from`, the file `to`, the domain whose database `to` is, and
/// whether the domain's data manager reads it anew afterwards. It answers true when `to`
/// holds what was delivered. A source that is missing, is no database or a damaged one,
/// lacks the table or the columns of its type, has them computed, holds a row of a wrong
/// shape (of settings one that a reading would pass over; the log says which), calls functions in
/// its schema, has triggers, or is the destination itself changes nothing: false, a line in the
/// log, and one failed write more (GetFailedWriteCount). A source that another process is
/// writing is waited for as long as any statement waits. The source is only read.
///
/// Each holds the lock record of (domain, database type), so it never meets a table
/// operation of this process half way. Any thread; made on first use, never destroyed.
class KEELSTONE_EXPORT FSKSDataSyncManager {
 public:
  static FSKSDataSyncManager* Instance();

  // A whole file takes the place of `to` in one step (the folder is made when missing).
  // Who reads the old file goes on reading it; one that is killed leaves the old or the
  // new file whole.
  bool MergeGlobalSetting(const std::string& from, const std::string& to,
                          const std::string& domainId, bool invalidate);
  bool MergeVariableRule(const std::string& from, const std::string& to,
                         const std::string& domainId, bool invalidate);
  bool MergeBlockSetting(const std::string& from, const std::string& to,
                         const std::string& domainId, bool invalidate);
  /// `invalidate` loads the names into InterfaceTranslator.
  bool MergeInterfaceType(const std::string& from, const std::string& to,
                          const std::string& domainId, bool invalidate);
  /// Writes the domain's pending rows, then puts every row of `from` in the place of the
  /// row of `to` with the same key, in one transaction; other rows stay, histories are not
  /// touched. NULL texts become empty ones. Takes little memory however many rows come.
  /// False with a line that names "VACUUM" means that the rows are merged and only the
  /// file could not be made smaller.
  bool MergeObjectRule(const std::string& from, const std::string& to, const std::string& domainId,
                       bool invalidate);

  /// Why a merge would refuse the source as it is now; empty when it would not. `dbType`
  /// is the EnumDbType of the merge. Reads the whole source.
  static std::string DeliveryFault(const std::string& from, const std::string& to, int dbType);

  // Each has the domain's data manager read its table anew.
  void InvalidateKSGlobalSettingCaches(const std::string& domainId);
  void InvalidateKSVariableRuleCaches(const std::string& domainId);
  void InvalidateKSObjectRuleCaches(const std::string& domainId);
  void InvalidateKSBlockSettingCaches(const std::string& domainId);
  /// Has InterfaceTranslator read the domain's names from the database `path`.
  void InvalidateInterfaceTypeCaches(const std::string& domainId, const std::string& path);

  /// Makes the rule table in an open database when it is missing, and says so in the log.
  /// Throws CppSQLite3Exception. The caller holds the database's lock record.
  static void CreateObjectRule(CppSQLite3DB& db, const std::string& dbPath);

 private:
  FSKSDataSyncManager() = default;
  ~FSKSDataSyncManager() = delete;

  static bool OverWriteDBFile(const std::string& from, const std::string& to,
                              const std::string& domainId, int dbType, int tableType);
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_FS_KSDATASYNCMANAGER_H
