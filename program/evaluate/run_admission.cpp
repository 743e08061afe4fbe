#include "program/evaluate/run_admission.h"

#include <exception>
#include <new>

namespace keelstone::host {

namespace {

using State = InputLine::State;

std::string PlaceOf(const InputBatch& batch, const InputLine& line) {
  return *batch.inputName + ":" + std::to_string(line.number) + ": ";
}

/// Leaves nothing to evaluate of the batch from this line on.
void DropFrom(InputBatch& batch, std::size_t first) noexcept {
  for (std::size_t i = first; i < batch.lines.size(); ++i) {
    batch.lines[i].run.reset();
    batch.lines[i].state = State::kFault;
  }
}

}  // namespace

RunAdmission::RunAdmission(const EvaluateOptions& options, Console& console)
    : options_(options),
      console_(console),
      domains_(console, options.enroll, !options.onDemand),
      faults_(console, "keelstone: further lines that are skipped are only counted"),
      unread_(console, "keelstone: further lines without memory for them are only counted") {}

bool RunAdmission::Admit(InputBatch& batch) noexcept {
  try {
    for (std::size_t i = 0; i < batch.lines.size() && !isStrictEnd_; ++i) {
      AdmitLine(batch, batch.lines[i]);
      if (isStrictEnd_) DropFrom(batch, i);
    }
    DefineNoted(batch);
  } catch (const std::exception&) {  // only for want of memory
    DropFrom(batch, 0);
    lacksMemory_ = true;
  }
  return !isStrictEnd_ && !lacksMemory_;
}

void RunAdmission::AdmitLine(const InputBatch& batch, InputLine& line) {
  try {
    switch (line.state) {
      case State::kRun:
        return AdmitRun(batch, line);
      case State::kFault:
        faults_.Add(PlaceOf(batch, line) + line.fault);
        isStrictEnd_ = options_.strict;
        return;
      case State::kTooLong:
        faults_.Add(PlaceOf(batch, line) + TooLongText(options_.maxLine));
        isStrictEnd_ = options_.strict;
        return;
      case State::kText:
      case State::kNoMemory:
        break;
    }
  } catch (const std::bad_alloc&) {
    line.run.reset();
    line.state = State::kNoMemory;
  }
  unread_.Add(PlaceOf(batch, line) + "memory is too short for the run, it is skipped");
}

void RunAdmission::AdmitRun(const InputBatch& batch, const InputLine& line) {
  Run& run = *line.run;
  run.domain = domains_.Find(run.parsed.domain);
  if (domains_.HasFaults()) SayDomainFaults(PlaceOf(batch, line));
  domains_.NoteVariables(run.parsed);
  const bool isEvaluated = run.domain->usable && run.domain->engineOn;
  if (isEvaluated && options_.stages.LooksBack()) {
    run.judged = judged_.Of(run.unitKey, run.parsed.variables.size());
  }
}

void RunAdmission::DefineNoted(InputBatch& batch) {
  const bool isDefined = domains_.DefineNoted();
  if (!isDefined) SayDomainFaults("keelstone: ");
  for (InputLine& line : batch.lines) {
    if (line.state != State::kRun) continue;
    if (!isDefined) line.run->domain = domains_.Find(line.run->parsed.domain);
    hasUsableRuns_ = hasUsableRuns_ || line.run->domain->usable;
  }
}

void RunAdmission::SayDomainFaults(const std::string& place) {
  for (const std::string& fault : domains_.TakeFaults()) {
    isDomainRefused_ = true;
    console_.Say(place + fault);
  }
}

}  // namespace keelstone::host
