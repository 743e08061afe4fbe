#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/cases.h"
#include "bench/program_input.h"
#include "bench/program_root.h"
#include "bench/stored_fleet.h"

namespace keelstone::bench {

namespace {

using Arguments = std::vector<std::string>;

const Arguments kOneThread = {"--threads", "1"};
const Arguments kTwoThreads = {"--threads", "2"};
const Arguments kAllCores = {};

Arguments With(Arguments arguments, const std::string& option, const std::string& value) {
  arguments.push_back(option);
  arguments.push_back(value);
  return arguments;
}

/// A fleet that is checked: runs 30 s apart, values as learned.
class CheckedFleet {
 public:
  CheckedFleet(const BenchSettings& settings, const std::string& domain)
      : root_(settings.root, "state"), domain_(domain) {
    const Fleet fleet{settings.brief ? 4U : 500U};
    const std::size_t runs = settings.brief ? 2 : 40;
    values_ = static_cast<double>(fleet.rows() * runs);
    StoredProgram stored(root_, domain_, fleet);
    std::string lines;
    for (std::size_t run = 0; run < runs; ++run) {
      for (std::size_t device = 0; device < fleet.devices; ++device) {
        AppendRun(lines, FleetTime(fleet.points) + 30 * static_cast<std::int32_t>(run + 1), device,
                  [](std::size_t) { return std::to_string(kFleetValue); });
      }
    }
    WriteFile(root_.File(domain_ + ".jsonl"), lines);
  }

  ProgramRun Check(Arguments more) const {
    more.emplace_back("--judge-repeated");
    return root_.Evaluate(domain_, domain_ + ".jsonl", more);
  }
  double values() const { return values_; }

 private:
  ProgramRoot root_;
  std::string domain_;
  double values_ = 0;
};

/// A fleet in memory that is checked again and again against one that is read for each run.
Rounds CheckRounds(const BenchSettings& settings) {
  const auto fleet = std::make_shared<CheckedFleet>(settings, "checked");
  return {.round = [=] {
    const ProgramRun ours = fleet->Check(kOneThread);
    const ProgramRun reference = fleet->Check(With(kOneThread, "--memory", "0"));
    return Sample{.ours = ours.processorSeconds * 1e9 / fleet->values(),
                  .reference = reference.processorSeconds * 1e9 / fleet->values(),
                  .figures = {{"MB in use by the program", ours.peakBytes / 1e6}}};
  }};
}

Rounds CheckThreadRounds(const BenchSettings& settings) {
  const auto fleet = std::make_shared<CheckedFleet>(settings, "checked-by-two");
  return {.round = [=] {
    const ProgramRun two = fleet->Check(kTwoThreads);
    const ProgramRun one = fleet->Check(kOneThread);
    return Sample{.ours = fleet->values() / two.seconds,
                  .reference = fleet->values() / one.seconds,
                  .figures = {{"processor time of two / of one",
                               two.processorSeconds / one.processorSeconds}}};
  }};
}

/// The stream with its unit in memory and with one that is written and read between two lines,
/// of which there are fewer: it takes so much longer.
Rounds StreamRounds(const BenchSettings& settings) {
  const std::array<std::size_t, 2> polls = {settings.brief ? 4U : 2000U, settings.brief ? 2U : 10U};
  const ProgramRoot root(settings.root, "state");
  for (const std::size_t count : polls) {
    WriteStreamInput(root.File(std::to_string(count) + ".jsonl"), count, settings.seed);
  }
  return {.round = [=] {
    const auto perValue = [&](std::size_t count, const Arguments& more) {
      std::filesystem::remove_all(root.DomainFolder("stream"));
      const ProgramRun run = root.Evaluate("stream", std::to_string(count) + ".jsonl", more);
      if (root.Histories("stream") != kStreamInterfaces) throw std::runtime_error("not learned");
      return run.seconds * 1e9 / static_cast<double>(kStreamInterfaces * count);
    };
    const double ours = perValue(polls[0], kAllCores);
    const double reference = perValue(polls[1], {"--memory", "0"});
    return Sample{.ours = ours, .reference = reference, .figures = {{"values/s", 1e9 / ours}}};
  }};
}

/// A fleet that is learned from nothing.
class LearnedFleet {
 public:
  LearnedFleet(const BenchSettings& settings, const std::string& domain)
      : root_(settings.root, "state"), domain_(domain), devices_(settings.brief ? 5 : 1000) {
    const std::size_t runs = settings.brief ? 2 : 12;
    values_ = static_cast<double>(devices_ * kVariables * runs);
    WriteLearningInput(root_.File(domain_ + ".jsonl"), devices_, runs, settings.seed);
  }

