// keelstone_soak SECONDS: evaluates at full load for that time, with merges, invalidations,
// cleanings and flushes beside it, and prints the memory and the open files after a fifth of
// it and at its end. Exit code 1 when the memory has changed by more than 5 % between them,
// or the number of descriptors at all.
#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/engine_load.h"
#include "keelstone/table_base.h"
#include "keelstone/write_behind.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kDomains = 2;
constexpr int kDevices = 10;
constexpr int kSecondStart = 200000;  // a run later than any of the first part
constexpr double kMemoryBound = 0.05;

/// What the allocator keeps for later is given back first.
long ResidentKiB() {
  ::malloc_trim(0);
  long pages = 0;
  std::ifstream("/proc/self/statm").ignore(64, ' ') >> pages;
  return pages * (::sysconf(_SC_PAGESIZE) / 1024);
}

int Descriptors() {
  int count = 0;
  DIR* const folder = ::opendir("/proc/self/fd");
  while (const dirent* entry = ::readdir(folder)) {
    if (entry->d_name[0] != '.') ++count;
  }
  ::closedir(folder);
  return count - 1;  // the folder's own
}

struct Sample {
  long kiB = 0;
  std::size_t heapBytes = 0;  // in use
  int descriptors = 0;
  std::uint64_t runs = 0;
  std::uint64_t steps = 0;
};

using Domains = std::vector<std::unique_ptr<LoadedDomain>>;

/// The load until `end`; everything stands still afterwards.
void Work(Domains& domains, Clock::time_point end, int firstRun, Sample& sample) {
  Disturbance disturbance(domains);
  const auto units = SteadyUnits(kDevices);
  const std::size_t shares = std::max(2U, std::thread::hardware_concurrency());
  std::atomic<std::uint64_t> runs{0};
  std::vector<std::thread> threads;
  for (std::size_t share = 0; share < shares; ++share) {
    threads.emplace_back([&, share] {
      for (int run = firstRun; Clock::now() < end; ++run) {
        for (const auto& domain : domains) {
          for (std::size_t n = share; n < units.size(); n += shares, ++runs) {
            domain->Evaluate(units[n], run, run % 8 == 7);
          }
          domain->Flush();
        }
        disturbance.Pulse();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  disturbance.Stop();
  DBWriteWrapper::Instance()->ForceWriteDisk();
  sample = {ResidentKiB(), ::mallinfo2().uordblks, Descriptors(), sample.runs + runs,
            sample.steps + disturbance.steps()};
}

void Print(const char* when, const Sample& sample) {
  std::printf(
      "%s: %ld KiB resident, %zu KiB of heap in use, %d descriptors, %llu runs, %llu "
      "disturbances\n",
      when, sample.kiB, sample.heapBytes / 1024, sample.descriptors,
      static_cast<unsigned long long>(sample.runs), static_cast<unsigned long long>(sample.steps));
  std::fflush(stdout);
}

int Soak(int seconds) {
  TempRoot root;
  SetTinyCache(root.path().string());
  Domains domains;
  for (int n = 0; n < kDomains; ++n) {
    domains.push_back(std::make_unique<LoadedDomain>("soak" + std::to_string(n)));
  }
  const auto start = Clock::now();
  Sample sample;
  Work(domains, start + std::chrono::seconds(seconds) / 5, 0, sample);
  const Sample early = sample;
  Print("after a fifth of the time", early);
  Work(domains, start + std::chrono::seconds(seconds), kSecondStart, sample);
  Print("at the end", sample);
  const double growth =
      static_cast<double>(sample.kiB - early.kiB) / static_cast<double>(early.kiB);
  std::printf("memory %+.1f %% (bound 5 %%), descriptors %+d (bound 0), writes failed %llu\n",
              growth * 100, sample.descriptors - early.descriptors,
              static_cast<unsigned long long>(GetFailedWriteCount()));
  const bool isSteady = std::abs(growth) <= kMemoryBound &&
                        sample.descriptors == early.descriptors && GetFailedWriteCount() == 0;
  return isSteady ? 0 : 1;
}

}  // namespace
}  // namespace keelstone::testing

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 600;
  if (seconds <= 0) {
    std::fprintf(stderr, "usage: keelstone_soak [SECONDS]\n");
    return 2;
  }
  return keelstone::testing::Soak(seconds);
}
