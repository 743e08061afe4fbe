#ifndef KEELSTONE_PROGRAM_EVALUATE_RUN_ADMISSION_H
#define KEELSTONE_PROGRAM_EVALUATE_RUN_ADMISSION_H

#include <cstdint>
#include <string>
#include <vector>

#include "keelstone/judged_values.h"
#include "program/console.h"
#include "program/domain_registry.h"
#include "program/evaluate/evaluate_command.h"
#include "program/evaluate/input_batch.h"
#include "program/evaluate/line_faults.h"

namespace keelstone::host {

/// What is done with lines in the order of the input, once they were read: faults are told, and
/// each run gets its domain, the definitions that it lacks, and its place among the judged
/// values. One thread at a time.
class RunAdmission {
 public:
  RunAdmission(const EvaluateOptions& options, Console& console);

  /// Takes in a batch; what is to be evaluated stays in it as a run. False when nothing behind
  /// it is: after a fault with --strict, or for want of memory.
  bool Admit(InputBatch& batch) noexcept;

  // While nothing is admitted.
  bool isStrictEnd() const noexcept { return isStrictEnd_; }
  bool lacksMemory() const noexcept { return lacksMemory_; }
  /// Lines that are no runs, and lines for which there was no memory.
  std::uint64_t faults() const noexcept { return faults_.count(); }
  std::uint64_t unread() const noexcept { return unread_.count(); }
  /// Whether a domain cannot be used, and whether there was a run of one that can.
  bool isDomainRefused() const noexcept { return isDomainRefused_; }
  bool hasUsableRuns() const noexcept { return hasUsableRuns_; }
  std::vector<std::string> DomainIds() const { return domains_.Ids(); }

 private:
  void AdmitLine(const InputBatch& batch, InputLine& line);
  void AdmitRun(const InputBatch& batch, const InputLine& line);
  void DefineNoted(InputBatch& batch);
  void SayDomainFaults(const std::string& place);

  const EvaluateOptions& options_;
  Console& console_;
  DomainRegistry domains_;
  JudgedValues judged_;
  LineFaults faults_;
  LineFaults unread_;
  bool isStrictEnd_ = false;
  bool lacksMemory_ = false;
  bool isDomainRefused_ = false;
  bool hasUsableRuns_ = false;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_RUN_ADMISSION_H
