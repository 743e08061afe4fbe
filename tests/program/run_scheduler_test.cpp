#include "program/evaluate/run_scheduler.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "program/domain_registry.h"

namespace keelstone::host {
namespace {

using Runs = std::vector<std::unique_ptr<Run>>;

std::unique_ptr<Run> MakeRun(const std::string& domain, const std::string& device,
                             std::int32_t number) {
  auto run = std::make_unique<Run>();
  run->parsed.domain = domain;
  run->parsed.device = device;
  run->parsed.time = number;
  run->bytes = 10;
  run->parsed.variables.resize(1);
  AssignUnitKey(run->unitKey, run->parsed);
  static const std::map<std::string, DomainSnapshot> kDomains = {
      {"d0", {"d0", nullptr}}, {"d1", {"d1", nullptr}}, {"d2", {"d2", nullptr}}};
  const auto known = kDomains.find(domain);
  if (known != kDomains.end()) run->domain = &known->second;
  return run;
}

/// Submits runs in batches of so many; false when not all of them are taken.
bool Submit(RunScheduler& scheduler, Runs runs, std::size_t atOnce = 100) {
  for (std::size_t at = 0; at < runs.size(); at += atOnce) {
    auto batch = std::make_unique<InputBatch>();
    for (std::size_t i = at; i < std::min(at + atOnce, runs.size()); ++i) {
      batch->text.append(runs[i]->bytes, 'x');
      batch->lines.emplace_back().run = std::move(runs[i]);
    }
    if (!scheduler.Submit(std::move(batch))) return false;
  }
  return true;
}

/// Stands in for the engine and its write-behind cache: it checks the promises of the
/// scheduler against what it is asked to do.
class CheckingWork : public RunWork {
 public:
  void Read(InputBatch& batch) noexcept override {
    for (InputLine& line : batch.lines) {
      EXPECT_EQ(line.state, InputLine::State::kText) << "read twice";
      line.state = line.run->parsed.device.empty() && line.run->parsed.domain.empty()
                       ? InputLine::State::kFault
                       : InputLine::State::kRun;
    }
  }

  bool Admit(InputBatch& batch) noexcept override {
    EXPECT_FALSE(isAdmitting_.exchange(true)) << "two admissions at once";
    bool goesOn = true;
    for (const InputLine& line : batch.lines) {
      EXPECT_NE(line.state, InputLine::State::kText) << "not read";
      EXPECT_LT(admitted_, line.run->parsed.time) << "out of order";
      admitted_ = static_cast<std::int32_t>(line.run->parsed.time);
      goesOn = goesOn && admitted_ != lastAdmitted;
    }
    isAdmitting_ = false;
    return goesOn;
  }

  void GiveBack(std::unique_ptr<InputBatch> batch) noexcept override { batch.reset(); }

  bool Evaluate(Run& run) noexcept override {
    const std::string unit = run.parsed.domain + "/" + run.parsed.device;
    {
      const MutexLock lock(mutex_);
      if (run.data) {
        // What was loaded ahead is what the run before has left.
        EXPECT_EQ(run.data->histories[""]["last"], std::to_string(last_[unit]));
        ++loadedAhead_;
      }
      EXPECT_TRUE(running_.insert(unit).second) << "two runs of one unit at once";
      EXPECT_FALSE(pending_[run.parsed.domain].contains(unit)) << "rows are pending";
      EXPECT_LT(last_[unit], run.parsed.time) << "out of order";
      last_[unit] = static_cast<int>(run.parsed.time);
      ++evaluated_;
    }
    if (duringEvaluation) duringEvaluation(run);
    const MutexLock lock(mutex_);
    running_.erase(unit);
    const bool hasRows = run.parsed.time % 3 != 0;
    if (hasRows) pending_[run.parsed.domain].insert(unit);
    return hasRows;
  }

  void Flush(const std::string& domain) noexcept override {
    std::set<std::string> taken;
    {
      const MutexLock lock(mutex_);
      EXPECT_TRUE(flushing_.insert(domain).second) << "two flushes of one domain at once";
      taken = pending_[domain];
      ++flushes_;
    }
    if (duringFlush) duringFlush();
    const MutexLock lock(mutex_);
    for (const std::string& unit : taken) pending_[domain].erase(unit);
    flushing_.erase(domain);
  }

  Units Load(const DomainSnapshot& domain, const std::vector<UnitKey>& keys) noexcept override {
    const MutexLock lock(mutex_);
    Units units;
    for (const UnitKey& key : keys) {
      const std::string unit = domain.id + "/" + key.deviceName;
      EXPECT_FALSE(running_.contains(unit)) << "loaded while it is evaluated";
      EXPECT_FALSE(pending_[domain.id].contains(unit)) << "loaded while rows are pending";
      units.push_back(std::make_unique<UnitData>());
      units.back()->histories[""]["last"] = std::to_string(last_[unit]);
    }
    return units;
  }

