#ifndef KEELSTONE_BENCH_PAIRED_REPORT_H
#define KEELSTONE_BENCH_PAIRED_REPORT_H

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace keelstone::bench {

/// Seconds that `work` takes.
template <class Work>
double Seconds(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Times the library's work and the peer's right after each other, the one and the other
/// first in turn, and reports time an item and their ratio.
template <class Own, class Peer>
void MeasurePair(benchmark::State& state, std::size_t items, const Own& own, const Peer& peer) {
  static bool ownFirst = false;
  ownFirst = !ownFirst;
  for (auto unused : state) {
    static_cast<void>(unused);
    double ownTime = ownFirst ? Seconds(own) : 0.0;
    const double peerTime = Seconds(peer);
    if (!ownFirst) ownTime = Seconds(own);
    state.SetIterationTime(ownTime);
    const double perItem = 1e9 / static_cast<double>(items);
    state.counters["own_ns"] = ownTime * perItem;
    state.counters["peer_ns"] = peerTime * perItem;
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
