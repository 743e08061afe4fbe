#include <rapidjson/rapidjson.h>
#include <sqlite3.h>

#include <boost/version.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "bench/bench_table.h"
#include "bench/case_runner.h"
#include "bench/cases.h"
#include "bench/history_series.h"

namespace keelstone::bench {

namespace {

constexpr std::uint64_t kSeed = 20240229;
constexpr int kRounds = 15;

constexpr const char* kUsage =
    "usage: keelstone_bench [--filter REGEX] [--json FILE] [--rounds N] [--brief]\n"
    "Puts the library over others doing the same work and prints the ratios beside their\n"
    "goals. --brief runs every case once, small, and judges nothing. TMPDIR says where the\n"
    "databases lie.\n";

struct Options {
  std::string filter = ".";
  std::string jsonFile;
  int rounds = kRounds;
  bool brief = false;
};

bool ReadOptions(int count, char** arguments, Options& options) {
  for (int i = 1; i < count; ++i) {
    const std::string_view argument = arguments[i];
    if (argument == "--brief") {
      options.brief = true;
      continue;
    }
    if (++i == count) return false;
    if (argument == "--filter") {
      options.filter = arguments[i];
    } else if (argument == "--json") {
      options.jsonFile = arguments[i];
    } else if (argument == "--rounds") {
      options.rounds = std::atoi(arguments[i]);
    } else {
      return false;
    }
  }
  return options.rounds >= kLeastRounds;
}

std::string Processor() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  }
  return "unknown";
}

BenchContext ContextOf(const WorkRoot& root, const Options& options) {
  return {{"processor", Processor()},
          {"compiler", __VERSION__},
          {"keelstone", KEELSTONE_VERSION},
          {"rapidjson", RAPIDJSON_VERSION_STRING},
          {"sqlite", sqlite3_libversion()},
          {"boost", BOOST_LIB_VERSION},
          {"databases", root.Medium()},
          {"history", std::to_string(kHistoryPoints) + " values"},
          {"seed", std::to_string(kSeed)},
          {"rounds", options.brief ? "1, brief" : std::to_string(options.rounds)}};
}

bool WriteFile(const std::string& name, const std::string& text) {
  std::ofstream file(name, std::ios::binary);
  file << text;
  file.close();
  return !file.fail();
}

int Run(const Options& options) {
  const WorkRoot root;
  const BenchContext context = ContextOf(root, options);
  for (const auto& [name, value] : context) std::printf("%-10s %s\n", name.c_str(), value.c_str());
  std::puts("");
  std::fflush(stdout);

  BenchCases cases;
  AddEvaluationCases(cases);
  AddHistoryCases(cases);
  AddEngineCases(cases);
  AddJsonCases(cases);
  AddFlushCases(cases);
  AddUnitCases(cases);
  AddPendingCases(cases);
  AddResidentCases(cases);
  AddProgramCases(cases);
  AddStateCases(cases);
  AddGrowthCases(cases);

  CaseRunner runner(cases, {root, kSeed, options.brief}, options.rounds);
  const bool passed = runner.RunCases(options.filter);
  std::fputs(TableText(cases, runner, !options.brief).c_str(), stdout);
  if (!options.jsonFile.empty() &&
      !WriteFile(options.jsonFile, JsonText(context, cases, runner, !options.brief))) {
    throw std::runtime_error(options.jsonFile + " cannot be written");
  }
  return passed ? 0 : 1;
}

}  // namespace

}  // namespace keelstone::bench

int main(int count, char** arguments) {
#ifndef NDEBUG
  std::fputs("keelstone_bench: this is a debug build, whose times mean nothing\n", stderr);
  return 2;
#endif
  keelstone::bench::Options options;
  if (!keelstone::bench::ReadOptions(count, arguments, options)) {
    std::fputs(keelstone::bench::kUsage, stderr);
    return 2;
  }
  try {
    return keelstone::bench::Run(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "keelstone_bench: %s\n", error.what());
    return 1;
  }
}
