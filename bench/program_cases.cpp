#include <memory>
#include <string>
#include <string_view>

#include "bench/cases.h"
#include "bench/program_input.h"
#include "bench/program_root.h"
#include "bench/stored_fleet.h"

namespace keelstone::bench {

namespace {

/// The same 10,000 variables run again with few and with many others stored.
Rounds GrowthRounds(const BenchSettings& settings) {
  const std::size_t devices = settings.brief ? 2 : 100;
  const ProgramRoot root(settings.root);
  const auto few = std::make_shared<StoredProgram>(root, "stored-few", Fleet{devices});
  const auto many =
      std::make_shared<StoredProgram>(root, "stored-many", Fleet{settings.brief ? 4U : 10'000U});
  return {.round = [=] {
    const auto values = static_cast<double>(devices * kVariables);
    const ProgramRun ours = many->Run(devices);
    const ProgramRun reference = few->Run(devices);
    return Sample{
        .ours = ours.seconds * 1e9 / values,
        .reference = reference.seconds * 1e9 / values,
        .figures = {
            {"processor ns/value among 1,000,000", ours.processorSeconds * 1e9 / values},
            {"processor ns/value among 10,000", reference.processorSeconds * 1e9 / values}}};
  }};
}

/// What the program needs at most for each row that waits to be written: a run of all
/// devices beside a run of one.
Rounds MemoryRounds(const BenchSettings& settings) {
  const Fleet fleet{settings.brief ? 4U : 1000U};
  const ProgramRoot root(settings.root);
  root.NeverFlushByItself();
  const auto program = std::make_shared<StoredProgram>(root, "waiting", fleet);
  const std::size_t texts = FleetHistory(fleet.points, kFleetValue).size() + FleetDevice(0).size() +
                            FleetInterface(0).size() + FleetVariable(0).size() +
                            std::string_view(kFleetSource).size();
  return {.round = [=] {
    const double one = program->Run(1).peakBytes;
    const double all = program->Run(program->devices()).peakBytes;
    const auto rows = static_cast<double>((program->devices() - 1) * kVariables);
    return Sample{.ours = (all - one) / rows,
                  .reference = static_cast<double>(texts),
                  .figures = {{"MB in use by the program", all / 1e6}}};
  }};
}

}  // namespace

void AddProgramCases(BenchCases& cases) {
  cases.push_back({.number = "10",
                   .name = "program/growth",
                   .ours = "a run of 10,000 variables among 1,000,000 stored",
                   .reference = "among 10,000",
                   .unit = "ns/value",
                   .goal = 1.5,
                   .rounds = kLeastRounds,
                   .make = GrowthRounds});
  cases.push_back({.number = "11b",
                   .name = "program/memory",
                   .ours = "peak memory of the program a waiting row",
                   .reference = "the row's texts",
                   .unit = "bytes",
                   .goal = 3.0,
                   .rounds = kLeastRounds,
                   .make = MemoryRounds});
}

}  // namespace keelstone::bench
