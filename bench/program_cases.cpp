#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/cases.h"
#include "bench/program_run.h"
#include "bench/stored_fleet.h"
#include "keelstone/cppsqlite3.h"
#include "keelstone/filesystem.h"

namespace keelstone::bench {

namespace {

constexpr std::size_t kVariables = 100;  // a device

/// The value of a variable in run `run` as JSON: one in five each stays as it is, moves in
/// a range, is a word, is a real that moves, and is one of three.
std::string LearningValue(std::size_t device, std::size_t variable, std::mt19937_64& random) {
  switch (variable % 5) {
    case 0:
      return std::to_string(device);
    case 1:
      return std::to_string(100 + random() % 50);
    case 2:
      return "\"up\"";
    case 3:
      return std::to_string(20 + random() % 5) + "." + std::to_string(100 + random() % 900);
    default:
      return std::array{"1.5", "2.5", "3.5"}[random() % 3];
  }
}

/// One line of input: a run on one device, `value` giving each variable's value.
template <class Value>
void AppendRun(std::string& lines, std::int32_t time, std::size_t device, const Value& value) {
  lines += "{\"time\":" + std::to_string(time) + ",\"device\":\"" + FleetDevice(device) +
           "\",\"source\":\"" + kFleetSource + "\",\"variables\":[";
  for (std::size_t i = 0; i < kVariables; ++i) {
    lines += (i > 0 ? ",{\"name\":\"" : "{\"name\":\"") + FleetVariable(i) + "\",\"interface\":\"" +
             FleetInterface(i) + "\",\"value\":" + value(i) + '}';
  }
  lines += "]}\n";
}

void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw std::runtime_error(path.string() + " cannot be written");
}

/// `runs` runs of each device from nothing on, so that all of them learn.
void WriteLearningInput(const std::filesystem::path& path, std::size_t devices, std::size_t runs,
                        std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string lines;
  for (std::size_t run = 0; run < runs; ++run) {
    for (std::size_t device = 0; device < devices; ++device) {
      AppendRun(lines, FleetTime(run), device,
                [&](std::size_t i) { return LearningValue(device, i, random); });
    }
  }
  WriteFile(path, lines);
}

/// One run of `devices` of the fleet's devices, evenly spread, whose values are as learned.
void WriteFleetInput(const std::filesystem::path& path, const Fleet& fleet, std::size_t devices,
                     std::int32_t time) {
  std::string lines;
  for (std::size_t i = 0; i < devices; ++i) {
    AppendRun(lines, time, i * (fleet.devices / devices),
              [](std::size_t) { return std::to_string(kFleetValue); });
  }
  WriteFile(path, lines);
}

/// A root folder that the program works in, with the settings that it has without any.
class ProgramRoot {
 public:
  explicit ProgramRoot(const WorkRoot& root) : path_(root.path() / "program") {
    std::filesystem::create_directories(path_);
  }

  std::filesystem::path File(const std::string& name) const { return path_ / name; }
  std::filesystem::path DomainFolder(const std::string& domain) const {
    return path_ / "data" / "FSParserData" / domain;
  }
  ProgramRun Evaluate(const std::string& domain, const std::string& input,
                      const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"evaluate", "--enroll",          "--quiet",
                                          "--root",   path_.string(),      "--domain",
                                          domain,     File(input).string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunKeelstone(arguments, File(domain + ".out"));
  }
  std::int64_t Histories(const std::string& domain) const {
    CppSQLite3DB db;
    db.open((DomainFolder(domain) / "KSObjectHistory.db").string());
    auto statement = db.compileStatement("select count(*) from KSObjectHistory");
    return statement.execQuery().getInt64Field(0);
  }
  /// Keeps rows waiting until the program needs them on disk.
  void NeverFlushByItself() const {
    std::filesystem::create_directories(File("conf"));
    WriteFile(File("conf/frontserver.ini"), "[Keelstone]\nCacheSize=1000000000\n");
  }

 private:
  std::filesystem::path path_;
};

/// Learns a fleet from nothing with all cores and with one thread.
Rounds LearningRounds(const BenchSettings& settings) {
  const std::size_t devices = settings.brief ? 5 : 1000;
  const std::size_t runs = settings.brief ? 2 : 12;
  const auto values = static_cast<double>(devices * kVariables * runs);
  const ProgramRoot root(settings.root);
  WriteLearningInput(root.File("learning.jsonl"), devices, runs, settings.seed);
  return {.round = [=] {
    std::array<ProgramRun, 2> took;
    for (const std::size_t threads : {1U, 0U}) {  // 0: the cores
      std::filesystem::remove_all(root.DomainFolder("learning"));
      const std::vector<std::string> limit = {"--threads", std::to_string(threads)};
      took[threads] =
          root.Evaluate("learning", "learning.jsonl", threads != 0 ? limit : decltype(limit){});
      if (root.Histories("learning") != static_cast<std::int64_t>(devices * kVariables)) {
        throw std::runtime_error("not learned");
      }
    }
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    return Sample{
        .ours = took[0].seconds * 1e9 / values,
        .reference = took[1].seconds * 1e9 / values,
        .figures = {{"values/s a core, by its processor time", values / took[1].processorSeconds},
                    {"values/s a core, by the clock", values / took[0].seconds / cores}}};
  }};
}

/// A domain with a stored fleet, of which the same number of devices runs again and again.
class StoredProgram {
 public:
  StoredProgram(const ProgramRoot& root, std::string domain, const Fleet& fleet)
      : root_(root), domain_(std::move(domain)), fleet_(fleet), next_(fleet.points) {
    StoreFleet(root_.DomainFolder(domain_), fleet_);
    Run(1);  // makes the other databases, and defines the variables
  }

