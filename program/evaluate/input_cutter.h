#ifndef KEELSTONE_PROGRAM_EVALUATE_INPUT_CUTTER_H
#define KEELSTONE_PROGRAM_EVALUATE_INPUT_CUTTER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "program/evaluate/input_batch.h"
#include "program/evaluate/line_reader.h"
#include "program/evaluate/run_pool.h"
#include "program/evaluate/run_scheduler.h"
#include "program/stop_request.h"

namespace keelstone::host {

/// One input of an evaluation.
struct InputFile {
  std::string path;  // "-" for standard input
  std::string name;  // as it stands in messages
};

/// Cuts the inputs into batches of whole lines, and hands these over one after the other. It
/// looks at nothing in a line but whether it is blank. One thread, which waits for input and
/// for room.
class InputCutter {
 public:
  /// How it ended.
  enum class End {
    kOfInput,
    kStopped,  // on request
    kRefused,  // nobody takes more
    kFailed,   // fault() says why
  };

  /// Lines are at most `maxLine` bytes long; others are passed over. `waits`: whether to wait for
  /// more input only when it is known whether more is taken.
  InputCutter(RunScheduler& scheduler, RunPool& pool, const StopRequest& stop, std::size_t maxLine,
              bool waits)
      : scheduler_(scheduler), pool_(pool), stop_(stop), maxLine_(maxLine), waits_(waits) {}

  /// The names must outlive what is evaluated. For want of memory it throws.
  End Cut(const std::vector<InputFile>& inputs);
  const std::string& fault() const noexcept { return fault_; }

 private:
  End CutInput(const InputFile& input);
  End CutLines(const InputFile& input, LineReader& reader);
  void AddLine(const LineReader& reader, LineReader::Got got, std::string_view line);
  void BeginBatch();
  bool SubmitBatch();
  End Fail(const InputFile& input);

  RunScheduler& scheduler_;
  RunPool& pool_;
  const StopRequest& stop_;
  const std::size_t maxLine_;
  const bool waits_;
  std::unique_ptr<InputBatch> batch_;
  std::uint64_t inputBase_ = 0;  // bytes of the inputs before the present one
  std::string fault_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_INPUT_CUTTER_H
