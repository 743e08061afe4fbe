#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "keelstone/algorithm_manager.h"
#include "keelstone/compressor.h"
#include "keelstone/data_sync_manager.h"
#include "keelstone/ini_reader.h"
#include "keelstone/json_reader.h"
#include "keelstone/text_rule_data.h"
#include "model/rules/regex_rule.h"
#include "tests/engine/evaluated_unit.h"
#include "tests/support/file_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/tuned_domain.h"

namespace keelstone::testing {
namespace {

std::string Say(bool answer) { return answer ? "true" : "false"; }

/// A domain with a definition of `v`, and the calls that docs/bad-inputs.md lists.
class BadCalls : public ::testing::Test {
 protected:
  BadCalls() {
    domain_.files().AddVariableRule({.source = "src", .name = "v"});
    domain_.manager()->InvalidateKSVariableRuleCaches();
  }

  struct Row {
    std::string call, answer, log;
  };
  struct Call {
    const char* name;
    std::function<std::string()> run;
  };

  /// The rows of the document's table, without the quotes around their cells.
  static std::vector<Row> DocumentRows() {
    std::istringstream document(
        FileText(std::string(KEELSTONE_SOURCE_DIR) + "/docs/bad-inputs.md"));
    std::vector<Row> rows;
    std::string line;
    while (std::getline(document, line) && line != "## Calls of the library") {
    }
    while (std::getline(document, line)) {
      if (!line.starts_with("| ")) continue;
      std::vector<std::string> cells;
      for (std::size_t at = 2; at < line.size();) {
        const std::size_t end = std::min(line.find(" |", at), line.size());
        cells.push_back(line.substr(at, end - at));
        at = end + 3;
      }
      cells.resize(3);
      for (std::size_t cell : {1U, 2U})
        std::erase_if(cells[cell], [](char c) { return c == '`' || c == '|'; });
      if (cells[0] != "call") rows.push_back({cells[0], cells[1], cells[2]});
    }
    return rows;
  }

  std::unique_ptr<KSRuleInstance> Instance(const std::string& domainId) const {
    return std::make_unique<KSRuleInstance>("src", "node", "r1", "schema", "structure", "prm",
                                            domainId, "", 1700000000, true);
  }
  std::string Process(const VarInfo& variable) const {
    const auto instance = unit_.Start(1700000000, true);
    return Finish(*instance, variable);
  }
  std::string ProcessWith(RuleDefinitionData definition, const std::string& history = {}) const {
    const auto instance = Instance(domain_.id());
    definition.variableType = 1;
    instance->SetCacheData({{"", {{"v", std::make_shared<RuleDefinitionData>(definition)}}}});
    instance->SetHistoryData({{"", {{"v", history}}}});
    return Finish(*instance, Value("v", KSDataInt64, "5"));
  }
  std::string Finish(KSRuleInstance& instance, const VarInfo& variable) const {
    const std::string answer = Say(instance.ProcessVariable(variable));
    unit_.Finish(instance);
    return answer;
  }
  std::string Path(const std::string& name) const {
    return VXFileSystem::GetSystemRootFolder() + name;
  }
  std::string Delivered(const std::string& text) const {
    std::ofstream(Path("delivered.db")) << text;
    return Path("delivered.db");
  }

  std::vector<Call> Calls();
  std::vector<Call> CallsOfInstances();
  std::vector<Call> CallsOfStorage();
  std::vector<Call> CallsOfTheRest();

