#include "bench/case_runner.h"

#include <cstdio>
#include <ctime>
#include <exception>
#include <stdexcept>

namespace keelstone::bench {

namespace {

constexpr double kLeastRoundTime = 0.04;  // s, both sides together

// Counters of a run; those of figures have their names.
constexpr const char* kOurs = "(ours)";
constexpr const char* kReference = "(reference)";

}  // namespace

std::int64_t Now(Clock clock) {
  timespec now = {};
  ::clock_gettime(clock == Clock::kProcessor ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

CaseRunner::CaseRunner(const BenchCases& cases, const BenchSettings& settings, int rounds)
    : cases_(cases), settings_(settings) {
  for (const BenchCase& one : cases_) {
    Register(one, settings.brief ? 1 : one.rounds.value_or(rounds));
  }
}

void CaseRunner::Register(const BenchCase& one, int rounds) {
  auto* const registered = benchmark::RegisterBenchmark(
      one.Id().c_str(), [this, &one](benchmark::State& state) { RunRound(one, state); });
  registered->UseManualTime()->Repetitions(rounds);
  if (one.repeat && !settings_.brief) {
    registered->MinTime(kLeastRoundTime);
  } else {
    registered->Iterations(1);
  }
}

bool CaseRunner::RunCases(const std::string& filter) {
  const std::size_t ran = benchmark::RunSpecifiedBenchmarks(this, filter);
  Finish();
  return ran > 0 && failed_.empty();
}

const CaseResult* CaseRunner::Result(const BenchCase& one) const {
  const auto found = results_.find(one.Id());
  return found == results_.end() || failed_.contains(one.Id()) ? nullptr : &found->second;
}

void CaseRunner::RunRound(const BenchCase& one, benchmark::State& state) {
  try {
    if (current_ != &one) {
      Finish();
      current_ = &one;
      rounds_ = one.make(settings_);
    }
    if (!rounds_) throw std::runtime_error("not set up");
    for (auto unused : state) {
      static_cast<void>(unused);
      Sample sample;
      state.SetIterationTime(Nanoseconds(Clock::kWall, [&] { sample = rounds_->round(); }) * 1e-9);
      state.counters[kOurs].value += sample.ours;
      state.counters[kReference].value += sample.reference;
      for (const auto& [name, value] : sample.figures) state.counters[name].value += value;
    }
    for (auto& [name, counter] : state.counters) {
      counter.flags = benchmark::Counter::kAvgIterations;
    }
  } catch (const std::exception& error) {
    Fail(one.Id(), error.what());
    state.SkipWithError(error.what());
  }
}

void CaseRunner::Finish() {
  if (rounds_ && rounds_->finish && Result(*current_) != nullptr) {
    try {
      rounds_->finish();
    } catch (const std::exception& error) {
      Fail(current_->Id(), error.what());
    }
  }
  rounds_.reset();
  current_ = nullptr;
}

void CaseRunner::Fail(const std::string& id, const std::string& why) {
  // Once, though every round may fail the same way.
  if (failed_.insert(id).second) std::fprintf(stderr, "%s: %s\n", id.c_str(), why.c_str());
}

void CaseRunner::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration) continue;
    const std::string& id = run.run_name.function_name;
    if (failed_.contains(id)) continue;
    CaseResult& result = results_[id];
    for (const auto& [name, counter] : run.counters) {
      if (name == kOurs) {
        result.ours.push_back(counter);
      } else if (name == kReference) {
        result.reference.push_back(counter);
      } else {
        result.figures[name].push_back(counter);
      }
    }
    result.ratios.push_back(result.ours.back() / result.reference.back());
  }
}

}  // namespace keelstone::bench
