#include "program/evaluate/evaluate_job.h"

#include <fcntl.h>
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

// What is handed to the workers (and enrolled) at a time.
constexpr std::size_t kBatchRuns = 512;
constexpr std::size_t kBatchBytes = 4U << 20U;

unsigned ThreadCount(unsigned wanted) {
  return wanted != 0 ? wanted : std::max(1U, std::thread::hardware_concurrency());
}

bool IsBlank(std::string_view line) {
  return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
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
      domains_(console_, options.enroll, !options.onDemand),
      lines_(options.common.domain),
      faults_(console_, "keelstone: further lines that are skipped are only counted"),
      unread_(console_, "keelstone: further lines without memory for them are only counted"),
      notEvaluated_(console_, "keelstone: further runs without memory for them are only counted") {
  progress_.inputTotal = inputTotal;
}

int EvaluateJob::Run(const std::vector<InputFile>& inputs) {
  std::signal(SIGPIPE, SIG_IGN);
  // Before any other thread, so that all of them leave the signals to the watch.
  watch_ = std::make_unique<SignalWatch>(stop_, [this](int signal) { OnSignal(signal); });
  StartScheduler();
  RunScheduler& scheduler = *ownedScheduler_;
  Broken broken = Broken::kNo;
  try {
    broken = ReadInputs(inputs);
  } catch (const std::bad_alloc&) {
    broken = Fail("out of memory, the rest of the input is not evaluated");
  } catch (const std::exception& error) {
    broken = Fail(error.what());
  }
  scheduler.Drain();
  // Before the last output is written, so that nobody who reads it slowly can keep what
  // is evaluated from the disk. Domain by domain all histories of a run go in one batch.
  for (const std::string& domain : domains_.Ids()) DBWriteWrapper::Instance()->WriteDomain(domain);
  DBWriteWrapper::Instance()->ForceWriteDisk();
  scheduler.Finish();
  if (format_ == OutputFormat::kText) WriteOpenEpisodes();
  if (broken == Broken::kNo && scheduler.dropped() > 0) broken = Broken::kStopped;
  return Conclude(broken);
}

void EvaluateJob::StartScheduler() {
  const unsigned wanted = ThreadCount(options_.threads);
  ownedScheduler_ = std::make_unique<RunScheduler>(static_cast<RunWork&>(*this),
                                                   RunScheduler::Limits{.threads = wanted});
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
    std::vector<EpisodeChange> episodes;
    if (request.explain) episodes = book_.Take(run.parsed, outcome);
    if (!options_.stages.IsAnyOn()) outcome.refused.clear();
    if (format_ == OutputFormat::kText) {
      if (run.domain->definesNothing) DropUndefined(outcome.refused);
      book_.TakeNews(run.parsed, outcome.refused);
      run.output = TextOutput(run.parsed, outcome, episodes);
    } else {
      run.output =
          JsonOutput(run.parsed, outcome, options_.all, request.explain ? &episodes : nullptr);
    }
  } catch (const std::exception&) {  // only for want of memory
    outputLost_.store(true);
  }
  // Where no thread waits for signals, nobody else tells the scheduler.
  if (stop_.Requested()) scheduler_.load()->Stop();
  return outcome.mayHavePending && !outcome.isResident;
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

void EvaluateJob::Deliver(const std::vector<std::unique_ptr<host::Run>>& runs) noexcept {
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
}

EvaluateJob::Broken EvaluateJob::Fail(const std::string& why) {
  console_.Say("keelstone: " + why);
  return Broken::kFailed;
}

EvaluateJob::Broken EvaluateJob::ReadInputs(const std::vector<InputFile>& inputs) {
  for (const InputFile& input : inputs) {
    Broken broken = ReadInput(input);
    // What came before the fault is evaluated, whatever the fault is.
    if (const Broken last = SubmitBatch(); last != Broken::kNo) return last;
    if (broken != Broken::kNo) return broken;
  }
  return Broken::kNo;
}

EvaluateJob::Broken EvaluateJob::ReadInput(const InputFile& input) {
  FileDescriptor file;
  if (input.path != "-") {
    // Opening a pipe does not wait for its other end: the reader does, and can be stopped.
    file = FileDescriptor(::open(input.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid()) return Fail(input.name + ": " + std::strerror(errno));
  }
  LineReader reader(file.valid() ? file.get() : STDIN_FILENO, stop_, options_.maxLine);
  const Broken broken = ReadLines(input, reader);
  inputBase_ += reader.position();
  return broken;
}

EvaluateJob::Broken EvaluateJob::ReadLines(const InputFile& input, LineReader& reader) {
  while (true) {
    // Nothing that is here already waits for input that is yet to come.
    if (batch_.size() >= kBatchRuns || batchBytes_ >= kBatchBytes || !reader.HasLine()) {
      if (const Broken broken = SubmitBatch(); broken != Broken::kNo) return broken;
    }
    std::string_view line;
    const LineReader::Got got = reader.Next(line);
    switch (got) {
      case LineReader::Got::kEnd:
        return Broken::kNo;
      case LineReader::Got::kStopped:
        return Broken::kStopped;
      case LineReader::Got::kFailed:
        return Fail(input.name + ": " + std::strerror(errno));
      case LineReader::Got::kTooLong:
      case LineReader::Got::kNoMemory:
      case LineReader::Got::kLine:
        break;
    }
    if (const Broken broken = TakeLine(input, reader, got, line); broken != Broken::kNo) {
      return broken;
    }
  }
}

EvaluateJob::Broken EvaluateJob::TakeLine(const InputFile& input, const LineReader& reader,
                                          LineReader::Got got, std::string_view line) {
  const std::string place = input.name + ":" + std::to_string(reader.lineNumber()) + ": ";
  try {
    if (got == LineReader::Got::kTooLong) return Skip(place + TooLongText(options_.maxLine));
    if (got == LineReader::Got::kNoMemory) throw std::bad_alloc();
    if (IsBlank(line)) return Broken::kNo;
    auto run = std::make_unique<host::Run>();
    if (!lines_.Read(line, run->parsed)) return Skip(place + lines_.fault());
    run->domain = domains_.Find(run->parsed.domain);
    SayDomainFaults(place);
    domains_.NoteVariables(run->parsed);
    const bool isEvaluated = run->domain->usable && run->domain->engineOn;
    if (isEvaluated && options_.stages.LooksBack()) run->judged = judged_.Of(run->parsed);
    run->bytes = line.size();
    run->inputPosition = inputBase_ + reader.position();
    batch_.push_back(std::move(run));
    batchBytes_ += line.size();
  } catch (const std::bad_alloc&) {
    unread_.Add(place + "memory is too short for the run, it is skipped");
  }
  return Broken::kNo;
}

EvaluateJob::Broken EvaluateJob::Skip(const std::string& fault) {
  faults_.Add(fault);
  return options_.strict ? Broken::kStrict : Broken::kNo;
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

EvaluateJob::Broken EvaluateJob::SubmitBatch() {
  if (batch_.empty()) return Broken::kNo;
  if (!domains_.DefineNoted()) {
    SayDomainFaults("keelstone: ");
    for (const auto& run : batch_) run->domain = domains_.Find(run->parsed.domain);
  }
  for (const auto& run : batch_) submitted_ += run->domain->usable ? 1 : 0;
  batchBytes_ = 0;
  const bool taken = scheduler_.load()->Submit(std::exchange(batch_, {}));
  return taken ? Broken::kNo : Broken::kStopped;
}

void EvaluateJob::WriteOpenEpisodes() {
  try {
    for (const auto& [key, episode] : book_.Open()) output_.Write(OpenEpisodeLine(key, episode));
  } catch (const std::exception&) {  // only for want of memory
    outputLost_.store(true);
  }
  output_.Flush();
}

void EvaluateJob::SayDomainFaults(const std::string& place) {
  for (const std::string& fault : domains_.TakeFaults()) {
    domainRefused_ = true;
    console_.Say(place + fault);
  }
}

int EvaluateJob::Conclude(Broken broken) {
  console_.EndProgress();
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
  const std::uint64_t lacking = unread_.count() + notEvaluated_.count();
  if (lacking > 0) {
    console_.Say("keelstone: memory was too short for " + std::to_string(lacking) +
                 (lacking == 1 ? " run" : " runs"));
  } else if (MemoryFaults() > 0) {
    console_.Say("keelstone: memory ran short; not all may have been evaluated or stored");
  }
  if (!options_.quiet) {
    console_.Say("keelstone: " + SummaryText(progress_, faults_.count(), console_.Elapsed()));
  }
  Logger::Instance().Flush();
  if (domainRefused_ && submitted_ == 0) return kExitUnusable;
  const bool isRead = broken == Broken::kNo || broken == Broken::kStrict;
  const bool isWritten = output_.failure() == 0 && !outputLost_.load() && failedWrites == 0;
  const bool isEvaluated = !domainRefused_ && failedReads == 0 && lacking + MemoryFaults() == 0;
  if (!isRead || !isEvaluated || !isWritten) return kExitBrokenOff;
  if (options_.failOnAlert && progress_.tally.alerts > 0) return kExitAlert;
  return faults_.count() > 0 ? kExitLinesSkipped : kExitDone;
}

}  // namespace keelstone::host
