#include "keelstone/domain.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "host/append_value.h"
#include "host/unit_turns.h"
#include "keelstone/cppsqlite3.h"
#include "keelstone/data_manager.h"
#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "keelstone/domain_snapshot.h"
#include "keelstone/logger.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/run_evaluation.h"
#include "keelstone/write_behind.h"
#include "tests/support/faulty_io.h"
#include "tests/support/temp_root.h"

/// A forked child works on, with a thread of its own.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

namespace keelstone::testing {
namespace {

using ::testing::HasSubstr;
using Kind = DomainFault::Kind;

constexpr std::int64_t kStart = 1700000000;
constexpr std::size_t kMemory = std::size_t{256} << 20U;
constexpr RunOptions kUnstored{.store = false};

/// What comes of a run, as one text.
std::string TextOf(const KSRuleUpdateResultData& results,
                   const std::vector<KSAlertExplanation>& explanations, std::size_t refused,
                   std::uint64_t repeated) {
  std::string text = results.ToJsonString();
  for (const KSAlertExplanation& alert : explanations) text += "\n" + alert.ToJsonString();
  return text + "\n" + std::to_string(refused) + " " + std::to_string(repeated);
}

std::string TextOf(const Findings& found) {
  EXPECT_EQ(found.fault().text, "");
  return TextOf(found.results(), found.explanations(), found.refused().size(), found.repeated());
}

/// The rules and histories of a domain that are on disk.
std::vector<std::string> Stored(const std::string& id) {
  std::vector<std::string> rows;
  for (const auto& [type, table, text] :
       {std::tuple{kDbObjectRule, "KSObjectRule", "ruleTypeId||ruleAlgParameter||variableDataType"},
        {kDbObjectHistory, "KSObjectHistory", "HistoryData"}}) {
    CppSQLite3DB db;
    db.open(DomainDatabase(type, id));
    CppSQLite3Statement statement = db.compileStatement(
        "SELECT deviceName||'/'||interfaceValue||'/'||variableSource||'/'||param||'/'||"
        "variableName||'='||" +
        std::string(text) + " FROM " + table + " ORDER BY 1");
    for (CppSQLite3Query row = statement.execQuery(); !row.eof(); row.nextRow()) {
      rows.emplace_back(row.getStringField(0));
    }
  }
  return rows;
}

/// Runs of several units: every type, learned and broken, some twice, some with a variable twice.
std::vector<std::string> GeneratedLines() {
  std::mt19937 random(7);
  const auto below = [&random](unsigned bound) { return random() % bound; };
  std::vector<std::string> lines;
  for (unsigned number = 0; number < 24; ++number) {
    for (unsigned unit = 0; unit < 8; ++unit) {
      const auto value = [](const char* name, const std::string& text) {
        return "{\"name\":\"" + std::string(name) + "\",\"interface\":\"eth0\",\"value\":" + text +
               "}";
      };
      std::string line = "{\"time\":" + std::to_string(kStart + 3600 * number) + ",\"device\":\"r" +
                         std::to_string(unit / 2) + "\",\"source\":\"s" + std::to_string(unit % 2) +
                         "\",\"variables\":[" + value("constant", number % 11 == 10 ? "6" : "5") +
                         "," + value("wave", std::to_string(50 + below(9))) + "," +
                         value("load", std::to_string(below(100)) + ".25") + "," +
                         value("state", below(9) == 0 ? "\"down\"" : "\"up\"") + "," +
                         value("up", below(12) == 0 ? "false" : "true") + "," +
                         value("table", "[{\"prefix\":\"10." + std::to_string(number / 9) + "\"}]");
      if (below(5) == 0) line += "," + value("wave", "7");
      lines.push_back(line + "]}");
      if (below(9) == 0) lines.push_back(lines.back());
    }
  }
  return lines;
}

struct Evaluated {
  std::vector<std::string> found;  // by line
  std::vector<std::string> rows;
};

class DomainTest : public ::testing::Test {
 protected:
  DomainTest() { Logger::Instance().SetLevel(4); }
  ~DomainTest() override {
    Domain::SetMemory(kMemory);
    Logger::Instance().SetLevel(kLogInformation);
  }

