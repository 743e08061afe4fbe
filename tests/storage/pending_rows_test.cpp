#include "storage/pending/pending_rows.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <tuple>

#include "tests/storage/storage_fixture.h"

namespace keelstone::testing {
namespace {

// The rows as a plain list in order of arrival, walked from the oldest.
struct Listed {
  std::string unit;
  std::string interface;
  std::string variable;
  std::shared_ptr<RuleDefinitionData> definition;  // else it is a history row
  std::string history;
};

class PendingRowsBesideAList : public ::testing::TestWithParam<unsigned> {
 protected:
  std::string Pick(const char* prefix, unsigned count) {
    return prefix + std::to_string(random() % count);
  }

  void AddRows() {
    const std::string unit = Pick("unit", 3);
    std::vector<ObjectRuleData> rules;
    std::vector<ObjectRuleHistoryData> history;
    for (auto i = random() % 40; i > 0; --i) {
      Listed row{unit, Pick("eth", 3), Pick("v", 20), nullptr, {}};
      if (random() % 2 == 0) {
        row.history = std::to_string(++texts);
        history.push_back(HistoryRow(unit, row.variable, row.history, row.interface));
        arrived.push_back(row);
        continue;
      }
      rules.push_back(RuleRow(unit, row.variable, nullptr, row.interface));
      rules.back().definitions.clear();
      for (auto variables = random() % 3; variables > 0; --variables) {
        row.variable = Pick("v", 20);
        row.definition = random() % 8 == 0 ? nullptr : Definition(std::to_string(++texts));
        if (!rules.back().definitions.emplace(row.variable, row.definition).second) continue;
        if (row.definition) arrived.push_back(row);
      }
    }
    rows.Add("domain", unit, std::move(rules), std::move(history));
  }

  void ExpectTheSameAnswers() const {
    for (const char* unit : {"unit0", "unit1", "unit2", "unit3"}) {
      bool hasUnit = false;
      for (int interface = 0; interface < 3; ++interface) {
        for (int variable = 0; variable < 20; ++variable) {
          const std::string eth = "eth" + std::to_string(interface);
          const std::string name = "v" + std::to_string(variable);
          const PendingKey key{eth, "source", "param", name};
          const Listed* definition = nullptr;
          const Listed* history = nullptr;
          for (const auto& row : arrived) {
            if (row.unit != unit || row.interface != eth || row.variable != name) continue;
            const Listed*& first = row.definition ? definition : history;
            if (first == nullptr) first = &row;
          }
          hasUnit = hasUnit || definition != nullptr || history != nullptr;
          EXPECT_EQ(rows.FindDefinition("domain", unit, key),
                    definition != nullptr ? definition->definition : nullptr);
          std::string text;
          EXPECT_EQ(rows.FindHistory("domain", unit, key, text), history != nullptr);
          EXPECT_EQ(text, history != nullptr ? history->history : "");
        }
      }
      EXPECT_TRUE(!hasUnit || rows.HasUnit("domain", unit));
      EXPECT_TRUE(!hasUnit || rows.UnitCounter("domain", unit) != 0);
    }
  }

  // Takes the oldest generation off, and with it what arrived before it was sealed.
  void FlushOldest(std::uint64_t last) {
    PendingRows::Flush flush(rows, "domain", last);
    const PendingGeneration* generation = flush.Oldest();
    ASSERT_NE(generation, nullptr);
    ExpectLastWins(*generation);
    flush.DropOldest();
    arrived.erase(arrived.begin(), arrived.begin() + static_cast<std::ptrdiff_t>(sealed.front()));
    sealed.erase(sealed.begin());
  }

  // Written one after the other the rows leave what the list would leave, and come in order
  // of their units.
  void ExpectLastWins(const PendingGeneration& generation) const {
    using Key = std::tuple<std::string, std::string, std::string>;
    std::map<Key, std::string> written;
    std::map<Key, std::string> expected;
    const std::string* last = nullptr;
    for (const ObjectRuleData* row : generation.RuleRows()) {
      for (const auto& [name, definition] : row->definitions) {
        if (definition)
          written[{row->object.deviceName, row->object.interfaceValue, name}] =
              definition->ruleParam;
      }
      EXPECT_TRUE(last == nullptr || *last <= row->object.deviceName);
      last = &row->object.deviceName;
    }
    for (const ObjectRuleHistoryData* row : generation.HistoryRows()) {
      written[{row->object.deviceName, row->object.interfaceValue,
               "history of " + row->variableName}] = row->history;
    }
    for (std::size_t i = 0; i < sealed.front(); ++i) {
      const Listed& row = arrived[i];
      if (row.definition) {
        expected[{row.unit, row.interface, row.variable}] = row.definition->ruleParam;
      } else {
        expected[{row.unit, row.interface, "history of " + row.variable}] = row.history;
      }
    }
    EXPECT_EQ(written, expected);
  }

  PendingRows rows;
  std::vector<Listed> arrived;      // and not flushed
  std::vector<std::size_t> sealed;  // rows of each sealed generation, oldest first
  std::uint64_t newest = 0;         // number of the newest sealed generation
  std::mt19937 random{GetParam()};
  int texts = 0;
};

TEST_P(PendingRowsBesideAList, EveryLookupAnswersWhatAWalkFromTheOldestWould) {
  for (int step = 0; step < 60; ++step) {
    const auto what = random() % 6;
    if (what == 0) {
      std::size_t before = 0;
      for (const std::size_t count : sealed) before += count;
      if (const std::uint64_t last = rows.Seal("domain"); last > newest) {
        newest = last;
        sealed.push_back(arrived.size() - before);
      }
    } else if (what == 1 && !sealed.empty()) {
      FlushOldest(newest);
    } else {
      AddRows();
    }
    ExpectTheSameAnswers();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, PendingRowsBesideAList, ::testing::Range(1U, 9U));

}  // namespace
}  // namespace keelstone::testing
