// A small host of the Keelstone library: two threads poll four routers, and what was found
// is printed.
//
//   usage: poll ROOT
//
// The routers are made up: r1 loses a neighbour at the 20th poll.

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "keelstone/domain.h"
#include "keelstone/ini_reader.h"
#include "keelstone/logger.h"

namespace {

using namespace keelstone;

constexpr std::int64_t kFirstPoll = 1700000000;  // s since the epoch
constexpr int kCadence = 60;                     // s
constexpr int kPolls = 24;
const std::vector<std::string> kDevices = {"r1", "r2", "r3", "r4"};

// What a parser would read from the device.
std::vector<RunValue> Poll(const std::string& device, int poll) {
  const bool lost = device == "r1" && poll == 20;
  return {{"state", "10.0.12.2", lost ? "Idle" : "Established"},
          {"prefixes", "10.0.12.2", lost ? 0 : 12}};
}

// One parser run; any thread may evaluate it.
void Evaluate(Domain& domain, const std::string& device, int poll) {
  const auto found = domain.Evaluate(
      {.device = device, .source = "bgp_summary", .time = kFirstPoll + kCadence * poll},
      Poll(device, poll));
  if (found.fault()) std::fprintf(stderr, "%s\n", found.fault().text.c_str());
  for (const auto& alert : found.explanations()) {
    std::printf("poll %d: %s %s\n", poll, device.c_str(), alert.Sentence().c_str());
  }
}

// One round of polls: each thread takes the next device until there is none.
void PollAll(Domain& domain, int poll) {
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < kDevices.size(); i = next++) {
      Evaluate(domain, kDevices[i], poll);
    }
  };
  std::thread other(work);
  work();
  other.join();
}

void PrintError(const LogLine& line) {
  std::string text(line.function);
  text.append(": ").append(line.message).append("\n");
  std::fputs(text.c_str(), stderr);
}

int Fail(const DomainFault& fault) {
  std::cerr << fault.text << '\n';
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: poll ROOT\n";
    return 2;
  }
  // Where the log goes; without it to log/keelstone.log below the root.
  Logger::Instance().SetLevel(kLogError);
  Logger::Instance().SetCallback(PrintError);

  Domain domain;
  if (const DomainFault fault = domain.Open({.root = argv[1]})) return Fail(fault);
  // Values that lie 30 s apart or more count; without it 1800 s.
  if (!IniReader::SetInt("Keelstone", "IntervalTime", 30, "fix_frontserver.ini")) return 1;

  for (int poll = 0; poll < kPolls; ++poll) PollAll(domain, poll);

  // Writes what was learned. Without it what is not written yet is lost with the process.
  if (const DomainFault fault = domain.Close()) return Fail(fault);
  return 0;
}
