#include "program/evaluate/unit_queues.h"

#include <algorithm>
#include <functional>

namespace keelstone::host {

UnitQueues::Unit& UnitQueues::UnitOf(const Run& run) {
  const auto [place, isNew] = units_.try_emplace(run.unitKey);
  Unit& unit = place->second;
  if (!isNew) return unit;
  try {
    const auto [domain, isNewDomain] = domains_.try_emplace(run.parsed.domain);
    if (isNewDomain) domain->second.name = &domain->first;
    unit.key = &place->first;
    unit.domain = &domain->second;
    if (ready_.capacity() < units_.size()) ready_.reserve(2 * units_.size());
  } catch (...) {
    units_.erase(place);
    throw;
  }
  return unit;
}

void UnitQueues::Add(Run& run) {
  Unit& unit = UnitOf(run);
  // From here on no memory is needed.
  run.sequence = nextSequence_++;
  run.next = nullptr;
  ++queued_;
  if (unit.head != nullptr) {
    unit.tail->next = &run;
    unit.tail = &run;
    return;
  }
  unit.head = unit.tail = &run;
  if (unit.state == State::kClean) MakeReadyOrForget(unit);
  if (unit.state == State::kPending) AwaitFlush(*unit.domain);
}

/// For a unit without pending rows: its next run may begin, or there is nothing to
/// remember of it.
void UnitQueues::MakeReadyOrForget(Unit& unit) {
  unit.state = State::kClean;
  if (unit.head != nullptr) {
    ready_.emplace_back(unit.head->sequence, &unit);
    std::push_heap(ready_.begin(), ready_.end(), std::greater<>());
    workComes_.NotifyOne();
  } else {
    units_.erase(units_.find(*unit.key));
  }
}

/// One more unit of the domain has pending rows and a run to go.
void UnitQueues::AwaitFlush(DomainQueue& domain) {
  ++domain.waiting;
  if (!domain.flushing && !domain.listed) ListFlushable(domain);
}

void UnitQueues::ListFlushable(DomainQueue& domain) {
  domain.listed = true;
  domain.next = nullptr;
  (firstFlushable_ == nullptr ? firstFlushable_ : lastFlushable_->next) = &domain;
  lastFlushable_ = &domain;
  workComes_.NotifyOne();
}

UnitQueues::Unit* UnitQueues::Begin(std::size_t most, Run*& runs) {
  std::pop_heap(ready_.begin(), ready_.end(), std::greater<>());
  Unit& unit = *ready_.back().second;
  ready_.pop_back();
  if (unit.head == nullptr) {  // its runs were dropped while it stood in the queue
    MakeReadyOrForget(unit);
    return nullptr;
  }
  runs = unit.head;
  Run* last = runs;
  --queued_;
  for (std::size_t i = 1; i < most && last->next != nullptr; ++i) {
    if (!ready_.empty() && ready_.front().first < last->next->sequence) break;
    last = last->next;
    --queued_;
  }
  unit.head = last->next;
  last->next = nullptr;
  unit.state = State::kRunning;
  latestBegun_ = std::max(latestBegun_, last->sequence);
  return &unit;
}

void UnitQueues::End(Unit& unit, Run* notBegun, bool isPending, std::size_t values) {
  if (notBegun != nullptr) {
    Run* last = notBegun;
    for (++queued_; last->next != nullptr; last = last->next) ++queued_;
    last->next = unit.head;
    if (unit.head == nullptr) unit.tail = last;
    unit.head = notBegun;
  }
  if (!isPending) {
    MakeReadyOrForget(unit);
    return;
  }
  unit.state = State::kPending;
  unit.nextPending = std::exchange(unit.domain->pending, &unit);
  unit.domain->values += values;
  if (unit.head != nullptr) AwaitFlush(*unit.domain);
}

UnitQueues::DomainQueue& UnitQueues::BeginFlush() {
  DomainQueue& domain = *std::exchange(firstFlushable_, firstFlushable_->next);
  domain.listed = false;
  domain.flushing = true;
  domain.values = domain.waiting = 0;
  for (Unit* unit = domain.pending; unit != nullptr; unit = unit->nextPending) {
    unit->state = State::kFlushing;
  }
  return domain;
}

void UnitQueues::EndFlush(DomainQueue& domain, Unit* units) {
  domain.flushing = false;
  for (Unit* unit = units; unit != nullptr;) {
    // A unit that is forgotten is gone.
    MakeReadyOrForget(*std::exchange(unit, unit->nextPending));
  }
  if (domain.waiting > 0 && !domain.listed) ListFlushable(domain);
}

std::uint64_t UnitQueues::DropRest() {
  for (auto& [key, unit] : units_) CutAfter(latestBegun_, unit);
  return latestBegun_;
}

void UnitQueues::CutAfter(std::uint64_t sequence, Unit& unit) {
  if (unit.head == nullptr) return;
  if (unit.head->sequence > sequence) {
    unit.head = unit.tail = nullptr;
    if (unit.state == State::kPending) --unit.domain->waiting;
    return;
  }
  Run* last = unit.head;
  while (last->next != nullptr && last->next->sequence <= sequence) last = last->next;
  last->next = nullptr;
  unit.tail = last;
}

}  // namespace keelstone::host
