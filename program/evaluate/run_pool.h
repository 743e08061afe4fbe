#ifndef KEELSTONE_PROGRAM_EVALUATE_RUN_POOL_H
#define KEELSTONE_PROGRAM_EVALUATE_RUN_POOL_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "keelstone/mutex.h"
#include "keelstone/run_line.h"
#include "program/evaluate/input_batch.h"

namespace keelstone::host {

/// Batches, readers and runs that are used again, with the memory that they hold: a run takes
/// its texts where another of its kind had them. It holds no more than was in use at once, and
/// nothing that one giant line has blown up. Any thread.
class RunPool {
 public:
  /// Readers read runs that name no domain as runs of `defaultDomain`.
  explicit RunPool(std::string defaultDomain) : defaultDomain_(std::move(defaultDomain)) {}

  /// An empty batch.
  std::unique_ptr<InputBatch> TakeBatch();
  void GiveBack(std::unique_ptr<InputBatch> batch) noexcept;

  /// Reads the lines of a batch to runs; for want of memory a line becomes kNoMemory.
  void Read(InputBatch& batch) noexcept;
  /// Takes runs back; what is not kept is freed.
  void GiveBack(std::vector<std::unique_ptr<Run>>& runs) noexcept;

 private:
  std::unique_ptr<RunLineReader> TakeReader(InputBatch& batch);
  static void ReadLine(RunLineReader& reader, const InputBatch& batch, InputLine& line);

  const std::string defaultDomain_;
  Mutex mutex_;  // guards what follows; innermost
  std::vector<std::unique_ptr<InputBatch>> batches_ KS_GUARDED_BY(mutex_);
  std::vector<std::unique_ptr<RunLineReader>> readers_ KS_GUARDED_BY(mutex_);
  std::vector<std::unique_ptr<Run>> runs_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_RUN_POOL_H
