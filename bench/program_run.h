#ifndef KEELSTONE_BENCH_PROGRAM_RUN_H
#define KEELSTONE_BENCH_PROGRAM_RUN_H

#include <filesystem>
#include <string>
#include <vector>

namespace keelstone::bench {

/// What one run of a program took.
struct ProgramRun {
  double seconds = 0;           // by the clock on the wall
  double processorSeconds = 0;  // user and system, of all its threads
  double peakBytes = 0;         // of memory in use
};

/// Runs `keelstone`, the program of this build, with its standard output in a file, and
/// waits for it; throws std::runtime_error unless it ends with exit code 0.
ProgramRun RunKeelstone(const std::vector<std::string>& arguments,
                        const std::filesystem::path& output);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_PROGRAM_RUN_H
