#include "program/evaluate/evaluate_job.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <new>
#include <thread>

#include "keelstone/logger.h"
#include "keelstone/memory_faults.h"
#include "keelstone/table_base.h"
#include "keelstone/text_escape.h"
#include "keelstone/write_behind.h"
#include "program/command_output.h"
#include "program/exit_codes.h"

namespace keelstone::host {

namespace {

unsigned ThreadCount(unsigned wanted) {
  return wanted != 0 ? wanted : std::max(1U, std::thread::hardware_concurrency());
}

void Add(RunTally& sum, const RunTally& tally) {
  sum.variables += tally.variables;
  sum.rejected += tally.rejected;
  sum.repeated += tally.repeated;
  sum.alerts += tally.alerts;
  sum.goldenValues += tally.goldenValues;
  sum.rules += tally.rules;
}

/// Where a domain defines nothing, one line has said so.
void DropUndefined(std::vector<RefusedValue>& refused) {
  std::erase_if(refused, [](const RefusedValue& value) { return value.isUndefined; });
}

}  // namespace

EvaluateJob::EvaluateJob(const EvaluateOptions& options, OutputFormat format,
                         std::uint64_t inputTotal)
    : options_(options),
      format_(format),
      store_(options.memory > 0 ? std::make_unique<ResidentStore>(options.memory) : nullptr),
      console_(!options.quiet && ::isatty(STDERR_FILENO) == 1),
      output_(STDOUT_FILENO),
      pool_(options.common.domain),
      admission_(options, console_),
      notEvaluated_(console_, "keelstone: further runs without memory for them are only counted") {
  progress_.inputTotal = inputTotal;
}

int EvaluateJob::Run(const std::vector<InputFile>& inputs) {
  std::signal(SIGPIPE, SIG_IGN);
  // Before any other thread, so that all of them leave the signals to the watch.
  watch_ = std::make_unique<SignalWatch>(stop_, [this](int signal) { OnSignal(signal); });
  StartScheduler();
  RunScheduler& scheduler = *ownedScheduler_;
  Broken broken = CutInputs(inputs);
  scheduler.Drain();
  // Before the last output is written, so that nobody who reads it slowly can keep what
  // is evaluated from the disk. Domain by domain all histories of a run go in one batch.
  for (const std::string& domain : admission_.DomainIds()) {
    DBWriteWrapper::Instance()->WriteDomain(domain);
  }
  DBWriteWrapper::Instance()->ForceWriteDisk();
  scheduler.Finish();
  if (format_ == OutputFormat::kText) WriteOpenEpisodes();
  if (broken == Broken::kNo && scheduler.dropped() > 0) broken = Broken::kStopped;
  return Conclude(broken);
}

EvaluateJob::Broken EvaluateJob::CutInputs(const std::vector<InputFile>& inputs) {
  RunScheduler& scheduler = *ownedScheduler_;
  InputCutter cutter(scheduler, pool_, stop_, options_.maxLine, options_.strict);
  auto end = InputCutter::End::kFailed;
  std::string why = "out of memory, the rest of the input is not evaluated";
  try {
    end = cutter.Cut(inputs);
    if (end == InputCutter::End::kFailed) why = cutter.fault();
  } catch (const std::bad_alloc&) {
    // As it is said already.
  } catch (const std::exception& error) {
    why = error.what();
  }
  // The faults of lines are told before that of the input behind them.
  scheduler.AwaitAdmitted();
  if (admission_.isStrictEnd()) return Broken::kStrict;
  if (admission_.lacksMemory() || scheduler.lacksMemory()) {
    return Fail("out of memory, the rest of the input is not evaluated");
  }
  if (end == InputCutter::End::kFailed) return Fail(why);
  return end == InputCutter::End::kOfInput ? Broken::kNo : Broken::kStopped;
}

/// Where units stay in memory, few runs have to wait.
RunScheduler::Limits EvaluateJob::SchedulerLimits() const {
  constexpr std::size_t kEnoughBytes = 1U << 20U;  // a thread
  RunScheduler::Limits limits{.threads = ThreadCount(options_.threads)};
  if (!store_) return limits;
  limits.enoughBytes = kEnoughBytes * (limits.threads + 1);
  limits.enoughRuns = std::size_t{4} * (limits.threads + 1);
  return limits;
}

void EvaluateJob::StartScheduler() {
  const RunScheduler::Limits limits = SchedulerLimits();
  const unsigned wanted = limits.threads;
  ownedScheduler_ = std::make_unique<RunScheduler>(static_cast<RunWork&>(*this), limits);
  scheduler_.store(ownedScheduler_.get());
  if (stop_.Requested()) ownedScheduler_->Stop();
  const unsigned started = ownedScheduler_->workers();
  if (started == wanted) return;
  console_.Say("keelstone: of " + std::to_string(wanted) + " evaluating threads " +
               std::to_string(started) + " could be started (" + ownedScheduler_->startFault() +
               "); " + (started == 0 ? "the reading thread evaluates" : "these evaluate"));
}

void EvaluateJob::OnSignal(int signal) {
  if (RunScheduler* scheduler = scheduler_.load()) scheduler->Stop();
  console_.Say(std::string("keelstone: stopping at ") + ::strsignal(signal) +
               "; what has begun is finished");
}

bool EvaluateJob::Evaluate(host::Run& run) noexcept {
  RunRequest request;
  request.onDemand = options_.onDemand || run.parsed.onDemand;
  request.explain = options_.explain || format_ == OutputFormat::kText;
  request.stages = options_.stages;
  request.judged = std::move(run.judged);
  request.store = store_.get();
  RunOutcome outcome = EvaluateRun(run.parsed, *run.domain, request, std::move(run.data));
  outcome.Store();
  run.lacksMemory = outcome.lacksMemory;
  run.tally = TallyOf(outcome);
  try {
    Format(run, outcome, request.explain);
  } catch (const std::exception&) {  // only for want of memory
    outputLost_.store(true);
  }
  // Where no thread waits for signals, nobody else tells the scheduler.
  if (stop_.Requested()) scheduler_.load()->Stop();
  return outcome.mayHavePending && !outcome.isResident;
}

void EvaluateJob::Format(host::Run& run, RunOutcome& outcome, bool isExplained) {
  std::vector<EpisodeChange> episodes;
  if (isExplained) episodes = book_.Take(run.parsed, outcome);
  if (!options_.stages.IsAnyOn()) outcome.refused.clear();
  if (format_ == OutputFormat::kText) {
    if (run.domain->definesNothing) DropUndefined(outcome.refused);
    book_.TakeNews(run.parsed, outcome.refused);
    run.output = TextOutput(run.parsed, outcome, episodes);
  } else {
    run.output = JsonOutput(run.parsed, outcome, options_.all, isExplained ? &episodes : nullptr);
  }
}

void EvaluateJob::Flush(const std::string& domain) noexcept {
  try {
    DBWriteWrapper::Instance()->WriteDomain(domain);
  } catch (const std::exception&) {
    // For want of memory the rows wait on, where look-ups find them, for the last flush.
  }
}

RunWork::Units EvaluateJob::Load(const DomainSnapshot& domain,
                                 const std::vector<UnitKey>& keys) noexcept {
  try {
    if (!domain.engineOn || !domain.data) return {};
    if (!store_) return LoadUnits(*domain.data->GetObjectRuleTable(), keys);
    store_->LoadAhead(domain.id, keys);
  } catch (const std::exception&) {
    // Without memory for many at once each run loads for itself.
  }
  return {};
}

void EvaluateJob::Deliver(std::vector<std::unique_ptr<host::Run>>& runs) noexcept {
  for (const auto& run : runs) {
    Add(progress_.tally, run->tally);
    output_.Write(run->output);
    if (run->lacksMemory) SayLackOfMemory(run->parsed);
  }
  progress_.runs += runs.size();
  progress_.inputBytes = runs.back()->inputPosition;
  // All that is ready goes out now: somebody may be waiting for it.
  if (!output_.Flush() && !stop_.Requested()) {
    stop_.Request();
    scheduler_.load()->Stop();
  }
  console_.Show(progress_);
  pool_.GiveBack(runs);
}

EvaluateJob::Broken EvaluateJob::Fail(const std::string& why) {
  console_.Say("keelstone: " + why);
  return Broken::kFailed;
}

/// The delivery thread's.
void EvaluateJob::SayLackOfMemory(const ParsedRun& run) noexcept {
  try {
    notEvaluated_.Add("keelstone: memory was too short for the run of " + Printable(run.device) +
                      " " + Printable(run.source) + " at " + std::to_string(run.time) +
                      ", it is not stored");
  } catch (const std::bad_alloc&) {
    notEvaluated_.Add("keelstone: memory was too short for a run, it is not stored");
  }
}

void EvaluateJob::WriteOpenEpisodes() {
  try {
    for (const auto& [key, episode] : book_.Open()) output_.Write(OpenEpisodeLine(key, episode));
  } catch (const std::exception&) {  // only for want of memory
    outputLost_.store(true);
  }
  output_.Flush();
}

void EvaluateJob::SayFailures() {
  if (outputLost_.load()) console_.Say("keelstone: results were lost for want of memory");
  if (output_.failure() != 0) {
    console_.Say(std::string("keelstone: standard output cannot be written: ") +
                 std::strerror(output_.failure()));
  }
  const std::uint64_t failedWrites = GetFailedWriteCount();
  if (failedWrites > 0) {
    console_.Say("keelstone: " + std::to_string(failedWrites) +
                 " writes to the databases have failed, first " + Printable(FirstFailureText()));
  }
  const std::uint64_t failedReads = GetFailedReadCount();
  if (failedReads > 0) {
    console_.Say("keelstone: " + std::to_string(failedReads) +
                 " reads of the databases have failed, what they concern was not evaluated; "
                 "first " +
                 Printable(FirstFailureText()));
  }
  const std::uint64_t lacking = admission_.unread() + notEvaluated_.count();
  if (lacking > 0) {
    console_.Say("keelstone: memory was too short for " + std::to_string(lacking) +
                 (lacking == 1 ? " run" : " runs"));
  } else if (MemoryFaults() > 0) {
    console_.Say("keelstone: memory ran short; not all may have been evaluated or stored");
  }
}

int EvaluateJob::Conclude(Broken broken) {
  console_.EndProgress();
  SayFailures();
  if (!options_.quiet) {
    console_.Say("keelstone: " + SummaryText(progress_, admission_.faults(), console_.Elapsed()));
  }
  Logger::Instance().Flush();
  if (admission_.isDomainRefused() && !admission_.hasUsableRuns()) return kExitUnusable;
  const bool isRead = broken == Broken::kNo || broken == Broken::kStrict;
  const bool isWritten =
      output_.failure() == 0 && !outputLost_.load() && GetFailedWriteCount() == 0;
  const std::uint64_t lacking = admission_.unread() + notEvaluated_.count() + MemoryFaults();
  const bool isEvaluated =
      !admission_.isDomainRefused() && GetFailedReadCount() == 0 && lacking == 0;
  if (!isRead || !isEvaluated || !isWritten) return kExitBrokenOff;
  if (options_.failOnAlert && progress_.tally.alerts > 0) return kExitAlert;
  return admission_.faults() > 0 ? kExitLinesSkipped : kExitDone;
}

}  // namespace keelstone::host
