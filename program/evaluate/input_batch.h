#ifndef KEELSTONE_PROGRAM_EVALUATE_INPUT_BATCH_H
#define KEELSTONE_PROGRAM_EVALUATE_INPUT_BATCH_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "program/evaluate/run.h"

namespace keelstone::host {

/// A line of the input on its way to a run.
struct InputLine {
  enum class State : std::uint8_t {
    kText,      // it is there to be read
    kRun,       // it gave `run`
    kFault,     // it is no run, `fault` says why
    kTooLong,   // it was passed over
    kNoMemory,  // likewise, or there was no memory for its run
  };

  State state = State::kText;
  std::size_t begin = 0;  // in the batch's text
  std::size_t size = 0;
  std::uint64_t number = 0;    // in its input, from 1
  std::uint64_t position = 0;  // bytes of all inputs up to its end
  std::string fault;
  std::unique_ptr<Run> run;
};

/// Lines of one input that follow each other, cut by the thread that reads, read to runs by any
/// other. One thread at a time.
struct InputBatch {
  const std::string* inputName = nullptr;  // as it stands in messages
  std::string text;
  std::vector<InputLine> lines;
  bool isRead = false;  // the scheduler's own: its lines are runs, or faults

  std::string_view TextOf(const InputLine& line) const {
    return std::string_view(text).substr(line.begin, line.size);
  }
  void Clear() noexcept {
    text.clear();
    lines.clear();
    isRead = false;
  }
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_INPUT_BATCH_H
