#ifndef KEELSTONE_PROGRAM_EVALUATE_EVALUATE_JOB_H
#define KEELSTONE_PROGRAM_EVALUATE_EVALUATE_JOB_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "keelstone/resident_store.h"
#include "program/console.h"
#include "program/evaluate/alert_book.h"
#include "program/evaluate/evaluate_command.h"
#include "program/evaluate/input_cutter.h"
#include "program/evaluate/line_faults.h"
#include "program/evaluate/output_writer.h"
#include "program/evaluate/result_output.h"
#include "program/evaluate/run_admission.h"
#include "program/evaluate/run_pool.h"
#include "program/evaluate/run_scheduler.h"
#include "program/stop_request.h"

namespace keelstone::host {

/// One evaluation from the first line to the exit code. The thread that calls Run cuts the
/// input into batches of lines (`InputCutter`); the scheduler's workers read, admit
/// (`RunAdmission`), evaluate and format; its delivery thread writes.
class EvaluateJob final : private RunWork {
 public:
  EvaluateJob(const EvaluateOptions& options, OutputFormat format, std::uint64_t inputTotal);

  /// Once.
  int Run(const std::vector<InputFile>& inputs);

 private:
  /// Why reading ended before the end of the inputs.
  enum class Broken { kNo, kStopped, kStrict, kFailed };

  void Read(InputBatch& batch) noexcept override { pool_.Read(batch); }
  bool Admit(InputBatch& batch) noexcept override { return admission_.Admit(batch); }
  void GiveBack(std::unique_ptr<InputBatch> batch) noexcept override {
    pool_.GiveBack(std::move(batch));
  }
  bool Evaluate(host::Run& run) noexcept override;
  void Flush(const std::string& domain) noexcept override;
  Units Load(const DomainSnapshot& domain, const std::vector<UnitKey>& keys) noexcept override;
  void Deliver(std::vector<std::unique_ptr<host::Run>>& runs) noexcept override;

  void OnSignal(int signal);
  void StartScheduler();
  RunScheduler::Limits SchedulerLimits() const;
  Broken CutInputs(const std::vector<InputFile>& inputs);
  Broken Fail(const std::string& why);
  void Format(host::Run& run, RunOutcome& outcome, bool isExplained);
  void SayLackOfMemory(const ParsedRun& run) noexcept;
  void WriteOpenEpisodes();
  void SayFailures();
  int Conclude(Broken broken);

  const EvaluateOptions& options_;
  const OutputFormat format_;
  const std::unique_ptr<ResidentStore> store_;  // empty: units are read for each run
  Console console_;
  StopRequest stop_;
  OutputWriter output_;  // the delivery thread's
  AlertBook book_;
  RunPool pool_;
  RunAdmission admission_;
  LineFaults notEvaluated_;  // runs for which memory was short; the delivery thread's
  std::atomic<bool> outputLost_{false};
  EvaluationProgress progress_;  // the delivery thread's until the scheduler has finished
  // The watch goes first at the end, and its thread finds the scheduler only once it is made.
  std::unique_ptr<RunScheduler> ownedScheduler_;
  std::atomic<RunScheduler*> scheduler_{nullptr};
  std::unique_ptr<SignalWatch> watch_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_EVALUATE_JOB_H