  void Deliver(Runs& runs) noexcept override {
    for (const auto& run : runs) delivered.push_back(static_cast<int>(run->parsed.time));
    if (duringDelivery) duringDelivery();
  }

  int evaluated() {
    const MutexLock lock(mutex_);
    return evaluated_;
  }
  int flushes() {
    const MutexLock lock(mutex_);
    return flushes_;
  }
  int loadedAhead() {
    const MutexLock lock(mutex_);
    return loadedAhead_;
  }

  std::function<void(const Run&)> duringEvaluation;
  std::function<void()> duringFlush;
  std::function<void()> duringDelivery;
  std::vector<std::int32_t> delivered;
  std::int32_t lastAdmitted = 0;  // nothing behind the batch with this run is

 private:
  std::atomic<bool> isAdmitting_ = false;
  std::int32_t admitted_ = 0;
  Mutex mutex_;
  std::set<std::string> running_ KS_GUARDED_BY(mutex_);
  std::set<std::string> flushing_ KS_GUARDED_BY(mutex_);
  std::map<std::string, std::set<std::string>> pending_ KS_GUARDED_BY(mutex_);
  std::map<std::string, std::int32_t> last_ KS_GUARDED_BY(mutex_);
  int evaluated_ KS_GUARDED_BY(mutex_) = 0;
  int flushes_ KS_GUARDED_BY(mutex_) = 0;
  int loadedAhead_ KS_GUARDED_BY(mutex_) = 0;
};

std::vector<std::int32_t> UpTo(std::int32_t count) {
  std::vector<std::int32_t> numbers;
  for (std::int32_t i = 1; i <= count; ++i) numbers.push_back(i);
  return numbers;
}

Runs RandomRuns(std::mt19937& random, std::int32_t count) {
  Runs runs;
  for (std::int32_t i = 1; i <= count; ++i) {
    // A few units have most of the runs.
    const auto unit = std::min(random() % 40, random() % 40);
    runs.push_back(
        MakeRun(std::string("d").append(std::to_string(random() % 3)), std::to_string(unit), i));
  }
  return runs;
}

TEST(RunScheduler, KeepsUnitsInOrderAndFlushedForAnyNumberOfThreads) {
  for (const unsigned threads : {0U, 1U, 2U, 8U}) {
    for (const std::size_t window : {1U, 7U, 4096U}) {
      std::mt19937 random(threads * 100 + static_cast<unsigned>(window));
      CheckingWork work;
      RunScheduler scheduler(
          work,
          {.threads = threads, .runs = window, .valuesWorthAFlush = threads == 8 ? 5U : 6000U});
      const std::size_t atOnce = 1 + random() % 200;
      ASSERT_TRUE(Submit(scheduler, RandomRuns(random, 3000), atOnce));
      scheduler.Finish();
      EXPECT_EQ(work.delivered, UpTo(3000));
      EXPECT_GT(work.loadedAhead(), 0);
    }
  }
}

TEST(RunScheduler, OneFlushServesAllUnitsOfADomain) {
  constexpr std::int32_t kUnits = 100;
  CheckingWork work;
  std::latch submitted(1);
  work.duringEvaluation = [&](const auto&) { submitted.wait(); };
  RunScheduler scheduler(work, {.threads = 1});
  Runs runs;
  for (std::int32_t i = 0; i < 3 * kUnits; ++i) {
    runs.push_back(MakeRun("d", std::to_string(i % kUnits), 3 * i + 1));  // all leave rows
  }
  ASSERT_TRUE(Submit(scheduler, std::move(runs)));
  submitted.count_down();
  scheduler.Finish();
  EXPECT_EQ(work.flushes(), 2);  // none is needed after the last round
}

TEST(RunScheduler, FlushesManyValuesBeforeNothingElseIsLeftToDo) {
  CheckingWork work;
  int evaluatedAtFirst = 0;
  work.duringFlush = [&] {
    if (evaluatedAtFirst == 0) evaluatedAtFirst = work.evaluated();
  };
  RunScheduler scheduler(work, {.threads = 2, .valuesWorthAFlush = 20});
  Runs runs;
  for (std::int32_t i = 1; i <= 1000; ++i) {
    runs.push_back(MakeRun("d0", std::to_string(i % 500), i));
  }
  ASSERT_TRUE(Submit(scheduler, std::move(runs), 1000));
  scheduler.Finish();
  EXPECT_EQ(work.delivered, UpTo(1000));
  EXPECT_LT(evaluatedAtFirst, 250);
}

TEST(RunScheduler, EvaluatesOtherUnitsDuringAFlush) {
  CheckingWork work;
  std::latch flushBegan(1);
  std::latch otherDone(1);
  work.duringFlush = [&] {
    flushBegan.count_down();
    otherDone.wait();  // for ever, if the flush held up the rest
  };
  work.duringEvaluation = [&](const auto& run) {
    if (run.parsed.device == "other") otherDone.count_down();
  };
  RunScheduler scheduler(work, {.threads = 2});
  Runs first;
  first.push_back(MakeRun("d", "a", 1));
  first.push_back(MakeRun("d", "a", 2));
  ASSERT_TRUE(Submit(scheduler, std::move(first)));
  flushBegan.wait();
  Runs second;
  second.push_back(MakeRun("d", "other", 3));
  ASSERT_TRUE(Submit(scheduler, std::move(second)));
  scheduler.Finish();
  EXPECT_EQ(work.delivered, UpTo(3));
}

TEST(RunScheduler, HoldsNoMoreRunsThanItMay) {
  CheckingWork work;
  std::atomic<int> held = 0;
  std::atomic<int> most = 0;
  work.duringDelivery = [&] { held = 0; };
  work.duringEvaluation = [&](const auto&) { most = std::max(most.load(), ++held); };
  RunScheduler scheduler(work, {.threads = 1, .runs = 1000, .bytes = 50});  // five runs
  std::mt19937 random(1);
  ASSERT_TRUE(Submit(scheduler, RandomRuns(random, 200), 1));
  scheduler.Finish();
  EXPECT_EQ(work.delivered, UpTo(200));
  EXPECT_LE(most, 10);  // five held when five others are just handed out
}

TEST(RunScheduler, WhatIsEvaluatedAfterAStopIsTheBeginningOfTheInput) {
  for (unsigned seed = 0; seed < 30; ++seed) {
    std::mt19937 random(seed);
    CheckingWork work;
    std::unique_ptr<RunScheduler> scheduler;
    std::latch made(1);
    const auto stopAt = static_cast<std::int32_t>(random() % 500);
    work.duringEvaluation = [&](const auto& run) {
      made.wait();
      if (run.parsed.time == stopAt) scheduler->Stop();
    };
    scheduler = std::make_unique<RunScheduler>(work, RunScheduler::Limits{.threads = 1 + seed % 4});
    made.count_down();
    const bool taken = Submit(*scheduler, RandomRuns(random, 800), 1 + seed * 7);
    scheduler->Finish();
    EXPECT_EQ(work.delivered, UpTo(work.evaluated()));
    if (taken) {
      EXPECT_EQ(work.evaluated() + static_cast<int>(scheduler->dropped()), 800);
    }
  }
}

TEST(RunScheduler, EvaluatesNothingBehindARefusedBatchAndWhatIsNoRun) {
  for (const unsigned threads : {0U, 1U, 8U}) {
    CheckingWork work;
    work.lastAdmitted = 205;
    RunScheduler scheduler(work, {.threads = threads});
    Runs runs;
    for (std::int32_t i = 1; i <= 1000; ++i) {
      const bool isRun = i % 7 != 0;
      runs.push_back(MakeRun(isRun ? "d0" : "", isRun ? std::to_string(i % 9) : "", i));
    }
    Submit(scheduler, std::move(runs), 10);
    scheduler.AwaitAdmitted();
    auto more = std::make_unique<InputBatch>();
    more->lines.emplace_back().run = MakeRun("d0", "1", 2000);
    EXPECT_FALSE(scheduler.Submit(std::move(more)));
    scheduler.Finish();
    std::vector<std::int32_t> expected = UpTo(210);
    std::erase_if(expected, [](std::int32_t number) { return number % 7 == 0; });
    EXPECT_EQ(work.delivered, expected);
    EXPECT_EQ(scheduler.dropped(), 0U);
  }
}

TEST(RunScheduler, TellsUnitsApartWhateverTheirNamesHold) {
  CheckingWork work;
  std::latch both(2);
  work.duringEvaluation = [&](const auto&) { both.arrive_and_wait(); };  // both run at once
  RunScheduler scheduler(work, {.threads = 2});
  Runs runs;
  runs.push_back(MakeRun("1:a", "", 1));
  runs.push_back(MakeRun("", "1:a", 2));
  ASSERT_TRUE(Submit(scheduler, std::move(runs)));
  scheduler.Finish();
  EXPECT_EQ(work.delivered, UpTo(2));
}

}  // namespace
}  // namespace keelstone::host
