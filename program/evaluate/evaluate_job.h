#ifndef KEELSTONE_PROGRAM_EVALUATE_EVALUATE_JOB_H
#define KEELSTONE_PROGRAM_EVALUATE_EVALUATE_JOB_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "keelstone/resident_store.h"
#include "program/console.h"
#include "program/domain_registry.h"
#include "program/evaluate/alert_book.h"
#include "program/evaluate/evaluate_command.h"
#include "program/evaluate/line_faults.h"
#include "program/evaluate/line_reader.h"
#include "program/evaluate/output_writer.h"
#include "program/evaluate/result_output.h"
#include "program/evaluate/run_scheduler.h"
#include "program/stop_request.h"

namespace keelstone::host {

/// One input of an evaluation.
struct InputFile {
  std::string path;  // "-" for standard input
  std::string name;  // as it stands in messages
};

/// One evaluation from the first line to the exit code. The thread that calls Run reads
/// and parses; the scheduler's workers evaluate and format; its delivery thread writes.
class EvaluateJob final : private RunWork {
 public:
  EvaluateJob(const EvaluateOptions& options, OutputFormat format, std::uint64_t inputTotal);

  /// Once.
  int Run(const std::vector<InputFile>& inputs);

 private:
  /// Why reading ended before the end of the inputs.
  enum class Broken { kNo, kStopped, kStrict, kFailed };

  bool Evaluate(host::Run& run) noexcept override;
  void Flush(const std::string& domain) noexcept override;
  Units Load(const DomainSnapshot& domain, const std::vector<UnitKey>& keys) noexcept override;
  void Deliver(const std::vector<std::unique_ptr<host::Run>>& runs) noexcept override;

  void OnSignal(int signal);
  Broken ReadInputs(const std::vector<InputFile>& inputs);
  Broken ReadInput(const InputFile& input);
  Broken ReadLines(const InputFile& input, LineReader& reader);
  Broken TakeLine(const InputFile& input, const LineReader& reader, LineReader::Got got,
                  std::string_view line);
  Broken Skip(const std::string& fault);
  void SayLackOfMemory(const ParsedRun& run) noexcept;
  void StartScheduler();
  Broken SubmitBatch();
  void SayDomainFaults(const std::string& place);
  Broken Fail(const std::string& why);
  void WriteOpenEpisodes();
  int Conclude(Broken broken);

  const EvaluateOptions& options_;
  const OutputFormat format_;
  const std::unique_ptr<ResidentStore> store_;  // empty: units are read for each run
  Console console_;
  StopRequest stop_;
  OutputWriter output_;  // the delivery thread's
  AlertBook book_;
  JudgedValues judged_;
  DomainRegistry domains_;
  RunLineReader lines_;
  std::vector<std::unique_ptr<host::Run>> batch_;
  std::size_t batchBytes_ = 0;
  std::uint64_t inputBase_ = 0;  // bytes of the inputs before the present one
  std::uint64_t submitted_ = 0;  // runs of usable domains
  LineFaults faults_;
  LineFaults unread_;        // lines for which there was no memory
  LineFaults notEvaluated_;  // runs likewise; the delivery thread's
  bool domainRefused_ = false;
  std::atomic<bool> outputLost_{false};
  EvaluationProgress progress_;  // the delivery thread's until the scheduler has finished
  // The watch goes first at the end, and its thread finds the scheduler only once it is made.
  std::unique_ptr<RunScheduler> ownedScheduler_;
  std::atomic<RunScheduler*> scheduler_{nullptr};
  std::unique_ptr<SignalWatch> watch_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_EVALUATE_JOB_H
