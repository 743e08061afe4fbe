#ifndef KEELSTONE_STORAGE_TABLES_TABLE_TASK_H
#define KEELSTONE_STORAGE_TABLES_TABLE_TASK_H

#include <initializer_list>
#include <string_view>

#include "storage/tables/deferred_log.h"
#include "storage/tables/table_frame.h"

namespace keelstone {

/// One operation under way in the frame, and who is told of what fails in it: the log, the
/// counters, the caller. Borrows what it names. One thread.
struct TableTask {
  const TableOperation& operation;
  DeferredLog& log;
  TableFault* fault;  // may be null

  bool Reads() const noexcept {
    return operation.access == TableAccess::kAsk || operation.access == TableAccess::kRead;
  }
  bool MakesFile() const noexcept {
    return operation.access == TableAccess::kCreate || operation.access == TableAccess::kMake;
  }
  /// Tells the caller, where one wants to know.
  void Answer(std::string_view file, std::string_view message,
              bool isMemory = false) const noexcept;
  /// The same, and tells the log, unless the caller tells. `line` is what it says.
  void Fail(std::string_view file, std::string_view message,
            std::initializer_list<std::string_view> line, bool isMemory = false) const noexcept;
  /// Counts the operation as failed, unless the caller tells.
  void Count() const noexcept;

 private:
  bool IsToldByCaller() const noexcept {
    return operation.access == TableAccess::kAsk || operation.access == TableAccess::kMake;
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_TABLES_TABLE_TASK_H
