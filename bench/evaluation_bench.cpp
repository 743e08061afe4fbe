#include <string>

#include "bench/benchmarks.h"
#include "bench/json_round_trip.h"
#include "bench/paired_report.h"

namespace keelstone::bench {

namespace {

void Evaluate(benchmark::State& state, const LearnedDomain& domain, const Device& device,
              Moment moment) {
  // An evaluation changes what was loaded: every pass has an instance of its own.
  const auto instance = domain.Load(device, moment);
  std::size_t processed = 0;
  std::size_t written = 0;
  MeasurePair(
      state, Clock::kProcessor, device.variables.size(),
      [&] {
        for (const VarInfo& variable : device.variables) {
          processed += instance->ProcessVariable(variable) ? 1U : 0U;
        }
      },
      [&] { written = JsonRoundTrip(device.histories); });
  if (processed != device.variables.size() || written == 0) state.SkipWithError("not evaluated");
}

void Register(const std::string& name, const LearnedDomain& domain, const Device& device,
              Moment moment, int repetitions) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [&domain, &device, moment](benchmark::State& state) {
                                 Evaluate(state, domain, device, moment);
                               })
      ->UseManualTime()
      ->Iterations(1)
      ->Repetitions(repetitions);
}

}  // namespace

void RegisterEvaluation(const LearnedDomain& domain, int repetitions) {
  for (const Device& device : domain.devices()) {
    const std::string what = "/" + domain.id() + "/" + device.name;
    Register("relearn" + what, domain, device, Moment::kHistoryOld, repetitions);
    if (device.hasRules) {
      Register("check" + what, domain, device, Moment::kHistoryYoung, repetitions);
    }
  }
}

}  // namespace keelstone::bench