  ProgramRun Run(std::size_t devices) {
    WriteFleetInput(root_.File("run.jsonl"), fleet_, devices, FleetTime(next_++));
    return root_.Evaluate(domain_, "run.jsonl");
  }
  std::size_t devices() const noexcept { return fleet_.devices; }

 private:
  ProgramRoot root_;
  std::string domain_;
  Fleet fleet_;
  std::size_t next_;
};

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

/// Polls of one device whose values come one line an interface, as an event stream has them.
void WriteStreamInput(const std::filesystem::path& path, std::size_t polls, std::uint64_t seed) {
  constexpr std::size_t kInterfaces = 48;
  std::mt19937_64 random(seed);
  std::string lines;
  for (std::size_t line = 0; line < polls * kInterfaces; ++line) {
    const std::size_t interface = line % kInterfaces;
    lines += "{\"time\":" + std::to_string(FleetTime(0) + 30 * (line / kInterfaces)) +
             ",\"device\":\"" + FleetDevice(0) + "\",\"source\":\"" + kFleetSource +
             "\",\"variables\":[{\"name\":\"load\",\"interface\":\"" + FleetInterface(interface) +
             "\",\"value\":" + std::to_string(100 + random() % 50) + "}]}\n";
  }
  WriteFile(path, lines);
}

/// The stream with its unit in memory and with one that is written and read between two lines,
/// of which there are fewer: it takes so much longer.
Rounds StreamRounds(const BenchSettings& settings) {
  const std::array<std::size_t, 2> polls = {settings.brief ? 4U : 2000U, settings.brief ? 2U : 10U};
  const ProgramRoot root(settings.root);
  for (const std::size_t count : polls) {
    WriteStreamInput(root.File(std::to_string(count) + ".jsonl"), count, settings.seed);
  }
  return {.round = [=] {
    const auto perValue = [&](std::size_t count, const std::vector<std::string>& more) {
      std::filesystem::remove_all(root.DomainFolder("stream"));
      const ProgramRun run = root.Evaluate("stream", std::to_string(count) + ".jsonl", more);
      if (root.Histories("stream") != 48) throw std::runtime_error("not learned");
      return run.seconds * 1e9 / static_cast<double>(48 * count);
    };
    const double ours = perValue(polls[0], {});
    const double reference = perValue(polls[1], {"--memory", "0"});
    return Sample{.ours = ours, .reference = reference, .figures = {{"values/s", 1e9 / ours}}};
  }};
}

/// A fleet in memory that is checked again and again against one that is read for each run.
Rounds CheckRounds(const BenchSettings& settings) {
  const std::size_t devices = settings.brief ? 4 : 500;
  const std::size_t runs = settings.brief ? 2 : 40;
  const auto values = static_cast<double>(devices * kVariables * runs);
  const ProgramRoot root(settings.root);
  const Fleet fleet{devices};
  const auto program = std::make_shared<StoredProgram>(root, "checked", fleet);
  std::string lines;
  for (std::size_t run = 0; run < runs; ++run) {
    for (std::size_t device = 0; device < devices; ++device) {
      AppendRun(lines, FleetTime(fleet.points) + 30 * static_cast<std::int32_t>(run + 1), device,
                [](std::size_t) { return std::to_string(kFleetValue); });
    }
  }
  WriteFile(root.File("checked.jsonl"), lines);
  return {.round = [=] {
    const auto check = [&](const std::vector<std::string>& more) {
      return root.Evaluate("checked", "checked.jsonl", more);
    };
    const ProgramRun ours = check({"--threads", "1", "--judge-repeated"});
    const ProgramRun two = check({"--threads", "2", "--judge-repeated"});
    const ProgramRun reference = check({"--threads", "1", "--judge-repeated", "--memory", "0"});
    return Sample{.ours = ours.processorSeconds * 1e9 / values,
                  .reference = reference.processorSeconds * 1e9 / values,
                  .figures = {{"one thread / two, by the clock", ours.seconds / two.seconds},
                              {"MB in use by the program", ours.peakBytes / 1e6}}};
  }};
}

}  // namespace

void AddProgramCases(BenchCases& cases) {
  cases.push_back({.number = "10",
                   .name = "program/learning",
                   .ours = "1,000 devices x 100 variables x 12 runs learned by all cores",
                   .reference = "by one thread",
                   .unit = "ns/value",
                   .rounds = kLeastRounds,
                   .make = LearningRounds});
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
  cases.push_back({.number = "12",
                   .name = "program/check",
                   .ours = "500 devices x 100 variables x 40 runs, 30 s apart, in memory",
                   .reference = "read for each run (--memory 0)",
                   .unit = "ns/value",
                   .goal = 0.3,
                   .rounds = kLeastRounds,
                   .make = CheckRounds});
  cases.push_back({.number = "14",
                   .name = "program/stream",
                   .ours = "one device x 48 lines a poll, its unit in memory",
                   .reference = "written and read between two lines (--memory 0)",
                   .unit = "ns/value",
                   .goal = 0.01,
                   .rounds = kLeastRounds,
                   .make = StreamRounds});
}

}  // namespace keelstone::bench
