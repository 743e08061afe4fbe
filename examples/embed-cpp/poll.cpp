// A small host of the Keelstone library: two threads poll four routers, and what was found
// is printed.
//
//   usage: poll ROOT
//
// The routers are made up: r1 loses a neighbour at the 20th poll.

#include <atomic>
#include <cstdio>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "keelstone/domain_data_manager.h"
#include "keelstone/domain_files.h"
#include "keelstone/filesystem.h"
#include "keelstone/ini_reader.h"
#include "keelstone/logger.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/rule_instance.h"
#include "keelstone/table_base.h"
#include "keelstone/write_behind.h"

namespace {

using namespace keelstone;

constexpr const char* kDomain = "default";
constexpr const char* kSource = "bgp_summary";
constexpr std::int32_t kFirstPoll = 1700000000;  // s since the epoch
constexpr std::int32_t kCadence = 60;            // s
constexpr int kPolls = 24;
const std::vector<std::string> kDevices = {"r1", "r2", "r3", "r4"};

// The type codes of this host's parsers; they are stored and must stay the same.
constexpr std::int32_t kCodeInteger = 1;
constexpr std::int32_t kCodeText = 3;

VarInfo Value(const char* name, EnumKSDataType type, std::int32_t code, std::string text) {
  VarInfo value;
  value.variableName = name;
  value.dataType = type;
  value.variableType = code;
  value.interfaceValue = "10.0.12.2";
  value.valueText = std::move(text);
  return value;
}

// What a parser would read from the device.
std::vector<VarInfo> Poll(const std::string& device, int poll) {
  const bool lost = device == "r1" && poll == 20;
  return {Value("state", KSDataString, kCodeText, lost ? "Idle" : "Established"),
          Value("prefixes", KSDataInt64, kCodeInteger, lost ? "0" : "12")};
}

// The domain's databases and the variables to be watched; what is there stays as it is.
bool PrepareDomain() {
  const std::string fault = MakeDomain(kDomain, DefaultGeneralSettings());
  if (!fault.empty()) {
    std::cerr << fault << '\n';
    return false;
  }
  std::vector<RuleDefinitionData> definitions;
  for (const VarInfo& variable : Poll("r1", 0)) {
    RuleDefinitionData definition(kRuleTypeNone, kVariableSourceParser, "", kSource,
                                  variable.variableName, variable.variableType, "");
    definition.enableFlag = true;
    definitions.push_back(definition);
  }
  const auto domain = KSDomainDataManager::Instance()->GetKSDataManager(kDomain);
  return domain->AddRuleDefinitions(definitions);
}

// One parser run: an instance of its own, used by this thread alone.
void Evaluate(const std::string& device, int poll) {
  const std::int32_t time = kFirstPoll + poll * kCadence;
  KSRuleInstance run(kSource, "", device, "", "", "", kDomain, "", time, false);
  if (run.IsInBlockTime()) run.SetOnlyUpdateKSValue();
  run.InitCacheData();
  run.InitHistoryData();
  for (const VarInfo& variable : Poll(device, poll)) run.ProcessVariable(variable);
  for (const auto& alert : run.GetUpdateResultData()->GetKSAlertResults()) {
    std::printf("poll %d: %s %s %s broke %s\n", poll, alert->GetDeviceName().c_str(),
                alert->GetInterfaceValue().c_str(), alert->GetVaraibleName().c_str(),
                alert->GetAlertInfo().c_str());
  }
  run.SerializeLocalDB();
}

// One round of polls: each thread takes the next device until there is none.
void PollAll(int poll) {
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < kDevices.size(); i = next++) Evaluate(kDevices[i], poll);
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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: poll ROOT\n";
    return 2;
  }
  // Before anything else of the library: where the files are, and where the log goes.
  VXFileSystem::SetSystemRootFolder(argv[1]);
  Logger::Instance().SetLevel(kLogError);
  Logger::Instance().SetCallback(PrintError);

  // Values that lie 30 s apart or more count; without it 1800 s.
  if (!IniReader::SetInt("Keelstone", "IntervalTime", 30, "fix_frontserver.ini")) return 1;
  if (!PrepareDomain()) return 1;

  // These polls follow each other at once: each round waits until the one before is on disk,
  // or it would not find its values. Polls further apart than CacheTime need no WriteDomain.
  for (int poll = 0; poll < kPolls; ++poll) {
    PollAll(poll);
    DBWriteWrapper::Instance()->WriteDomain(kDomain);
  }

  // What is pending when the process ends is lost.
  DBWriteWrapper::Instance()->ForceWriteDisk();
  if (const auto failed = GetFailedWriteCount(); failed > 0) {
    std::cerr << failed << " writes failed\n";
    return 1;
  }
  return 0;
}
