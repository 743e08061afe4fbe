#ifndef KEELSTONE_BENCH_PROGRAM_INPUT_H
#define KEELSTONE_BENCH_PROGRAM_INPUT_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "bench/stored_fleet.h"

/// Input of the program: lines of runs.
namespace keelstone::bench {

inline constexpr std::size_t kVariables = 100;  // a device

/// Throws std::runtime_error when it cannot.
void WriteFile(const std::filesystem::path& path, const std::string& text);

/// One line of input: a run on one device, `value` giving each variable's value as JSON.
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

/// `runs` runs of each device from nothing on, so that all of them learn: one in five variables
/// each stays as it is, moves in a range, is a word, is a real that moves, and is one of three.
void WriteLearningInput(const std::filesystem::path& path, std::size_t devices, std::size_t runs,
                        std::uint64_t seed);

/// One run of `devices` of the fleet's devices, evenly spread, whose values are as learned.
void WriteFleetInput(const std::filesystem::path& path, const Fleet& fleet, std::size_t devices,
                     std::int32_t time);

/// Polls of one device whose values come one line an interface, as an event stream has them.
inline constexpr std::size_t kStreamInterfaces = 48;
void WriteStreamInput(const std::filesystem::path& path, std::size_t polls, std::uint64_t seed);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_PROGRAM_INPUT_H
