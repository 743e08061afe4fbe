#include <gtest/gtest.h>

#include <random>
#include <set>
#include <tuple>

#include "keelstone/object_rule_table.h"
#include "tests/storage/storage_fixture.h"
#include "tests/support/temp_root.h"

// Random operations on the two tables and on two plain maps must leave the same.
namespace keelstone::testing {
namespace {

// device, interface, source, param, variable
using Key = std::tuple<std::string, std::string, std::string, std::string, std::string>;

const std::vector<std::string> kDevices = {"d1", "d'2"};
const std::vector<std::string> kInterfaces = {"", "eth0", "\xC3\xA9th1"};
const std::vector<std::string> kSources = {"s1", "S1", "s 2"};
const std::vector<std::string> kParams = {"", "p"};
const std::vector<std::string> kVariables = {"a", "b", ""};
constexpr auto kParser = kVariableSourceParser;

class ObjectRuleModel : public ::testing::Test {
 protected:
  ObjectRuleModel() {
    table.InitDB("domain");
    Execute(table.GetDBFile(kDbObjectRule), {kCreateRuleTable});
  }

  const std::string& Pick(const std::vector<std::string>& from) {
    return from[random() % from.size()];
  }
  Key AnyKey() {
    return {Pick(kDevices), Pick(kInterfaces), Pick(kSources), Pick(kParams), Pick(kVariables)};
  }

  void WriteRules() {
    std::vector<ObjectRuleData> rows;
    for (int i = 0; i < 8; ++i) {
      const Key key = AnyKey();
      const auto& [device, interface, source, param, variable] = key;
      const std::string text = std::to_string(random());
      const std::string history = random() % 2 == 0 ? "h" + text : "";
      rows.push_back({{{variable, Definition(text, history)}},
                      Object(device, interface),
                      source,
                      param,
                      kParser});
      // What follows from the text must never be what another row of the write had.
      rows.back().definitions[variable]->variableType = TypeOf(text);
      if (text.back() % 2 == 0) rows.back().object.nodePathSchema = "schema of " + text;
      rules[key] = text;
      if (!history.empty()) histories[key] = history;
    }
    EXPECT_EQ(table.SetRuleAlgParam(rows), -1);
  }
  void WriteHistories() {
    const Key key = AnyKey();
    const auto& [device, interface, source, param, variable] = key;
    const ObjectDefine object = Object(device, interface);
    histories[key] = std::string("nul\0 ", 5) + std::to_string(random());
    table.SetRuleHistoryData(histories[key], &object, source, variable, param, kParser);
  }
  void RemoveVariable() {
    const Key key = AnyKey();
    const auto& [device, interface, source, param, variable] = key;
    const ObjectDefine object = Object(device, interface);
    EXPECT_EQ(table.RemoveRuleDefinitionData(&object, source, variable, param, kParser), -1);
    rules.erase(key);
    histories.erase(key);
  }
  void RemoveObject() {
    const auto& [device, interface, source, param, variable] = AnyKey();
    const ObjectDefine object = Object(device, interface);
    EXPECT_EQ(table.RemoveRuleDefinitionDataNoVar(&object, source, param, kParser), -1);
    for (const std::string& name : kVariables) {
      rules.erase({device, interface, source, param, name});
      histories.erase({device, interface, source, param, name});
    }
  }
  void RemoveSources() {
    const std::string kept = Pick(kSources);
    std::set<std::string> ruled;
    for (const auto& entry : rules) ruled.insert(std::get<2>(entry.first));
    EXPECT_EQ(table.RemoveRuleDefinitionNoExistSource({kept}, kParser), -1);
    // Sources are taken from the rules: one that has histories only is not seen.
    const auto gone = [&](const auto& entry) {
      const std::string& source = std::get<2>(entry.first);
      return source != kept && ruled.count(source) != 0;
    };
    std::erase_if(rules, gone);
    std::erase_if(histories, gone);
  }

  static int TypeOf(const std::string& text) { return text.front() % 3; }