  /// An id that no other test has, opened.
  Domain Opened(std::size_t memory = kMemory) {
    static int made = 0;
    id_ = "host" + std::to_string(++made);
    return OpenedAgain(memory);
  }
  Domain OpenedAgain(std::size_t memory = kMemory) const {
    Domain domain;
    const DomainFault fault = domain.Open({.id = id_, .memory = memory});
    EXPECT_EQ(fault.text, "");
    return domain;
  }
  std::vector<std::string> Stored() const { return testing::Stored(id_); }

  /// One value of the unit r1/source, `hour` hours after the start.
  static Findings Evaluate(Domain& domain, int hour, const RunOptions& how = {},
                           const std::string& source = "bgp") {
    return domain.Evaluate({.device = "r1", .source = source, .time = kStart + 3600 * hour},
                           {{"prefixes", "eth0", 12}}, how);
  }
  static std::string UnitOf(const Domain& domain, const std::string& source) {
    ParsedRun run;
    run.domain = domain.id();
    run.device = "r1";
    run.source = source;
    std::string key;
    AssignUnitKey(key, run);
    return key;
  }
  /// Returns when so many runs wait for the unit.
  static void AwaitWaiting(const std::string& unit, std::size_t count) {
    while (UnitTurns::Instance().WaitingFor(unit) < count) std::this_thread::yield();
  }

