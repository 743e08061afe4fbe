#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/engine_load.h"
#include "keelstone/json_reader.h"
#include "keelstone/table_base.h"
#include "keelstone/write_behind.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {
namespace {

constexpr int kDomains = 2;
constexpr int kDevices = 2;
constexpr int kThreads = 4;
constexpr int kRuns = 36;  // every history is full, every rule learned

using Domains = std::vector<std::unique_ptr<LoadedDomain>>;

Domains MakeDomains(const std::string& prefix, int count) {
  Domains domains;
  for (int n = 0; n < count; ++n) {
    domains.push_back(std::make_unique<LoadedDomain>(prefix + std::to_string(n)));
  }
  return domains;
}

/// The units of one thread, run after run; a run is on disk before the next of its unit.
void EvaluateShare(Domains& domains, int share, int shares, std::atomic<int>& refused,
                   Disturbance* disturbance = nullptr) {
  const auto units = SteadyUnits(kDevices);
  for (int run = 0; run < kRuns; ++run) {
    for (const auto& domain : domains) {
      for (std::size_t n = static_cast<std::size_t>(share); n < units.size();
           n += static_cast<std::size_t>(shares)) {
        refused += domain->Evaluate(units[n], run, run % 6 == 5);
      }
      domain->Flush();
    }
    if (disturbance != nullptr) disturbance->Pulse();
  }
}

// Parsers of one device on different threads, one unit on two of them, and beside them
// everything else that a host may do: what is stored is what one thread alone stores.
TEST(Stress, StoresWhatOneThreadStores) {
  LogCapture errors(kLogError);
  TempRoot root;
  SetTinyCache(root.path().string());
  const LoadUnit shared = {"shared", "bgp"};
  std::atomic<int> refused{0};

  Domains calm = MakeDomains("calm", 1);
  EvaluateShare(calm, 0, 1, refused);

  Domains busy = MakeDomains("busy", kDomains);
  Disturbance disturbance(busy);
  std::vector<std::thread> threads;
  for (int share = 0; share < kThreads; ++share) {
    threads.emplace_back(
        [&, share] { EvaluateShare(busy, share, kThreads, refused, &disturbance); });
  }
  for (int twin = 0; twin < 2; ++twin) {
    threads.emplace_back([&] {
      for (int run = 0; run < kRuns; ++run) {
        for (const auto& domain : busy) refused += domain->Evaluate(shared, run);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  disturbance.Stop();
  DBWriteWrapper::Instance()->ForceWriteDisk();

  EXPECT_EQ(refused, 0);
  EXPECT_EQ(GetFailedWriteCount(), 0U);
  EXPECT_EQ(GetFailedReadCount(), 0U);
  for (const auto& line : errors.Lines()) ADD_FAILURE() << line.function << ": " << line.message;
  EXPECT_GT(disturbance.steps(), 0U);
  const auto expected = calm[0]->Rows();
  ASSERT_EQ(expected.size(), SteadyUnits(kDevices).size() * 12);  // six rules, six histories
  for (const auto& domain : busy) {
    EXPECT_EQ(domain->Rows("shared"), expected);
    EXPECT_GT(domain->Rows().size(), expected.size());
  }
}

/// Ends the process in the midst of everything; `way` says how.
[[noreturn]] void EndUnderLoad(int way) {
  TempRoot root;
  SetTinyCache(root.path().string());
  // Neither is destroyed: their threads work on while the process ends.
  auto& domains = *new Domains(MakeDomains("ending", kDomains));
  auto& refused = *new std::atomic<int>(0);
  auto& disturbance = *new Disturbance(domains);
  for (int share = 0; share < kThreads; ++share) {
    std::thread([&, share] {
      while (true) EvaluateShare(domains, share, kThreads, refused, &disturbance);
    }).detach();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50 + way * 30));
  std::exit(0);
}

// Threads that still evaluate, write, load and log while static objects are destroyed find
// everything whole.
TEST(StressDeathTest, AProcessMayEndUnderLoad) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int way = 0; way < 8; ++way) {
    EXPECT_EXIT(EndUnderLoad(way), ::testing::ExitedWithCode(0), "") << way;
  }
}

}  // namespace
}  // namespace keelstone::testing
