#include "program/evaluate/alert_book.h"

#include <gtest/gtest.h>

#include <string>

namespace keelstone::host {
namespace {

ParsedRun RunAt(std::int32_t time) {
  ParsedRun run;
  run.time = time;
  run.domain = "d";
  run.device = "r1";
  run.source = "s";
  run.variables.resize(2);
  run.variables[0].variableName = "v";
  run.variables[1].variableName = "w";
  return run;
}

RunOutcome Learned(const std::string& parameter, bool isLearned = true) {
  RunOutcome outcome;
  outcome.results = std::make_shared<KSRuleUpdateResultData>();
  auto item = std::make_shared<KSRuleUpdateResultItem>();
  item->nRuleId = kIntEqual;
  item->strVariableName = "v";
  item->strRuleAlgParam = parameter;
  item->isLearned = isLearned;
  outcome.results->AddKSRuleUpdateResultItem(item);
  return outcome;
}

RunOutcome Alerting(const std::string& parameter, const std::string& variable = "v",
                    int generateType = kRuleLearned) {
  RunOutcome outcome;
  outcome.judged = {{variable == "v" ? 0U : 1U, true}};
  KSAlertExplanation& alert = outcome.explanations.emplace_back();
  alert.variableName = variable;
  alert.ruleType = kIntEqual;
  alert.ruleParam = parameter;
  alert.ruleGenerateType = generateType;
  return outcome;
}

TEST(AlertBook, KnowsWhenARuleWasLearnedWhileThatRuleIsInForce) {
  AlertBook book;
  const auto timeOf = [&book](RunOutcome outcome) {
    book.Take(RunAt(90), outcome);
    return outcome.explanations[0].learnedTime;
  };
  EXPECT_FALSE(timeOf(Alerting("12")));
  RunOutcome takenOver = Learned("12", false);
  book.Take(RunAt(40), takenOver);
  EXPECT_FALSE(timeOf(Alerting("12")));
  RunOutcome learned = Learned("12");
  book.Take(RunAt(50), learned);
  EXPECT_EQ(timeOf(Alerting("12")), 50);
  EXPECT_FALSE(timeOf(Alerting("13")));  // somebody has put another in its place
  EXPECT_FALSE(timeOf(Alerting("12", "w")));
  EXPECT_FALSE(timeOf(Alerting("12", "v", kRulePrescribed)));
  learned = Learned("13");
  book.Take(RunAt(60), learned);
  EXPECT_EQ(timeOf(Alerting("13")), 60);
}

TEST(AlertBook, TellsWhatEachValueDidToTheEpisodes) {
  AlertBook book;
  RunOutcome both = Alerting("12", "v");
  both.judged.push_back({1, true});
  both.explanations.push_back(Alerting("9", "w").explanations[0]);
  auto changes = book.Take(RunAt(10), both);
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[1].step, EpisodeStep::kOpened);
  EXPECT_EQ(changes[1].variable, 1U);
  EXPECT_EQ(changes[1].explanation, 1U);

  // A variable that stands twice in a run: it breaks, then it fits.
  RunOutcome twice = Alerting("12", "v");
  twice.judged.push_back({0, false});
  changes = book.Take(RunAt(20), twice);
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0].step, EpisodeStep::kContinued);
  EXPECT_EQ(changes[1].step, EpisodeStep::kCleared);
  EXPECT_EQ(changes[1].episode.count, 2U);

  // What was not judged leaves an episode open.
  RunOutcome nothing;
  EXPECT_TRUE(book.Take(RunAt(30), nothing).empty());
  const auto open = book.Open();
  ASSERT_EQ(open.size(), 1U);
  EXPECT_EQ(open[0].first.variable, "w");
  EXPECT_EQ(open[0].second.note, both.explanations[1].Predicate());
}

}  // namespace
}  // namespace keelstone::host
