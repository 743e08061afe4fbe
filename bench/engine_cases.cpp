#include <malloc.h>

#include <algorithm>
#include <barrier>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/cases.h"
#include "bench/json_round_trip.h"
#include "bench/learned_device.h"

namespace keelstone::bench {

namespace {

/// Nanoseconds from when all threads begin until the last one is done; each does the work
/// of its own number.
template <class Work>
double TimeOnThreads(std::size_t threads, const Work& work) {
  std::int64_t start = 0;
  std::barrier begin(static_cast<std::ptrdiff_t>(threads),
                     [&start]() noexcept { start = Now(Clock::kWall); });
  std::vector<std::int64_t> ends(threads);
  const auto run = [&](std::size_t number) {
    begin.arrive_and_wait();
    work(number);
    ends[number] = Now(Clock::kWall);
  };
  std::vector<std::thread> others;
  for (std::size_t number = 1; number < threads; ++number) others.emplace_back(run, number);
  run(0);
  for (std::thread& other : others) other.join();
  return static_cast<double>(*std::max_element(ends.begin(), ends.end()) - start);
}

/// How many times as much two threads get done as one.
template <class Work>
double SpeedOfTwo(bool twoFirst, const Work& work) {
  const double before = twoFirst ? TimeOnThreads(2, work) : 0.0;
  const double one = TimeOnThreads(1, work);
  return 2 * one / (twoFirst ? before : TimeOnThreads(2, work));
}

constexpr std::size_t kPasses = 20;  // of a device on each thread

Rounds TwoThreadRounds(const BenchSettings& settings) {
  const LearnedDevice::Shape shape = {.dataType = KSDataDouble,
                                      .variables = settings.brief ? 20U : 100U};
  const auto device = std::make_shared<const LearnedDevice>(settings, "two-threads", shape);
  const auto twoFirst = std::make_shared<bool>(false);
  return {.round = [device, twoFirst] {
    *twoFirst = !*twoFirst;
    // An evaluation changes what was loaded: one instance for each pass of each side.
    std::vector<std::unique_ptr<KSRuleInstance>> fresh;
    for (std::size_t i = 0; i < 3 * kPasses; ++i) {
      fresh.push_back(device->Load(Moment::kHistoryOld));
    }
    std::size_t used = 0;  // by the thread that runs alone, then by the two
    const auto evaluate = [&](std::size_t number) {
      for (std::size_t pass = 0; pass < kPasses; ++pass) {
        KSRuleInstance& instance = *fresh[used + number * kPasses + pass];
        for (const VarInfo& variable : device->variables()) instance.ProcessVariable(variable);
      }
    };
    const auto take = [&](std::size_t threads) {
      const double time = TimeOnThreads(threads, evaluate);
      used += threads * kPasses;
      return time;
    };
    const double before = *twoFirst ? take(2) : 0.0;
    const double one = take(1);
    const double two = *twoFirst ? before : take(2);
    const std::vector<std::string> copies[2] = {device->histories(), device->histories()};
    Sample sample;
    sample.ours = 2 * one / two;
    sample.reference = SpeedOfTwo(*twoFirst, [&](std::size_t number) {
      for (std::size_t pass = 0; pass < kPasses; ++pass) JsonRoundTrip(copies[number]);
    });
    if (fresh.back()->GetUpdateResultData() == nullptr) throw std::runtime_error("not evaluated");
    return sample;
  }};
}

/// Bytes on the heap.
double HeapBytes() {
  const struct mallinfo2 heap = ::mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd);
}

Rounds MemoryRounds(const BenchSettings& settings, Moment moment) {
  const LearnedDevice::Shape shape = {.dataType = KSDataDouble,
                                      .variables = settings.brief ? 20U : 100U};
  const std::string domainId = moment == Moment::kHistoryOld ? "memory-old" : "memory-young";
  const auto device = std::make_shared<const LearnedDevice>(settings, domainId, shape);
  // Everything that is made once is there before the first round.
  device->Load(moment);
  double texts = 0;
  for (const std::string& history : device->histories()) {
    texts += static_cast<double>(history.size());
  }
  return {.round = [device, moment, texts] {
    const auto perVariable = static_cast<double>(device->variables().size());
    const double before = HeapBytes();
    const auto instance = device->Load(moment);
    double most = HeapBytes();
    for (const VarInfo& variable : device->variables()) {
      if (!instance->ProcessVariable(variable)) throw std::runtime_error("not evaluated");
      most = std::max(most, HeapBytes());
    }
    Sample sample;
    sample.ours = (most - before) / perVariable;
    sample.reference = texts / perVariable;
    return sample;
  }};
}

BenchCase MemoryCase(const std::string& verb, Moment moment) {
  return {
      .number = "11a",
      .name = "memory/" + verb,
      .ours = "held in a run that " + verb + "s",
      .reference = "its history texts",
      .unit = "bytes/variable",
      .goal = 3.0,
      .make = [moment](const BenchSettings& settings) { return MemoryRounds(settings, moment); }};
}

}  // namespace

void AddEngineCases(BenchCases& cases) {
  cases.push_back({.number = "8",
                   .name = "two-threads",
                   .ours = "two threads relearning / one",
                   .reference = "two threads of RapidJSON / one",
                   .unit = "times",
                   .goal = 0.92,
                   .beyond = 1.0,
                   .better = Better::kLarger,
                   .repeat = true,
                   .make = TwoThreadRounds});
  cases.push_back(MemoryCase("relearn", Moment::kHistoryOld));
  cases.push_back(MemoryCase("check", Moment::kHistoryYoung));
}

}  // namespace keelstone::bench