  TunedDomain domain_;
  Unit unit_{domain_.id()};
};

std::vector<BadCalls::Call> BadCalls::CallsOfInstances() {
  const RuleDefinitionData fixed(kIntLEQ, kRulePrescribed, R"({"ruleParam":80})");
  return {
      {"value of a variable without definition",
       [=, this] { return Process(Value("w", KSDataInt64, "5")); }},
      {"value without `InitCacheData` and `InitHistoryData`",
       [=, this] { return Finish(*Instance(domain_.id()), Value("v", KSDataInt64, "5")); }},
      {"value of type code 7 where the definition says 1",
       [=, this] { return Process(Value("v", KSDataInt64, "5", "", 7)); }},
      {"value of data type 0", [=, this] { return Process(Value("v", 0, "5")); }},
      {"value of data type -1", [=, this] { return Process(Value("v", -1, "5")); }},
      {"int64 value \"five\"", [=, this] { return Process(Value("v", KSDataInt64, "five")); }},
      {"float value \"1e39\"", [=, this] { return Process(Value("v", KSDataFloat, "1e39")); }},
      {"double value \"nan\"", [=, this] { return Process(Value("v", KSDataDouble, "nan")); }},
      {"value of an instance of a domain without files",
       [=, this] { return Finish(*Instance("no such"), Value("v", KSDataInt64, "5")); }},
      {"value with a definition of rule type 99",
       [=, this] { return ProcessWith({99, kRulePrescribed, "{}"}); }},
      {"value with a parameter that is no JSON",
       [=, this] { return ProcessWith({kIntLEQ, kRulePrescribed, "{"}); }},
      {"value with a history that is no JSON", [=, this] { return ProcessWith(fixed, "[1"); }},
      {"`SerializeLocalDB` of an instance that evaluated nothing",
       [=, this] {
         Instance(domain_.id())->SerializeLocalDB();
         return "nothing";
       }},
      {"`SetCacheData` with an empty pointer",
       [=, this] {
         const auto instance = Instance("no such");
         instance->SetCacheData({{"", {{"v", nullptr}}}});
         return Finish(*instance, Value("v", KSDataInt64, "5"));
       }},
  };
}

std::vector<BadCalls::Call> BadCalls::CallsOfStorage() {
  auto* const merges = FSKSDataSyncManager::Instance();
  const auto manager = domain_.manager();
  const std::string id = domain_.id();
  const std::string rules = domain_.files().Path(kDbVariableRule);
  const std::string to = Path("to.db");
  return {
      {"`MergeGlobalSetting` from a file that is missing",
       [=] { return Say(merges->MergeGlobalSetting("/no such file", to, id, true)); }},
      {"`MergeVariableRule` from the destination itself",
       [=] { return Say(merges->MergeVariableRule(rules, rules, id, true)); }},
      {"`MergeBlockSetting` without a destination",
       [=] { return Say(merges->MergeBlockSetting(rules, "", id, true)); }},
      {"`MergeObjectRule` from a text",
       [=, this] {
         const std::string from = Delivered(std::string(1000, 'x'));
         return Say(merges->MergeObjectRule(from, to, id, true));
       }},
      {"`MergeInterfaceType` from a database of something else",
       [=] { return Say(merges->MergeInterfaceType(rules, to, id, true)); }},
      {"`GetRuleDefinitionDataByDev` without an object",
       [=] {
         DevParserRule none;
         return std::to_string(manager->GetRuleDefinitionDataByDev(none, nullptr, "src", "prm",
                                                                   kVariableSourceParser));
       }},
      {"`RemoveRuleDefinitionData` without an object",
       [=] {
         return std::to_string(
             manager->RemoveRuleDefinitionData(nullptr, "src", "v", "prm", kVariableSourceParser));
       }},
      {"`SetRuleAlgParam` with an empty pointer",
       [=, this] {
         const ObjectDefine object = unit_.Object();
         return std::to_string(manager->SetRuleAlgParam({{"v", nullptr}}, &object, "src", "prm",
                                                        kVariableSourceParser));
       }},
      {"`GetKSDataManager` of an empty id",
       [] {
         const auto found = KSDomainDataManager::Instance()->GetKSDataManager("");
         return found ? "a manager" : "empty";
       }},
      {"`IniReader::SetInt` where the file is a folder",
       [=, this] {
         std::filesystem::create_directories(Path("conf/fix_frontserver.ini"));
         return Say(IniReader::SetInt("Keelstone", "CacheSize", 5, "fix_frontserver.ini"));
       }},
  };
}

std::vector<BadCalls::Call> BadCalls::CallsOfTheRest() {
  return {
      {"`GetDBFile` of type 99",
       [] { return '"' + FSResFileSystem("/data").GetDBFile(99, "d") + '"'; }},
      {"`GetDBFile` of the domain \"../../etc\"",
       [] {
         const std::filesystem::path file =
             FSResFileSystem("/data").GetDBFile(kDbObjectRule, "../../etc");
         return file.filename().string() + " below " + file.parent_path().filename().string();
       }},
      {"`LoadKeyString` of \"a$$$b\"", [] { return Say(UnitKey().LoadKeyString("a$$$b")); }},
      {"`GetRuleByType` of rule type 99",
       [] {
         const auto rule = KSRuleAlgMgr::Instance()->GetRuleByType(
             KSAlgNumerical, static_cast<EnumRuleType>(99), KSDataInt64);
         return rule ? "a rule" : "empty";
       }},
      {"`KSRuleGlobalSetting` of \"{\"",
       [] { return KSRuleGlobalSetting(std::string("{")).empty() ? "empty" : "something"; }},
      {"`IntHistoryData::FromString` of a history of strings",
       [] { return Say(IntHistoryData().FromString(R"({"dataType":4,"dataList":[]})")); }},
      {"`ParseParam` of \"[1\"", [] { return Say(StrEqualData().ParseParam("[1")); }},
      {"`StrIsMatch` with the pattern \"(\"",
       [] { return Say(KSStrRegexRule::StrIsMatch("(", "(")); }},
      {"`StrIsMatch` with the pattern \"(?>(*ACCEPT)a)*\"",
       [] { return Say(KSStrRegexRule::StrIsMatch("a", "(?>(*ACCEPT)a)*")); }},
      {"`StrIsMatch` with the pattern \"(a(?1)?b)\"",
       [] { return Say(KSStrRegexRule::StrIsMatch("ab", "(a(?1)?b)")); }},
      {"`StrIsMatch` with the pattern \"(?:(*PRUNE)a)*\"",
       [] { return Say(KSStrRegexRule::StrIsMatch("a", "(?:(*PRUNE)a)*")); }},
      {"`StrIsMatch` with a pattern of 1 MiB",
       [] { return Say(KSStrRegexRule::StrIsMatch("", std::string(1U << 20U, '?'))); }},
      {"`JsonReader::Parse` of 100000 \"[\"",
       [] {
         JsonValue value;
         JsonParseError error;
         return JsonReader::Parse(std::string(100000, '['), value, &error) ? "taken"
                                                                           : error.message;
       }},
      {"`asInt` of a string",
       [] {
         try {
           return std::to_string(JsonValue("5").asInt());
         } catch (const JsonError& error) {
           return std::string("JsonError: ") + error.what();
         }
       }},
      {"`DecompressString` of 16 bytes that claim a terabyte",
       [] {
         std::string claim("\x28\xB5\x2F\xFD\xE0\0\0\0\0\0\1\0\0\1\0\0", 16);
         return Say(DecompressString(claim, std::int64_t{1} << 40));
       }},
      {"`LoadFromJson` of an array of results",
       [] { return Say(KSRuleUpdateResultData().LoadFromJson(JsonValue(JsonType::Array))); }},
      {"`LoadFromJson` of results with an object for a list",
       [] {
         JsonValue document;
         document["ruleItems"] = JsonValue(JsonType::Object);
         return Say(KSRuleUpdateResultData().LoadFromJson(document));
       }},
  };
}

std::vector<BadCalls::Call> BadCalls::Calls() {
  std::vector<Call> calls = CallsOfInstances();
  for (const auto& more : {CallsOfStorage(), CallsOfTheRest()}) {
    calls.insert(calls.end(), more.begin(), more.end());
  }
  return calls;
}

TEST_F(BadCalls, AnswerAsTheDocumentSaysAndKeepNothing) {
  const std::vector<Row> rows = DocumentRows();
  const std::vector<Call> calls = Calls();
  ASSERT_EQ(rows.size(), calls.size());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.call);
    const auto call = std::find_if(calls.begin(), calls.end(),
                                   [&](const Call& known) { return known.name == row.call; });
    ASSERT_NE(call, calls.end());
    const LogCapture log(kLogInformation);
    EXPECT_EQ(call->run(), row.answer);
    const auto lines = log.Lines();
    const bool isLogged = std::any_of(lines.begin(), lines.end(), [&](const auto& line) {
      return line.message.find(row.log) != std::string::npos;
    });
    const bool isQuiet = std::none_of(lines.begin(), lines.end(),
                                      [](const auto& line) { return line.level >= kLogError; });
    EXPECT_TRUE(row.log.empty() ? isQuiet : isLogged) << (lines.empty() ? "" : lines[0].message);
    EXPECT_EQ(domain_.files().Select(kDbObjectRule, "select count(*) from KSObjectRule")[0], "0");
    EXPECT_EQ(domain_.files().Select(kDbObjectHistory, "select count(*) from KSObjectHistory")[0],
              "0");
  }
}

}  // namespace
}  // namespace keelstone::testing