  // All units in one reading are what each is alone.
  void CompareBulk(const UnitKey& key, const DevParserRule& byDevice,
                   const DevParserHistory& texts) {
    std::vector<std::shared_ptr<UnitKey>> keys = {nullptr, std::make_shared<UnitKey>(key)};
    for (const std::string& device : kDevices) {
      for (const std::string& source : kSources) {
        for (const std::string& param : kParams) {
          keys.push_back(std::make_shared<UnitKey>(device, source, param));
        }
      }
    }
    std::map<std::string, std::shared_ptr<DevParserRule>> ruleUnits;
    std::map<std::string, std::shared_ptr<DevParserHistory>> textUnits;
    EXPECT_EQ(table.GetMultiRuleDefinitionDataByDevParsers(ruleUnits, keys, kParser), -1);
    table.GetMultiRuleHistoryDataBeDevParsers(textUnits, keys, kParser);
    const auto foundTexts = textUnits.find(key.GetKeyString());
    EXPECT_EQ(foundTexts == textUnits.end() ? DevParserHistory() : *foundTexts->second, texts);
    const auto foundRules = ruleUnits.find(key.GetKeyString());
    EXPECT_EQ(foundRules == ruleUnits.end() ? 0 : CountIn(*foundRules->second), CountIn(byDevice));
    std::size_t count = 0;
    for (const auto& unit : ruleUnits) count += CountIn(*unit.second);
    EXPECT_EQ(count, rules.size());
    EXPECT_EQ(Ask(table.GetDBFile(kDbObjectRule),
                  "select count(*) from KSObjectRule where vxNodePathSchema not in ('schema', "
                  "'schema of ' || ruleAlgParameter)"),
              "0");
  }

  void Compare() {
    const auto& [device, interface, source, param, variable] = AnyKey();
    const ObjectDefine object = Object(device, interface);
    const ObjectDefine whole = Object(device);
    RuleDefinitionMap byObject;
    DevParserRule byDevice;
    DevParserHistory texts;
    table.GetRuleDefinitionDataByDevInf(byObject, &object, source, param, kParser);
    table.GetRuleDefinitionDataByDev(byDevice, &object, source, param, kParser);
    table.GetRuleHistoryData(texts, &whole, source, param, kParser);
    CompareBulk({device, source, param}, byDevice, texts);
    std::size_t expectedRules = 0;
    std::size_t expectedTexts = 0;
    for (const std::string& port : kInterfaces) {
      for (const std::string& name : kVariables) {
        const Key key{device, port, source, param, name};
        const auto history = histories.find(key);
        if (history != histories.end()) {
          ++expectedTexts;
          EXPECT_EQ(texts[port][name], history->second);
        }
        const auto rule = rules.find(key);
        if (rule == rules.end()) continue;
        ++expectedRules;
        ASSERT_NE(byDevice[port][name], nullptr);
        EXPECT_EQ(byDevice[port][name]->ruleParam, rule->second);
        EXPECT_EQ(byDevice[port][name]->variableType, TypeOf(rule->second));
        if (port != interface) continue;
        ASSERT_NE(byObject[name], nullptr);
        EXPECT_EQ(byObject[name]->ruleParam, rule->second);
        EXPECT_EQ(byObject[name]->ruleType, kIntRange);
        EXPECT_EQ(byObject[name]->history, history == histories.end() ? "" : history->second);
      }
    }
    EXPECT_EQ(CountIn(byDevice), expectedRules);
    EXPECT_EQ(CountIn(texts), expectedTexts);
    EXPECT_EQ(table.IsExistRuleDefinitionByDevice(&object, source, param, kRuleLearned, kParser),
              expectedRules > 0);
    EXPECT_FALSE(
        table.IsExistRuleDefinitionByDevice(&object, source, param, kRulePrescribed, kParser));
  }
  template <class Unit>
  static std::size_t CountIn(const Unit& unit) {
    std::size_t count = 0;
    for (const auto& entry : unit) count += entry.second.size();
    return count;
  }

  TempRoot root;
  KSObjectRuleSql table{"/FSParserData"};
  std::mt19937 random{20240229};
  std::map<Key, std::string> rules;
  std::map<Key, std::string> histories;
};

TEST_F(ObjectRuleModel, TablesHoldWhatPlainMapsHold) {
  for (int step = 0; step < 300 && !HasFailure(); ++step) {
    switch (random() % 12) {
      case 0:
        RemoveVariable();
        break;
      case 1:
        RemoveObject();
        break;
      case 2:
        if (step % 5 == 0) RemoveSources();
        break;
      case 3:
      case 4:
        WriteHistories();
        break;
      default:
        WriteRules();
    }
    Compare();
  }
  EXPECT_GT(rules.size(), 10U);
}

}  // namespace
}  // namespace keelstone::testing
