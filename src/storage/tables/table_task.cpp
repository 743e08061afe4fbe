#include "storage/tables/table_task.h"

#include <atomic>
#include <new>

#include "keelstone/logger.h"
#include "storage/tables/note_failure.h"

namespace keelstone {

namespace {

std::atomic<std::uint64_t> failedWrites{0};
std::atomic<std::uint64_t> failedReads{0};
thread_local std::uint64_t failedHere = 0;

void LogFailure(const TableOperation& operation, DeferredLog& log) noexcept {
  const char* name = operation.failedName != nullptr ? operation.failedName : operation.table;
  log.Add(kLogError, __LINE__, "", name, " operate failed.");
}

}  // namespace

std::uint64_t GetFailedWriteCount() { return failedWrites.load(std::memory_order_acquire); }

std::uint64_t GetFailedReadCount() { return failedReads.load(std::memory_order_acquire); }

std::uint64_t FailedOperationsHere() noexcept { return failedHere; }

void CountFailedWrite() noexcept { failedWrites.fetch_add(1, std::memory_order_acq_rel); }

std::string TableFault::Text() const {
  if (isMemory) throw std::bad_alloc();
  return file.empty() ? message : file + ": " + message;
}

void TableTask::Answer(std::string_view file, std::string_view message,
                       bool isMemory) const noexcept {
  if (fault == nullptr) return;
  fault->isMemory = isMemory;
  try {
    fault->file = file;
    fault->message = message;
  } catch (const std::bad_alloc&) {
    fault->isMemory = true;
  }
}

void TableTask::Fail(std::string_view file, std::string_view message,
                     std::initializer_list<std::string_view> line, bool isMemory) const noexcept {
  Answer(file, message, isMemory);
  if (IsToldByCaller()) return;
  log.Add(kLogError, __LINE__, line);
  NoteFailure(file, operation.function, message);
  LogFailure(operation, log);
}

void TableTask::Count() const noexcept {
  if (IsToldByCaller()) return;
  ++failedHere;
  if (operation.access == TableAccess::kRead) {
    failedReads.fetch_add(1, std::memory_order_acq_rel);
  } else {
    CountFailedWrite();
  }
}

}  // namespace keelstone
