#include "bench/paired_report.h"

#include <time.h>

#include <algorithm>
#include <cstdio>

namespace keelstone::bench {

namespace {

/// The value below which `part` of the sorted values lie, between neighbours linearly.
double Quantile(const std::vector<double>& sorted, double part) {
  const double place = part * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (sorted[above] - sorted[below]) * (place - static_cast<double>(below));
}

std::vector<double> Sorted(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values;
}

}  // namespace

std::int64_t Now(Clock clock) {
  timespec now = {};
  ::clock_gettime(clock == Clock::kProcessor ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

bool PairedReport::ReportContext(const Context&) { return true; }

void PairedReport::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration) continue;
    if (run.error_occurred) {
      hasFailed_ = true;
      std::fprintf(stderr, "%s: %s\n", run.run_name.function_name.c_str(),
                   run.error_message.c_str());
      continue;
    }
    const std::string& name = run.run_name.function_name;
    auto line = std::find_if(lines_.begin(), lines_.end(),
                             [&](const Line& known) { return known.name == name; });
    if (line == lines_.end()) line = lines_.insert(lines_.end(), Line{name, run.family_index, {}});
    for (const auto& [counter, value] : run.counters) line->counters[counter].push_back(value);
  }
}

void PairedReport::Finalize() {
  std::sort(lines_.begin(), lines_.end(),
            [](const Line& a, const Line& b) { return a.place < b.place; });
  std::printf("\n%-44s %10s %10s %7s  %s\n", "benchmark", "own/ns", "peer/ns", "ratio",
              "quartiles of the ratio");
  for (const Line& line : lines_) {
    const std::vector<double> ratio = Sorted(line.counters.at("ratio"));
    std::printf("%-44s %10.0f %10.0f %7.2f  %.2f to %.2f\n", line.name.c_str(),
                Quantile(Sorted(line.counters.at("own_ns")), 0.5),
                Quantile(Sorted(line.counters.at("peer_ns")), 0.5), Quantile(ratio, 0.5),
                Quantile(ratio, 0.25), Quantile(ratio, 0.75));
  }
  std::fflush(stdout);
}

}  // namespace keelstone::bench
