#include "program/evaluate/run_scheduler.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <map>
#include <new>
#include <unordered_set>
#include <utility>

namespace keelstone::host {

namespace {

constexpr std::size_t kDeliveredAtOnce = 4096;

UnitKey UnitKeyOf(const ParsedRun& run) { return {run.device, run.source, run.param}; }

}  // namespace

RunWork::Units RunWork::Load(const DomainSnapshot&, const std::vector<UnitKey>&) noexcept {
  return {};
}

RunScheduler::RunScheduler(RunWork& work, const Limits& limits) : work_(work), limits_(limits) {
  delivering_.reserve(std::min(limits_.runs, kDeliveredAtOnce));
  workers_.reserve(limits_.threads);
  if (limits_.threads > 0) StartThreads();
}

/// What is found depends on none of them. The one that delivers comes first: without it the
/// thread that submits has to, and may as well evaluate.
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

bool RunScheduler::IsFull() const {
  return heldRuns_ >= limits_.runs || (heldRuns_ > 0 && heldBytes_ >= limits_.bytes);
}

/// Loads what the first runs of idle units need. A unit that is idle stays so until this
/// thread, the only one that submits, hands over a run of it.
void RunScheduler::LoadIdleUnits(const std::vector<std::unique_ptr<Run>>& runs) {
  struct Wanted {
    std::vector<Run*> runs;
    std::vector<UnitKey> keys;
  };
  std::map<const DomainSnapshot*, Wanted> wanted;
  {
    const MutexLock lock(mutex_);
    if (stopped_) return;
    std::unordered_set<std::string> seen;
    for (const std::unique_ptr<Run>& run : runs) {
      AssignUnitKey(keyBuffer_, run->parsed);
      if (run->domain == nullptr || units_.contains(keyBuffer_)) continue;
      if (!seen.insert(keyBuffer_).second) continue;
      Wanted& units = wanted[run->domain];
      units.runs.push_back(run.get());
      units.keys.push_back(UnitKeyOf(run->parsed));
    }
  }
  for (auto& [domain, units] : wanted) {
    RunWork::Units loaded = work_.Load(*domain, units.keys);
    for (std::size_t i = 0; i < loaded.size(); ++i) units.runs[i]->data = std::move(loaded[i]);
  }
}

bool RunScheduler::Submit(std::vector<std::unique_ptr<Run>> runs) {
  try {
    LoadIdleUnits(runs);
  } catch (const std::bad_alloc&) {
    // They load for themselves.
  }
  const MutexLock lock(mutex_);
  for (std::unique_ptr<Run>& run : runs) {
    while (!stopped_ && IsFull()) {
      if (!HelpOut()) roomComes_.Wait(mutex_);
    }
    if (stopped_) return false;
    Enqueue(std::move(run));
  }
  HelpOut();
  return true;
}

/// Does what there is no thread for; whether anything was done.
bool RunScheduler::HelpOut() {
  if (!workers_.empty()) return false;
  bool isDone = false;
  while (PerformNext()) isDone = true;
  while (!deliverer_.joinable() && DeliverReady()) isDone = true;
  return isDone;
}

RunScheduler::Unit& RunScheduler::UnitOf(const ParsedRun& run) {
  AssignUnitKey(keyBuffer_, run);
  const auto [place, isNew] = units_.try_emplace(keyBuffer_);
  Unit& unit = place->second;
  if (isNew) {
    const auto [domain, isNewDomain] = domains_.try_emplace(run.domain);
    if (isNewDomain) domain->second.name = &domain->first;
    unit.key = &place->first;
    unit.domain = &domain->second;
  }
  return unit;
}

void RunScheduler::Enqueue(std::unique_ptr<Run> owned) {
  Run& run = *owned;
  Unit& unit = UnitOf(run.parsed);
  if (ready_.capacity() < units_.size()) ready_.reserve(2 * units_.size());
  undelivered_.push_back(std::move(owned));
  // From here on no memory is needed.
  run.sequence = nextSequence_++;
  ++queued_;
  ++heldRuns_;
  heldBytes_ += run.bytes;
  if (unit.head != nullptr) {
    unit.tail->next = &run;
    unit.tail = &run;
    return;
  }
  unit.head = unit.tail = &run;
  if (unit.state == Unit::State::kClean) MakeReadyOrForget(unit);
  if (unit.state == Unit::State::kPending) AwaitFlush(*unit.domain);
}

/// For a unit without pending rows: its next run may begin, or there is nothing to
/// remember of it.
void RunScheduler::MakeReadyOrForget(Unit& unit) {
  unit.state = Unit::State::kClean;
  if (unit.head != nullptr) {
    ready_.emplace_back(unit.head->sequence, &unit);
    std::push_heap(ready_.begin(), ready_.end(), std::greater<>());
    workComes_.NotifyOne();
  } else {
    units_.erase(units_.find(*unit.key));
  }
}

/// One more unit of the domain has pending rows and a run to go.
void RunScheduler::AwaitFlush(DomainQueue& domain) {
  ++domain.waiting;
  if (!domain.flushing && !domain.listed) ListFlushable(domain);
}

void RunScheduler::ListFlushable(DomainQueue& domain) {
  domain.listed = true;
  domain.next = nullptr;
  (firstFlushable_ == nullptr ? firstFlushable_ : lastFlushable_->next) = &domain;
  lastFlushable_ = &domain;
  workComes_.NotifyOne();
}

void RunScheduler::Work() {
  mutex_.Lock();
  while (true) {
    if (PerformNext()) continue;
    if (closed_ && queued_ == 0) break;
    workComes_.Wait(mutex_);
  }
  workComes_.NotifyAll();
  mutex_.Unlock();
}

bool RunScheduler::IsFlushDue() const {
  return isShared_ && firstFlushable_ != nullptr &&
         firstFlushable_->values >= limits_.valuesWorthAFlush;
}

bool RunScheduler::PerformNext() {
  if (!ready_.empty() && !IsFlushDue()) {
    std::pop_heap(ready_.begin(), ready_.end(), std::greater<>());
    Unit& unit = *ready_.back().second;
    ready_.pop_back();
    PerformRun(unit);
    return true;
  }
  if (firstFlushable_ == nullptr) return false;
  DomainQueue& domain = *std::exchange(firstFlushable_, firstFlushable_->next);
  domain.listed = false;
  PerformFlush(domain);
  return true;
}

void RunScheduler::PerformRun(Unit& unit) {
  if (unit.head == nullptr) {  // its runs were dropped while it stood in the queue
    MakeReadyOrForget(unit);
    return;
  }
  Run& run = *unit.head;
  unit.head = run.next;
  unit.state = Unit::State::kRunning;
  if (unit.data) run.data = std::move(unit.data);
  latestBegun_ = std::max(latestBegun_, run.sequence);
  --queued_;
  const std::size_t values = run.parsed.variables.size();
  mutex_.Unlock();
  const bool pending = work_.Evaluate(run);
  mutex_.Lock();
  run.done = true;
  if (undelivered_.front().get() == &run) deliveryComes_.NotifyOne();
  if (!pending) {
    MakeReadyOrForget(unit);
    return;
  }
  unit.state = Unit::State::kPending;
  unit.nextPending = std::exchange(unit.domain->pending, &unit);
  unit.domain->values += values;
  if (unit.head != nullptr) AwaitFlush(*unit.domain);
}

void RunScheduler::PerformFlush(DomainQueue& domain) {
  domain.flushing = true;
  domain.values = domain.waiting = 0;
  Unit* const units = std::exchange(domain.pending, nullptr);
  for (Unit* unit = units; unit != nullptr; unit = unit->nextPending) {
    unit->state = Unit::State::kFlushing;
  }
  FlushAndLoad(*domain.name, units);
  domain.flushing = false;
  for (Unit* unit = units; unit != nullptr;) {
    // A unit that is forgotten is gone.
    MakeReadyOrForget(*std::exchange(unit, unit->nextPending));
  }
  if (domain.waiting > 0 && !domain.listed) ListFlushable(domain);
}

/// Puts the units' rows on disk, and loads those that have a run to go.
void RunScheduler::FlushAndLoad(const std::string& domain, Unit* units) {
  std::vector<Unit*> next;
  std::vector<UnitKey> keys;
  const DomainSnapshot* source = nullptr;
  try {
    for (Unit* unit = units; unit != nullptr; unit = unit->nextPending) {
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
  if (stopped_) return;
  stopped_ = true;
  for (auto& [key, unit] : units_) CutAfter(latestBegun_, unit);
  while (!undelivered_.empty() && undelivered_.back()->sequence > latestBegun_) {
    heldBytes_ -= undelivered_.back()->bytes;
    undelivered_.pop_back();
    --heldRuns_;
    --queued_;
    ++dropped_;
  }
  workComes_.NotifyAll();
  deliveryComes_.NotifyAll();
  roomComes_.NotifyAll();
}

void RunScheduler::CutAfter(std::uint64_t sequence, Unit& unit) {
  if (unit.head == nullptr) return;
  if (unit.head->sequence > sequence) {
    unit.head = unit.tail = nullptr;
    if (unit.state == Unit::State::kPending) --unit.domain->waiting;
    return;
  }
  Run* last = unit.head;
  while (last->next != nullptr && last->next->sequence <= sequence) last = last->next;
  last->next = nullptr;
  unit.tail = last;
}

void RunScheduler::Drain() {
  {
    const MutexLock lock(mutex_);
    closed_ = true;
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
    if (closed_ && undelivered_.empty()) break;
    deliveryComes_.Wait(mutex_);
  }
  mutex_.Unlock();
}

/// Delivers what is ready; false when nothing is.
bool RunScheduler::DeliverReady() {
  while (!undelivered_.empty() && undelivered_.front()->done &&
         delivering_.size() < delivering_.capacity()) {
    delivering_.push_back(std::move(undelivered_.front()));
    undelivered_.pop_front();
  }
  if (delivering_.empty()) return false;
  mutex_.Unlock();
  work_.Deliver(delivering_);
  std::size_t bytes = 0;
  for (const auto& run : delivering_) bytes += run->bytes;
  const std::size_t count = delivering_.size();
  delivering_.clear();
  mutex_.Lock();
  heldRuns_ -= count;
  heldBytes_ -= bytes;
  roomComes_.NotifyAll();
  return true;
}

}  // namespace keelstone::host
