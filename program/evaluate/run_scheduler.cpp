#include "program/evaluate/run_scheduler.h"

#include <algorithm>
#include <exception>
#include <map>
#include <new>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace keelstone::host {

namespace {

constexpr std::size_t kDeliveredAtOnce = 4096;
// Runs of one unit that a worker evaluates without looking for others between them.
constexpr std::size_t kRunsAtOnce = 64;

// Runs that are done wait so long for others to be delivered with them, if others can be done.
constexpr auto kDeliveryPause = std::chrono::milliseconds(1);

UnitKey UnitKeyOf(const ParsedRun& run) { return {run.device, run.source, run.param}; }

}  // namespace

RunWork::Units RunWork::Load(const DomainSnapshot&, const std::vector<UnitKey>&) noexcept {
  return {};
}

RunScheduler::RunScheduler(RunWork& work, const Limits& limits)
    : work_(work), limits_(limits), queues_(workComes_) {
  delivering_.reserve(std::min(limits_.runs, kDeliveredAtOnce));
  workers_.reserve(limits_.threads);
  if (limits_.threads > 0) StartThreads();
}

/// What is found depends on none of them. The one that delivers comes first: without it the
/// thread that submits has to, and may as well do the rest.
void RunScheduler::StartThreads() {
  try {
    deliverer_ = std::thread([this] { DeliverAll(); });
    while (workers_.size() < limits_.threads) workers_.emplace_back([this] { Work(); });
  } catch (const std::exception& error) {
    startFault_ = error.what();
  }
  const MutexLock lock(mutex_);
  isShared_ = workers_.size() > 1;
}

RunScheduler::~RunScheduler() {
  Stop();
  Finish();
}

std::uint64_t RunScheduler::dropped() const {
  const MutexLock lock(mutex_);
  return dropped_;
}

bool RunScheduler::lacksMemory() const {
  const MutexLock lock(mutex_);
  return lacksMemory_;
}

bool RunScheduler::IsFull() const {
  if (heldRuns_ == 0) return false;
  return heldRuns_ >= limits_.runs || heldBytes_ >= limits_.bytes ||
         (heldRuns_ >= limits_.enoughRuns && heldBytes_ >= limits_.enoughBytes);
}

bool RunScheduler::Submit(std::unique_ptr<InputBatch> batch) {
  const MutexLock lock(mutex_);
  while (!IsEnded() && IsFull()) {
    if (!HelpOut()) roomComes_.Wait(mutex_);
  }
  if (IsEnded()) return false;
  const std::size_t runs = batch->lines.size();
  const std::size_t bytes = batch->text.size();
  batches_.push_back(std::move(batch));
  heldRuns_ += runs;
  heldBytes_ += bytes;
  workComes_.NotifyOne();
  HelpOut();
  return true;
}

void RunScheduler::AwaitAdmitted() {
  const MutexLock lock(mutex_);
  while (!IsAllAdmitted()) roomComes_.Wait(mutex_);
}

/// Does what there is no thread for; whether anything was done.
bool RunScheduler::HelpOut() {
  if (!workers_.empty()) return false;
  bool isDone = false;
  while (PerformNext()) isDone = true;
  while (!deliverer_.joinable() && DeliverReady()) isDone = true;
  return isDone;
}

void RunScheduler::Work() {
  mutex_.Lock();
  while (true) {
    if (PerformNext()) continue;
    if (isClosed_ && queues_.queued() == 0 && IsAllAdmitted()) break;
    workComes_.Wait(mutex_);
  }
  workComes_.NotifyAll();
  mutex_.Unlock();
}

bool RunScheduler::IsFlushDue() const {
  const UnitQueues::DomainQueue* const domain = queues_.flushable();
  return isShared_ && domain != nullptr && domain->values >= limits_.valuesWorthAFlush;
}