  FaultyIo io_;  // does no real sync
  TempRoot root_;
  std::string id_;
};

/// As `evaluate --memory 0` does it: each run from what the one before has left on disk.
Evaluated Reference(const std::vector<std::string>& lines, const std::string& id) {
  EXPECT_EQ(MakeDomain(id, DefaultGeneralSettings()), "");
  Evaluated all;
  JudgedValues judged;
  RunLineReader reader(id);
  for (const std::string& line : lines) {
    ParsedRun run;
    EXPECT_TRUE(reader.Read(line, run)) << reader.fault();
    const DomainSnapshot domain = DomainSnapshot::Of(id);
    EXPECT_TRUE(domain.data->AddRuleDefinitions(MissingDefinitions(run, *domain.data)));
    RunRequest request{.explain = true, .stages = {}, .judged = judged.Of(run)};
    RunOutcome outcome = EvaluateRun(run, domain, request);
    outcome.Store();
    DBWriteWrapper::Instance()->WriteDomain(id);
    all.found.push_back(
        TextOf(*outcome.results, outcome.explanations, outcome.refused.size(), outcome.repeated));
  }
  all.rows = Stored(id);
  return all;
}

TEST_F(DomainTest, GivesWhatEvaluateGivesOnAnyThreadsAndWithAnyMemory) {
  const std::vector<std::string> lines = GeneratedLines();
  const Evaluated expected = Reference(lines, "reference");
  EXPECT_GT(std::count_if(expected.found.begin(), expected.found.end(),
                          [](const std::string& text) { return text.find("\n{") < text.size(); }),
            10);
  for (const std::size_t threads : {std::size_t{1}, std::size_t{4}}) {
    for (const std::size_t memory : {std::size_t{0}, std::size_t{1}, kMemory}) {
      SCOPED_TRACE(std::to_string(threads) + " threads, memory " + std::to_string(memory));
      Domain domain = Opened(memory);
      std::vector<std::string> found(lines.size());
      const auto work = [&](std::size_t own) {
        for (std::size_t i = 0; i < lines.size(); ++i) {
          const std::size_t device = lines[i].find("\"r") + 2;
          if (static_cast<std::size_t>(lines[i][device] - '0') % threads != own) continue;
          found[i] = TextOf(domain.EvaluateLine(lines[i]));
        }
      };
      std::vector<std::thread> workers;
      for (std::size_t i = 0; i < threads; ++i) workers.emplace_back(work, i);
      for (std::thread& worker : workers) worker.join();
      EXPECT_EQ(found, expected.found);
      EXPECT_EQ(domain.Close().text, "");
      EXPECT_EQ(Stored(), expected.rows);
    }
  }
}

TEST_F(DomainTest, TakesValuesAsALineGivesThem) {
  const struct {
    RunValue value;
    const char* line;
  } kCases[] = {
      {{"a", "i", 12}, R"({"name":"a","interface":"i","value":12})"},
      {{"a", "", std::int64_t{INT64_MIN}}, R"({"name":"a","value":-9223372036854775808})"},
      {{"a", "", 0.1F}, R"({"name":"a","type":"float","value":0.1})"},
      {{"a", "", 1e-7}, R"({"name":"a","value":1e-07})"},
      {{"a", "", "x \xC3\xA9"}, "{\"name\":\"a\",\"value\":\"x \xC3\xA9\"}"},
      {{"a", "", true}, R"({"name":"a","value":true})"},
      {{"a", "", ValueTable{.columns = {"p", "n"}, .rows = {{"x", 1}, {nullptr, 2.5}, {true, 0}}}},
       R"({"name":"a","value":{"columns":["p","n"],"rows":[["x",1],[null,2.5],[true,0]]}})"},
      {{"a", "", ValueTable{.columns = {"p", "n"}, .keys = {{"p"}}, .keepsOrder = true}},
       R"({"name":"a","value":{"columns":["p","n"],"rows":[]},"keys":["p"],"sort":false})"},
  };
  for (const auto& [value, line] : kCases) {
    SCOPED_TRACE(line);
    ParsedRun typed;
    ParsedRun read;
    AppendValue(value, typed);
    ASSERT_TRUE(RunLineReader("").ReadVariables(line, read));
    ASSERT_EQ(typed.variables.size(), 1U);
    const VarInfo& a = typed.variables[0];
    const VarInfo& b = read.variables[0];
    EXPECT_EQ(std::tie(a.variableName, a.interfaceValue, a.dataType, a.variableType, a.valueText,
                       a.tableKeys, a.tableFlag),
              std::tie(b.variableName, b.interfaceValue, b.dataType, b.variableType, b.valueText,
                       b.tableKeys, b.tableFlag));
    EXPECT_EQ(a.value, b.value);
  }
}

TEST_F(DomainTest, SaysWhatIsNoInputAndEvaluatesNothingOfIt) {
  Domain domain = Opened();
  const RunSubject subject{.device = "r1", .source = "bgp", .time = kStart};
  const auto evaluate = [&](const RunValue& bad) {
    return domain.Evaluate(subject, {{"good", "", 1}, bad});
  };
  const auto expect = [](const Findings& found, const std::string& text) {
    EXPECT_EQ(found.fault().kind, Kind::kInput) << text;
    EXPECT_THAT(found.fault().text, HasSubstr(text));
    EXPECT_EQ(found.variables(), 0U);
  };
  expect(evaluate({"", "", 1}), "values[1]: the name is empty");
  expect(evaluate({"\xFF", "", 1}), "values[1]: name: not UTF-8 at byte 1");
  expect(evaluate({"a", "x\xFF", 1}), "values[1]: interface_value: not UTF-8 at byte 2");
  expect(evaluate({"a", "", std::string("\xC0")}), "values[1]: text: not UTF-8");
  expect(evaluate({"a", "", 1 / 0.0}), "values[1]: the value is not finite");
  expect(evaluate({"a", "", ValueTable{.columns = {"c"}, .rows = {{0 / 0.0}}}}), "a cell is not");
  expect(evaluate({"a", "", ValueTable{.columns = {"c", "c"}}}), "values[1]: ");
  expect(evaluate({"a", "", ValueTable{.columns = {"c"}, .rows = {{1, 2}}}}), "values[1]: ");
  expect(domain.Evaluate({.device = "\xFF", .source = "bgp", .time = kStart}, {}), "device: not");
  expect(domain.EvaluateLine("{}"), "time");
  expect(domain.EvaluateLine(
             R"({"time":1,"domain":"other","device":"d","source":"s","variables":[]})"),
         "domain: is not the one");
  EXPECT_EQ(domain.Define("bgp", "x", KSDataUnknown).kind, Kind::kInput);
  EXPECT_EQ(domain.Close().text, "");
  EXPECT_EQ(Stored(), std::vector<std::string>());
}

TEST_F(DomainTest, DefinesWhatIsNotDefinedWhetherItKnewItOrNot) {
  Domain domain = Opened();
  EXPECT_EQ(Evaluate(domain, 0).variables(), 1U);
  {
    CppSQLite3DB db;  // another process, say
    db.open(DomainDatabase(kDbVariableRule, id_));
    db.execDML("DELETE FROM KSVariableRule");
  }
  DomainSnapshot::Of(id_).data->InvalidateKSVariableRuleCaches();
  const RunSubject subject{.device = "r2", .source = "bgp", .time = kStart};
  const auto refused = [&](const RunOptions& how) {
    return domain.Evaluate(subject, {{"prefixes", "eth0", 12}}, how).refused().size();
  };
  EXPECT_EQ(refused({.enroll = false}), 1U);
  EXPECT_EQ(refused({}), 0U);
  EXPECT_EQ(refused({.enroll = false}), 0U);
}

TEST_F(DomainTest, RunsOfAUnitComeInTheOrderOfTheCalls) {
  Domain domain = Opened();
  Findings held = Evaluate(domain, 0, kUnstored);
  constexpr std::size_t kThreads = 6;
  std::vector<std::thread> threads;
  std::vector<std::uint64_t> judged(kThreads);
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      // Of a run that comes after a later one the value counts as repeated.
      judged[i] = Evaluate(domain, static_cast<int>(i) + 1).variables();
    });
    AwaitWaiting(UnitOf(domain, "bgp"), i + 1);
  }
  EXPECT_EQ(Evaluate(domain, 0, {}, "another unit").variables(), 1U);
  EXPECT_EQ(held.Store().text, "");
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(judged, std::vector<std::uint64_t>(kThreads, 1));
}

