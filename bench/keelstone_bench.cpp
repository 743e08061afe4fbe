#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <boost/version.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/json_round_trip.h"
#include "bench/paired_report.h"

namespace keelstone::bench {

namespace {

constexpr std::uint64_t kSeed = 20240229;
constexpr int kRepetitions = 21;

constexpr const char* kUsage =
    "usage: keelstone_bench [--json FILE] [--repetitions N] [--benchmark_filter=REGEX ...]\n"
    "Times the library beside others doing the same work and prints the ratios; less is\n"
    "better. TMPDIR says where the databases lie.\n";

struct Options {
  int repetitions = kRepetitions;
  std::vector<std::string> forwarded;  // what Google Benchmark reads
};

bool ReadOptions(int count, char** arguments, Options& options) {
  options.forwarded.emplace_back(arguments[0]);
  options.forwarded.emplace_back("--benchmark_enable_random_interleaving=true");
  for (int i = 1; i < count; ++i) {
    const std::string_view argument = arguments[i];
    const bool takesValue = argument == "--json" || argument == "--repetitions";
    if (takesValue && ++i == count) return false;
    if (argument == "--json") {
      options.forwarded.emplace_back(std::string("--benchmark_out=") + arguments[i]);
      options.forwarded.emplace_back("--benchmark_out_format=json");
    } else if (argument == "--repetitions") {
      options.repetitions = std::atoi(arguments[i]);
      if (options.repetitions < 1) return false;
    } else if (argument.starts_with("--benchmark_")) {
      options.forwarded.emplace_back(argument);
    } else {
      return false;
    }
  }
  return true;
}

std::string Processor() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  }
  return "unknown";
}

void Say(const char* key, const std::string& value) {
  std::printf("%-14s %s\n", key, value.c_str());
  benchmark::AddCustomContext(key, value);
}

void SayContext(const WorkRoot& root, const Options& options) {
  Say("processor", Processor());
  Say("compiler", __VERSION__);
  Say("keelstone", KEELSTONE_VERSION);
  Say("rapidjson", JsonPeerVersion());
  Say("sqlite", sqlite3_libversion());
  Say("boost", BOOST_LIB_VERSION);
  Say("databases", root.Medium());
  Say("variables", std::to_string(kVariablesPerDevice) + " a device, histories of " +
                       std::to_string(kHistoryPoints) + " values");
  Say("seed", std::to_string(kSeed));
  Say("repetitions", std::to_string(options.repetitions));
}

int Run(Options& options) {
  std::vector<char*> arguments;
  for (std::string& argument : options.forwarded) arguments.push_back(argument.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());

  const WorkRoot root;
  SayContext(root, options);
  std::vector<std::unique_ptr<const LearnedDomain>> domains;
  for (const EnumKSDataType dataType : {KSDataInt64, KSDataFloat, KSDataDouble}) {
    domains.push_back(std::make_unique<const LearnedDomain>(
        root, dataType, kSeed + 100U * static_cast<std::uint64_t>(dataType)));
    RegisterEvaluation(*domains.back(), options.repetitions);
  }
  RegisterFlush(root, options.repetitions);
  RegisterLoad(root, *domains.front(), options.repetitions);

  PairedReport report;
  benchmark::RunSpecifiedBenchmarks(&report);
  if (report.hasFailed()) return 1;

  // Only now, since it changes what is pending.
  for (const auto& domain : domains) {
    for (const Device& device : domain->devices()) {
      if (device.hasRules) domain->Verify(device, Moment::kHistoryYoung);
      domain->Verify(device, Moment::kHistoryOld);
    }
  }
  return 0;
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