  ProgramRun Learn(const Arguments& more) const {
    std::filesystem::remove_all(root_.DomainFolder(domain_));
    const ProgramRun run = root_.Evaluate(domain_, domain_ + ".jsonl", more);
    if (root_.Histories(domain_) != static_cast<std::int64_t>(devices_ * kVariables)) {
      throw std::runtime_error("not learned");
    }
    return run;
  }
  double values() const { return values_; }

 private:
  ProgramRoot root_;
  std::string domain_;
  std::size_t devices_;
  double values_ = 0;
};

Rounds LearningRounds(const BenchSettings& settings) {
  const auto fleet = std::make_shared<LearnedFleet>(settings, "learned");
  return {.round = [=] {
    const ProgramRun ours = fleet->Learn(kOneThread);
    const ProgramRun reference = fleet->Learn(With(kOneThread, "--memory", "0"));
    return Sample{.ours = ours.processorSeconds * 1e9 / fleet->values(),
                  .reference = reference.processorSeconds * 1e9 / fleet->values(),
                  .figures = {}};
  }};
}

Rounds LearningThreadRounds(const BenchSettings& settings) {
  const auto fleet = std::make_shared<LearnedFleet>(settings, "learned-by-all");
  return {.round = [=] {
    const ProgramRun all = fleet->Learn(kAllCores);
    const ProgramRun one = fleet->Learn(kOneThread);
    return Sample{.ours = fleet->values() / all.seconds,
                  .reference = fleet->values() / one.seconds,
                  .figures = {{"processor time of all / of one",
                               all.processorSeconds / one.processorSeconds}}};
  }};
}

/// Runs of devices in random order, of which a tenth fits into memory.
Rounds EvictionRounds(const BenchSettings& settings) {
  const Fleet fleet{settings.brief ? 10U : 1000U};
  const std::size_t runs = settings.brief ? 20 : 3000;
  const auto values = static_cast<double>(runs * kVariables);
  const ProgramRoot root(settings.root, "state");
  StoredProgram stored(root, "evicted", fleet);
  std::mt19937_64 random(settings.seed);
  std::string lines;
  for (std::size_t run = 0; run < runs; ++run) {
    AppendRun(lines, FleetTime(fleet.points) + 1 + static_cast<std::int32_t>(run),
              random() % fleet.devices, [](std::size_t) { return std::to_string(kFleetValue); });
  }
  WriteFile(root.File("evicted.jsonl"), lines);
  const std::string budget = std::to_string(root.Bytes("evicted") / 10);
  return {.round = [=] {
    const auto cost = [&](const std::string& memory) {
      const Arguments more = With(kOneThread, "--memory", memory);
      return root.Evaluate("evicted", "evicted.jsonl", more).processorSeconds * 1e9 / values;
    };
    return Sample{.ours = cost(budget), .reference = cost("0"), .figures = {}};
  }};
}

}  // namespace

void AddStateCases(BenchCases& cases) {
  cases.push_back({.number = "12",
                   .name = "state/check",
                   .ours = "500 devices x 100 variables x 40 runs, 30 s apart, in memory",
                   .reference = "read for each run (--memory 0)",
                   .unit = "ns/value",
                   .goal = 0.3,
                   .rounds = kLeastRounds,
                   .make = CheckRounds});
  cases.push_back({.number = "13",
                   .name = "state/check-by-two",
                   .ours = "the same by two threads",
                   .reference = "by one",
                   .unit = "values/s",
                   .goal = 1.75,
                   .beyond = 1.9,
                   .better = Better::kLarger,
                   .rounds = kLeastRounds,
                   .make = CheckThreadRounds});
  cases.push_back({.number = "14",
                   .name = "state/stream",
                   .ours = "one device x 48 lines a poll, its unit in memory",
                   .reference = "written and read between two lines (--memory 0)",
                   .unit = "ns/value",
                   .goal = 0.01,
                   .rounds = kLeastRounds,
                   .make = StreamRounds});
  cases.push_back({.number = "18",
                   .name = "state/learning",
                   .ours = "1,000 devices x 100 variables x 12 runs learned in memory",
                   .reference = "read and written for each run (--memory 0)",
                   .unit = "ns/value",
                   .goal = 0.5,
                   .beyond = 0.3,
                   .rounds = kLeastRounds,
                   .make = LearningRounds});
  cases.push_back({.number = "19",
                   .name = "state/learning-by-all",
                   .ours = "the same by all cores",
                   .reference = "by one thread",
                   .unit = "values/s",
                   .goal = 1.6,
                   .beyond = 1.8,
                   .better = Better::kLarger,
                   .rounds = kLeastRounds,
                   .make = LearningThreadRounds});
  cases.push_back({.number = "21",
                   .name = "state/evicted",
                   .ours = "1,000 devices in random order, a tenth of them in memory",
                   .reference = "read for each run (--memory 0)",
                   .unit = "ns/value",
                   .goal = 1.1,
                   .beyond = 1.0,
                   .rounds = kLeastRounds,
                   .make = EvictionRounds});
}

}  // namespace keelstone::bench