bool RunScheduler::PerformNext() {
  if (!IsEnded() && !isAdmitting_ && !batches_.empty() && batches_.front()->isRead) {
    PerformAdmission();
  } else if (IsFlushDue()) {
    PerformFlush();
  } else if (queues_.HasReady()) {
    PerformRuns();
  } else if (!IsEnded() && nextToRead_ < batches_.size()) {
    PerformRead();
  } else if (queues_.flushable() != nullptr) {
    PerformFlush();
  } else {
    return false;
  }
  return true;
}

void RunScheduler::PerformRead() {
  InputBatch& batch = *batches_[nextToRead_++];
  mutex_.Unlock();
  work_.Read(batch);
  mutex_.Lock();
  batch.isRead = true;
}

void RunScheduler::PerformAdmission() {
  isAdmitting_ = true;
  std::unique_ptr<InputBatch> batch = std::move(batches_.front());
  batches_.pop_front();
  --nextToRead_;
  mutex_.Unlock();
  const bool goesOn = work_.Admit(*batch);
  LoadIdleUnits(*batch);
  mutex_.Lock();
  if (!Enqueue(*batch)) lacksMemory_ = true;
  if (!goesOn) isRefused_ = true;
  mutex_.Unlock();
  work_.GiveBack(std::move(batch));
  mutex_.Lock();
  isAdmitting_ = false;
  roomComes_.NotifyAll();
  if (!IsAllAdmitted()) return;
  workComes_.NotifyAll();
  deliveryComes_.NotifyAll();
}

/// Puts the batch's runs into the queues; false when memory is too short for all of them.
bool RunScheduler::Enqueue(InputBatch& batch) {
  heldBytes_ -= batch.text.size();
  heldRuns_ -= batch.lines.size();
  for (InputLine& line : batch.lines) {
    if (line.state != InputLine::State::kRun) continue;
    if (isStopped_) {
      ++dropped_;
      continue;
    }
    const std::size_t bytes = line.run->bytes;
    try {
      undelivered_.push_back(std::move(line.run));
      queues_.Add(*undelivered_.back());
    } catch (const std::bad_alloc&) {
      if (line.run == nullptr) undelivered_.pop_back();
      return false;
    }
    ++heldRuns_;
    heldBytes_ += bytes;
  }
  return true;
}

/// Loads what the first runs of idle units need. A unit that is idle stays so until this
/// batch, before which no other is admitted, joins the queues.
void RunScheduler::LoadIdleUnits(const InputBatch& batch) {
  struct Wanted {
    std::vector<Run*> runs;
    std::vector<UnitKey> keys;
  };
  std::map<const DomainSnapshot*, Wanted> wanted;
  try {
    const MutexLock lock(mutex_);
    if (isStopped_) return;
    std::unordered_set<std::string_view> seen;
    for (const InputLine& line : batch.lines) {
      if (line.state != InputLine::State::kRun) continue;
      Run& run = *line.run;
      if (run.domain == nullptr || queues_.Contains(run.unitKey)) continue;
      if (!seen.insert(run.unitKey).second) continue;
      Wanted& units = wanted[run.domain];
      units.runs.push_back(&run);
      units.keys.push_back(UnitKeyOf(run.parsed));
    }
  } catch (const std::bad_alloc&) {
    return;  // they load for themselves
  }
  for (auto& [domain, units] : wanted) {
    RunWork::Units loaded = work_.Load(*domain, units.keys);
    for (std::size_t i = 0; i < loaded.size(); ++i) units.runs[i]->data = std::move(loaded[i]);
  }
}

/// Evaluates the earliest run, and those of its unit that come next anyway.
void RunScheduler::PerformRuns() {
  Run* runs = nullptr;
  UnitQueues::Unit* const unit = queues_.Begin(kRunsAtOnce, runs);
  if (unit == nullptr) return;
  if (unit->data) runs->data = std::move(unit->data);
  mutex_.Unlock();
  Run* next = runs;
  bool isPending = false;
  std::size_t values = 0;
  while (next != nullptr && !isPending) {
    values += next->parsed.variables.size();
    isPending = work_.Evaluate(*next);
    next = next->next;
  }
  mutex_.Lock();
  for (Run* run = runs; run != next; run = run->next) run->done = true;
  queues_.End(*unit, next, isPending, values);
  NoteDone();
}

