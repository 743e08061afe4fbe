#ifndef KEELSTONE_BENCH_BENCH_CASE_H
#define KEELSTONE_BENCH_BENCH_CASE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/work_root.h"

/// The benchmarks are cases: each puts what the library does over what it is compared with,
/// and has a goal for the ratio. To add one, write a function that makes its Rounds and
/// register it in an Add…Cases function that keelstone_bench.cpp calls:
///
///     Rounds RelearnRounds(const BenchSettings& settings) {
///       auto device = std::make_shared<const LearnedDevice>(…, settings.brief ? 10 : 1000);
///       return {.round = [device] {
///         auto instance = device->Load();                    // not timed
///         Sample sample = TimeInTurn(Clock::kProcessor, device->size(),
///                                    [&] { Evaluate(*instance); },  // the library
///                                    [&] { RoundTrip(*device); });  // what it is measured by
///         if (instance->…) throw std::runtime_error("not evaluated");
///         return sample;
///       }};
///     }
///     cases.push_back({.number = "1", .name = "relearn/double",
///                      .ours = "relearn a double", .reference = "RapidJSON parse + write",
///                      .unit = "ns/value", .goal = 0.8, .beyond = 0.6,
///                      .make = RelearnRounds});
///
/// - What is larger when it is better (rows a second) has `.better = Better::kLarger` and gives
///   its sample as Rates(TimeInTurn(…)).
/// - What compares one value with itself (time with 10,000 pending rows over time with 10,
///   bytes held over bytes of text, speed of two threads over speed of one) fills in a Sample
///   of its own; `ours` and `reference` are any two numbers of one unit.
/// - Plain figures beside the ratio (values a second) go into Sample::figures, always the
///   same ones in the same order.
/// - A round that is over in less than some milliseconds has `.repeat = true`: it is then
///   run as often as its time needs, and must leave things as it found them.
/// - A round that takes seconds has a small `.rounds`, never below kLeastRounds.
/// - With settings.brief every size is as small as the case can do its work with; nothing
///   is judged then.
namespace keelstone::bench {

inline constexpr int kLeastRounds = 9;

struct BenchSettings {
  const WorkRoot& root;  // where databases go
  std::uint64_t seed = 0;
  bool brief = false;
};

/// What one round measured, both sides in the case's unit.
struct Sample {
  double ours = 0;
  double reference = 0;
  std::vector<std::pair<std::string, double>> figures;  // "values/s": 250000
};

/// A case that is set up.
struct Rounds {
  /// One round; throws std::runtime_error when the work was not done.
  std::function<Sample()> round;
  /// After the last round, for what would disturb the rounds: looks at what came of them,
  /// and throws as well. May be empty.
  std::function<void()> finish = {};
};

enum class Better { kSmaller, kLarger };

struct BenchCase {
  std::string number;     // "11a"
  std::string name;       // "relearn/double"; with its number no other case has it
  std::string ours;       // what is divided …
  std::string reference;  // … by what, for the table
  std::string unit;       // of both sides: "ns/value"
  std::optional<double> goal = {};
  std::optional<double> beyond = {};
  Better better = Better::kSmaller;
  bool repeat = false;
  std::optional<int> rounds = {};  // else as many as the command line says
  /// Sets the case up; called when its turn comes, and what it made is dropped before the
  /// next case begins.
  std::function<Rounds(const BenchSettings&)> make;

  /// What --filter looks at.
  std::string Id() const { return number + "/" + name; }
  /// Whether a ratio is as good as `bound`.
  bool Meets(double ratio, double bound) const {
    return better == Better::kSmaller ? ratio <= bound : ratio >= bound;
  }
};

using BenchCases = std::vector<BenchCase>;

enum class Clock {
  kProcessor,  // of this thread: for work that waits for nothing, whatever else runs
  kWall,       // with every wait for the disk and for other threads
};

/// Nanoseconds by that clock.
std::int64_t Now(Clock clock);

template <class Work>
double Nanoseconds(Clock clock, const Work& work) {
  const std::int64_t start = Now(clock);
  work();
  return static_cast<double>(Now(clock) - start);
}

/// Times both right after each other, the one and the other first in turn: nanoseconds for
/// each of the `items` that one call works on.
template <class Ours, class Reference>
Sample TimeInTurn(Clock clock, std::size_t items, const Ours& ours, const Reference& reference) {
  static bool oursFirst = false;
  oursFirst = !oursFirst;
  Sample sample;
  if (oursFirst) sample.ours = Nanoseconds(clock, ours);
  sample.reference = Nanoseconds(clock, reference);
  if (!oursFirst) sample.ours = Nanoseconds(clock, ours);
  sample.ours /= static_cast<double>(items);
  sample.reference /= static_cast<double>(items);
  return sample;
}

/// Items a second from nanoseconds an item.
inline Sample Rates(Sample times) {
  times.ours = 1e9 / times.ours;
  times.reference = 1e9 / times.reference;
  return times;
}

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_BENCH_CASE_H