TEST_F(DomainTest, ARunIsKeptWhenItIsStoredAndLeavesNoTraceElse) {
  for (const std::size_t memory : {kMemory, std::size_t{0}}) {
    Domain domain = Opened(memory);
    for (int hour = 0; hour < 3; ++hour) EXPECT_EQ(Evaluate(domain, hour).fault().text, "");
    EXPECT_EQ(domain.Flush().text, "");
    const auto before = Stored();
    {
      Findings dropped = Evaluate(domain, 8, kUnstored);
      EXPECT_EQ(dropped.variables(), 1U);
    }
    Findings discarded = Evaluate(domain, 8, kUnstored);
    EXPECT_EQ(discarded.repeated(), 0U);
    discarded.Discard();
    EXPECT_EQ(discarded.Store().kind, Kind::kState);
    EXPECT_EQ(discarded.variables(), 1U);
    EXPECT_EQ(domain.Flush().text, "");
    EXPECT_EQ(Stored(), before);
    Findings stored = Evaluate(domain, 8, kUnstored);
    EXPECT_EQ(stored.Store().text, "");
    EXPECT_EQ(stored.Store().kind, Kind::kState);
    EXPECT_EQ(domain.Flush().text, "");
    EXPECT_NE(Stored(), before);
  }
}

TEST_F(DomainTest, AThreadThatWouldWaitForItselfIsTold) {
  Domain domain = Opened();
  Findings own = Evaluate(domain, 0, kUnstored, "a");
  EXPECT_EQ(Evaluate(domain, 1, {}, "a").fault().kind, Kind::kState);
  std::thread other([&] {
    const Findings others = Evaluate(domain, 0, kUnstored, "b");
    EXPECT_EQ(Evaluate(domain, 1, {}, "a").variables(), 1U);  // waits for this thread
  });
  AwaitWaiting(UnitOf(domain, "a"), 1);
  const Findings closes = Evaluate(domain, 1, {}, "b");
  EXPECT_EQ(closes.fault().kind, Kind::kState);
  EXPECT_THAT(closes.fault().text, HasSubstr("this thread has evaluated"));
  own.Discard();
  other.join();
  EXPECT_EQ(Evaluate(domain, 2, {}, "b").variables(), 1U);
}