/// Wakes whoever delivers: not for each run, while more come at once.
void RunScheduler::NoteDone() {
  if (!undelivered_.front()->done) return;
  const auto now = std::chrono::steady_clock::now();
  if (queues_.HasReady() && now < nextDelivery_) return;
  nextDelivery_ = now + kDeliveryPause;
  deliveryComes_.NotifyOne();
}

void RunScheduler::PerformFlush() {
  UnitQueues::DomainQueue& domain = queues_.BeginFlush();
  UnitQueues::Unit* const units = std::exchange(domain.pending, nullptr);
  FlushAndLoad(*domain.name, units);
  queues_.EndFlush(domain, units);
}

/// Puts the units' rows on disk, and loads those that have a run to go.
void RunScheduler::FlushAndLoad(const std::string& domain, UnitQueues::Unit* units) {
  std::vector<UnitQueues::Unit*> next;
  std::vector<UnitKey> keys;
  const DomainSnapshot* source = nullptr;
  try {
    for (UnitQueues::Unit* unit = units; unit != nullptr; unit = unit->nextPending) {
      if (unit->head == nullptr || unit->head->domain == nullptr) continue;
      next.push_back(unit);
      keys.push_back(UnitKeyOf(unit->head->parsed));
      source = unit->head->domain;
    }
  } catch (const std::bad_alloc&) {
    source = nullptr;  // they load for themselves
  }
  mutex_.Unlock();
  work_.Flush(domain);
  RunWork::Units loaded;
  if (source != nullptr) loaded = work_.Load(*source, keys);
  mutex_.Lock();
  for (std::size_t i = 0; i < loaded.size(); ++i) next[i]->data = std::move(loaded[i]);
}

void RunScheduler::Stop() {
  const MutexLock lock(mutex_);
  if (isStopped_) return;
  isStopped_ = true;
  const std::uint64_t latest = queues_.DropRest();
  while (!undelivered_.empty() && undelivered_.back()->sequence > latest) {
    heldBytes_ -= undelivered_.back()->bytes;
    undelivered_.pop_back();
    --heldRuns_;
    queues_.NoteDropped();
    ++dropped_;
  }
  if (!isRefused_) {
    for (const auto& batch : batches_) dropped_ += batch->lines.size();
  }
  workComes_.NotifyAll();
  deliveryComes_.NotifyAll();
  roomComes_.NotifyAll();
}

void RunScheduler::Drain() {
  {
    const MutexLock lock(mutex_);
    isClosed_ = true;
    workComes_.NotifyAll();
    deliveryComes_.NotifyAll();
    HelpOut();
  }
  for (std::thread& worker : workers_) {
    if (worker.joinable()) worker.join();
  }
}

void RunScheduler::Finish() {
  Drain();
  if (deliverer_.joinable()) deliverer_.join();
}

void RunScheduler::DeliverAll() {
  mutex_.Lock();
  while (true) {
    if (DeliverReady()) continue;
    if (isClosed_ && undelivered_.empty() && IsAllAdmitted()) break;
    deliveryComes_.Wait(mutex_);
  }
  mutex_.Unlock();
}

/// Delivers what is ready; false when nothing is.
bool RunScheduler::DeliverReady() {
  std::size_t bytes = 0;
  while (!undelivered_.empty() && undelivered_.front()->done &&
         delivering_.size() < delivering_.capacity()) {
    bytes += undelivered_.front()->bytes;
    delivering_.push_back(std::move(undelivered_.front()));
    undelivered_.pop_front();
  }
  if (delivering_.empty()) return false;
  const std::size_t count = delivering_.size();
  mutex_.Unlock();
  work_.Deliver(delivering_);
  delivering_.clear();
  mutex_.Lock();
  heldRuns_ -= count;
  heldBytes_ -= bytes;
  if (!IsFull()) roomComes_.NotifyAll();
  return true;
}

}  // namespace keelstone::host
