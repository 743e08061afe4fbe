#include "program/evaluate/input_cutter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "program/file_descriptor.h"

namespace keelstone::host {

namespace {

// What is read and admitted at a time.
constexpr std::size_t kBatchLines = 512;
constexpr std::size_t kBatchBytes = 256U << 10U;

bool IsBlank(std::string_view line) {
  return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

}  // namespace

InputCutter::End InputCutter::Cut(const std::vector<InputFile>& inputs) {
  for (const InputFile& input : inputs) {
    const End end = CutInput(input);
    // What came before the fault is evaluated, whatever the fault is.
    if (!SubmitBatch()) return End::kRefused;
    if (end != End::kOfInput) return end;
  }
  return End::kOfInput;
}

InputCutter::End InputCutter::Fail(const InputFile& input) {
  fault_ = input.name + ": " + std::strerror(errno);
  return End::kFailed;
}

InputCutter::End InputCutter::CutInput(const InputFile& input) {
  FileDescriptor file;
  if (input.path != "-") {
    // Opening a pipe does not wait for its other end: the reader does, and can be stopped.
    file = FileDescriptor(::open(input.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid()) return Fail(input);
  }
  LineReader reader(file.valid() ? file.get() : STDIN_FILENO, stop_, maxLine_);
  const End end = CutLines(input, reader);
  inputBase_ += reader.position();
  return end;
}

InputCutter::End InputCutter::CutLines(const InputFile& input, LineReader& reader) {
  while (true) {
    BeginBatch();
    batch_->inputName = &input.name;
    // Nothing that is here already waits for input that is yet to come.
    const bool hasLine = reader.HasLine();
    if (!hasLine || batch_->lines.size() >= kBatchLines || batch_->text.size() >= kBatchBytes) {
      if (!SubmitBatch()) return End::kRefused;
      if (!hasLine && waits_) scheduler_.AwaitAdmitted();
      BeginBatch();
      batch_->inputName = &input.name;
    }
    std::string_view line;
    const LineReader::Got got = reader.Next(line);
    switch (got) {
      case LineReader::Got::kEnd:
        return End::kOfInput;
      case LineReader::Got::kStopped:
        return End::kStopped;
      case LineReader::Got::kFailed:
        return Fail(input);
      case LineReader::Got::kTooLong:
      case LineReader::Got::kNoMemory:
      case LineReader::Got::kLine:
        AddLine(reader, got, line);
    }
  }
}

void InputCutter::AddLine(const LineReader& reader, LineReader::Got got, std::string_view line) {
  if (got == LineReader::Got::kLine && IsBlank(line)) return;
  InputLine& cut = batch_->lines.emplace_back();
  cut.number = reader.lineNumber();
  cut.position = inputBase_ + reader.position();
  cut.begin = batch_->text.size();
  if (got == LineReader::Got::kTooLong) cut.state = InputLine::State::kTooLong;
  if (got == LineReader::Got::kNoMemory) cut.state = InputLine::State::kNoMemory;
  if (got != LineReader::Got::kLine) return;
  try {
    batch_->text.append(line);
    cut.size = line.size();
  } catch (const std::bad_alloc&) {
    cut.state = InputLine::State::kNoMemory;
  }
}

/// An empty batch with room for its lines, if there is none. Where memory is short, one that is
/// in use will come back.
void InputCutter::BeginBatch() {
  if (batch_ != nullptr) return;
  try {
    batch_ = pool_.TakeBatch();
    batch_->lines.reserve(kBatchLines);
  } catch (const std::bad_alloc&) {
    scheduler_.AwaitAdmitted();
    batch_ = pool_.TakeBatch();
    batch_->lines.reserve(kBatchLines);
  }
}

/// False when nobody takes more.
bool InputCutter::SubmitBatch() {
  if (batch_ == nullptr || batch_->lines.empty()) return true;
  return scheduler_.Submit(std::exchange(batch_, nullptr));
}

}  // namespace keelstone::host
