#ifndef KEELSTONE_BENCH_PAIRED_REPORT_H
#define KEELSTONE_BENCH_PAIRED_REPORT_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace keelstone::bench {

/// What passes while work is done, in nanoseconds.
enum class Clock {
  kProcessor,  // of this thread: for work that waits for nothing, whatever else runs
  kWall,       // with every wait for the disk
};
std::int64_t Now(Clock clock);

template <class Work>
double Nanoseconds(Clock clock, const Work& work) {
  const std::int64_t start = Now(clock);
  work();
  return static_cast<double>(Now(clock) - start);
}

/// Times the library's work and the peer's right after each other, the one and the other
/// first in turn, and reports time an item and their ratio.
template <class Own, class Peer>
void MeasurePair(benchmark::State& state, Clock clock, std::size_t items, const Own& own,
                 const Peer& peer) {
  static bool ownFirst = false;
  ownFirst = !ownFirst;
  for (auto unused : state) {
    static_cast<void>(unused);
    double ownTime = ownFirst ? Nanoseconds(clock, own) : 0.0;
    const double peerTime = Nanoseconds(clock, peer);
    if (!ownFirst) ownTime = Nanoseconds(clock, own);
    state.SetIterationTime(ownTime * 1e-9);
    state.counters["own_ns"] = ownTime / static_cast<double>(items);
    state.counters["peer_ns"] = peerTime / static_cast<double>(items);
    state.counters["ratio"] = ownTime / peerTime;
  }
}

/// Prints one line a benchmark: medians of both times and of the ratio, and the quartiles
/// of the ratio as its spread.
class PairedReport final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  bool hasFailed() const noexcept { return hasFailed_; }

 private:
  struct Line {
    std::string name;
    std::int64_t place = 0;                               // in the order of registration
    std::map<std::string, std::vector<double>> counters;  // a value a repetition
  };

  std::vector<Line> lines_;
  bool hasFailed_ = false;
};

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_PAIRED_REPORT_H
