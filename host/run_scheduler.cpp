#include "host/run_scheduler.h"

#include <algorithm>
#include <map>
#include <unordered_set>
#include <utility>

namespace keelstone::host {

namespace {

UnitKey UnitKeyOf(const ParsedRun& run) { return {run.device, run.source, run.param}; }

}  // namespace

RunWork::Units RunWork::Load(const Domain&, const std::vector<UnitKey>&) noexcept { return {}; }

RunScheduler::RunScheduler(RunWork& work, const Limits& limits) : work_(work), limits_(limits) {
  const unsigned threads = std::max(1U, limits_.threads);
  workers_.reserve(threads);
  for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([this] { Work(); });
  deliverer_ = std::thread([this] { DeliverAll(); });
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
  std::map<const Domain*, Wanted> wanted;
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
  LoadIdleUnits(runs);
  const MutexLock lock(mutex_);
  for (std::unique_ptr<Run>& run : runs) {
    while (!stopped_ && IsFull()) roomComes_.Wait(mutex_);
    if (stopped_) return false;
    Enqueue(std::move(run));
  }
  return true;
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
  run.sequence = nextSequence_++;
  ++queued_;
  ++heldRuns_;
  heldBytes_ += run.bytes;
  undelivered_.push_back(std::move(owned));
  Unit& unit = UnitOf(run.parsed);
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
    ready_.emplace(unit.head->sequence, &unit);
    workComes_.NotifyOne();
  } else {
    units_.erase(units_.find(*unit.key));
  }
}

/// One more unit of the domain has pending rows and a run to go.
void RunScheduler::AwaitFlush(DomainQueue& domain) {
  ++domain.waiting;
  if (domain.flushing || domain.listed) return;
  domain.listed = true;
  flushable_.push_back(&domain);
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
  return limits_.threads > 1 && !flushable_.empty() &&
         flushable_.front()->values >= limits_.valuesWorthAFlush;
}

bool RunScheduler::PerformNext() {
  if (!ready_.empty() && !IsFlushDue()) {
    Unit& unit = *ready_.top().second;
    ready_.pop();
    PerformRun(unit);
    return true;
  }
  if (!flushable_.empty()) {
    DomainQueue& domain = *flushable_.front();
    flushable_.pop_front();
    domain.listed = false;
    PerformFlush(domain);
    return true;
  }
  return false;
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
  unit.domain->pending.push_back(&unit);
  unit.domain->values += values;
  if (unit.head != nullptr) AwaitFlush(*unit.domain);
}

void RunScheduler::PerformFlush(DomainQueue& domain) {
  domain.flushing = true;
  domain.values = domain.waiting = 0;
  const std::vector<Unit*> units = std::exchange(domain.pending, {});
  std::vector<Unit*> next;
  std::vector<UnitKey> keys;
  const Domain* source = nullptr;
  for (Unit* unit : units) {
    unit->state = Unit::State::kFlushing;
    if (unit->head == nullptr || unit->head->domain == nullptr) continue;
    source = unit->head->domain;
    next.push_back(unit);
    keys.push_back(UnitKeyOf(unit->head->parsed));
  }
  const std::string& name = *domain.name;
  mutex_.Unlock();
  work_.Flush(name);
  RunWork::Units loaded;
  if (source != nullptr) loaded = work_.Load(*source, keys);
  mutex_.Lock();
  for (std::size_t i = 0; i < loaded.size(); ++i) next[i]->data = std::move(loaded[i]);
  domain.flushing = false;
  for (Unit* unit : units) MakeReadyOrForget(*unit);
  if (domain.waiting > 0 && !domain.listed) {
    domain.listed = true;
    flushable_.push_back(&domain);
    workComes_.NotifyOne();
  }
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
  std::vector<std::unique_ptr<Run>> runs;
  mutex_.Lock();
  while (true) {
    while (!undelivered_.empty() && undelivered_.front()->done) {
      runs.push_back(std::move(undelivered_.front()));
      undelivered_.pop_front();
    }
    if (runs.empty()) {
      if (closed_ && undelivered_.empty()) break;
      deliveryComes_.Wait(mutex_);
      continue;
    }
    mutex_.Unlock();
    work_.Deliver(runs);
    std::size_t bytes = 0;
    for (const auto& run : runs) bytes += run->bytes;
    const std::size_t count = runs.size();
    runs.clear();
    mutex_.Lock();
    heldRuns_ -= count;
    heldBytes_ -= bytes;
    roomComes_.NotifyAll();
  }
  mutex_.Unlock();
}

}  // namespace keelstone::host
