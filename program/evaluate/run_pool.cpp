#include "program/evaluate/run_pool.h"

#include <exception>
#include <new>

namespace keelstone::host {

namespace {

// What is larger is not kept.
constexpr std::size_t kKeptTextBytes = 1U << 20U;
constexpr std::size_t kKeptVariables = 1024;
constexpr std::size_t kKeptRuns = 8192;

/// The run as one that has not been anywhere, but for what its texts occupy.
void Renew(Run& run) noexcept {
  run.domain = nullptr;
  run.judged = {};
  run.data.reset();
  run.output.clear();
  run.tally = {};
  run.lacksMemory = run.done = false;
  run.sequence = 0;
  run.next = nullptr;
}

}  // namespace

std::unique_ptr<InputBatch> RunPool::TakeBatch() {
  {
    const MutexLock lock(mutex_);
    if (!batches_.empty()) {
      std::unique_ptr<InputBatch> batch = std::move(batches_.back());
      batches_.pop_back();
      return batch;
    }
  }
  return std::make_unique<InputBatch>();
}

void RunPool::GiveBack(std::unique_ptr<InputBatch> batch) noexcept {
  if (batch == nullptr || batch->text.capacity() > kKeptTextBytes) return;
  batch->Clear();
  try {
    const MutexLock lock(mutex_);
    batches_.push_back(std::move(batch));
  } catch (const std::bad_alloc&) {
    // The next one is made anew.
  }
}

void RunPool::GiveBack(std::vector<std::unique_ptr<Run>>& runs) noexcept {
  for (std::unique_ptr<Run>& run : runs) {
    if (run->parsed.variables.capacity() > kKeptVariables) {
      run.reset();
    } else {
      Renew(*run);
    }
  }
  try {
    const MutexLock lock(mutex_);
    for (std::unique_ptr<Run>& run : runs) {
      if (run != nullptr && runs_.size() < kKeptRuns) runs_.push_back(std::move(run));
    }
  } catch (const std::bad_alloc&) {
    // They are freed instead.
  }
  runs.clear();
}

/// A reader, and runs for as many lines as there are used ones.
std::unique_ptr<RunLineReader> RunPool::TakeReader(InputBatch& batch) {
  {
    const MutexLock lock(mutex_);
    for (InputLine& line : batch.lines) {
      if (runs_.empty()) break;
      if (line.state != InputLine::State::kText) continue;
      line.run = std::move(runs_.back());
      runs_.pop_back();
    }
    if (!readers_.empty()) {
      std::unique_ptr<RunLineReader> reader = std::move(readers_.back());
      readers_.pop_back();
      return reader;
    }
  }
  return std::make_unique<RunLineReader>(defaultDomain_);
}

void RunPool::ReadLine(RunLineReader& reader, const InputBatch& batch, InputLine& line) {
  if (line.run == nullptr) line.run = std::make_unique<Run>();
  Run& run = *line.run;
  if (reader.Read(batch.TextOf(line), run.parsed)) {
    AssignUnitKey(run.unitKey, run.parsed);
    run.bytes = line.size;
    run.inputPosition = line.position;
    line.state = InputLine::State::kRun;
    return;
  }
  line.run.reset();
  line.fault = reader.fault();
  line.state = InputLine::State::kFault;
}

void RunPool::Read(InputBatch& batch) noexcept {
  std::unique_ptr<RunLineReader> reader;
  try {
    reader = TakeReader(batch);
  } catch (const std::bad_alloc&) {
    // Said of each line below.
  }
  for (InputLine& line : batch.lines) {
    if (line.state != InputLine::State::kText) continue;
    try {
      if (reader == nullptr) throw std::bad_alloc();
      ReadLine(*reader, batch, line);
    } catch (const std::exception&) {  // only for want of memory
      line.run.reset();
      line.state = InputLine::State::kNoMemory;
    }
  }
  try {
    const MutexLock lock(mutex_);
    if (reader != nullptr) readers_.push_back(std::move(reader));
  } catch (const std::bad_alloc&) {
    // The next one is made anew.
  }
}

}  // namespace keelstone::host