TEST_F(DomainTest, ClosingWritesAndNothingGoesOnAfterwards) {
  const std::vector<std::function<void(Domain&)>> kWays = {
      [](Domain& domain) { EXPECT_EQ(domain.Close().text, ""); },
      [](Domain& domain) { const Domain gone = std::move(domain); },
      [](Domain& domain) { domain = Domain(); },
      [](Domain& domain) {  // a run that outlives its domain is written when it is stored
        Findings late = Evaluate(domain, 1, kUnstored);
        EXPECT_EQ(domain.Close().text, "");
        EXPECT_EQ(late.Store().text, "");
      },
      [](Domain& domain) {
        domain.Release();
        DBWriteWrapper::Instance()->ForceWriteDisk();  // as the worker does
      },
  };
  for (std::size_t way = 0; way < kWays.size(); ++way) {
    SCOPED_TRACE(way);
    Domain domain = Opened();
    Domain second = OpenedAgain();
    EXPECT_EQ(domain.Open({.id = id_}).kind, Kind::kState);
    EXPECT_EQ(Evaluate(domain, 0).variables(), 1U);
    EXPECT_EQ(Evaluate(second, 0).repeated() + Evaluate(second, 0).repeated(), 2U);
    kWays[way](domain);
    EXPECT_FALSE(Stored().empty());
    EXPECT_EQ(domain.Close().text, "");
    for (const DomainFault& fault :
         {domain.Flush(), domain.Reload(), domain.Define("s", "v", KSDataInt64),
          Evaluate(domain, 3).fault(), domain.EvaluateLine("{}").fault()}) {
      EXPECT_EQ(fault.kind, Kind::kState);
      EXPECT_THAT(fault.text, ::testing::AnyOf(HasSubstr("is closed"), HasSubstr("no domain")));
    }
    // The root is another's as long as anything is open.
    EXPECT_EQ(domain.Open({.root = "/elsewhere", .id = "x"}).kind, Kind::kState);
    EXPECT_EQ(second.Close().text, "");
    EXPECT_EQ(domain.Open({.id = id_, .create = false}).text, "");
    EXPECT_EQ(Evaluate(domain, 0).repeated(), 1U);  // known from its history
  }
  Domain none;
  EXPECT_EQ(none.Open({.id = "nowhere", .create = false}).kind, Kind::kDatabase);
  EXPECT_EQ(none.Open({.id = "nowhere", .settings = "{"}).kind, Kind::kInput);
}

TEST_F(DomainTest, WhatCannotBeWrittenIsToldAndKeptInMemory) {
  for (const std::size_t memory : {kMemory, std::size_t{1}, std::size_t{0}}) {
    SCOPED_TRACE(memory);
    Domain domain = Opened(memory);
    EXPECT_EQ(Evaluate(domain, 0).variables(), 1U);
    EXPECT_EQ(domain.Flush().text, "");
    const auto before = Stored();
    io_.FailAt(1, {.kind = IoFault::Kind::kFull, .forever = true});
    EXPECT_EQ(Evaluate(domain, 1).variables(), 1U);
    if (memory > 0) {
      const DomainFault fault = domain.Flush();
      EXPECT_EQ(fault.kind, Kind::kWrite);
      EXPECT_THAT(fault.text, HasSubstr("KSObject"));
      EXPECT_EQ(domain.Close().kind, Kind::kWrite);  // and stays open
    } else {
      DBWriteWrapper::Instance()->ForceWriteDisk();  // as the worker does: its failure is told, too
    }
    io_.FailAt(0, {});
    EXPECT_EQ(domain.Flush().kind, memory == 0 ? Kind::kWrite : Kind::kNone);
    EXPECT_EQ(domain.Close().text, "");
    EXPECT_EQ(Stored() == before, memory == 0);  // where the rows could not be kept
  }
}

TEST_F(DomainTest, AChildOfAForkOpensItsOwn) {
  Domain domain = Opened();
  Findings held = Evaluate(domain, 0, kUnstored);
  std::thread waits([&] { EXPECT_EQ(Evaluate(domain, 1).variables(), 1U); });
  AwaitWaiting(UnitOf(domain, "bgp"), 1);
  const pid_t child = ::fork();
  if (child == 0) {
    int wrong = 0;
    for (const DomainFault& fault :
         {domain.Flush(), domain.Close(), Evaluate(domain, 2).fault(), held.Store()}) {
      wrong += fault.kind == Kind::kForked ? 0 : 1;
    }
    held = Findings();
    domain = Domain();
    domain = OpenedAgain();
    wrong += Evaluate(domain, 5).variables() == 1 && !domain.Close() ? 0 : 1;
    ::_exit(wrong);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(held.Store().text, "");
  waits.join();
}

}  // namespace
}  // namespace keelstone::testing
