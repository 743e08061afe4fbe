#include "program/evaluate/result_output.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <string>

#include "keelstone/text_escape.h"

namespace keelstone::host {
namespace {

using ::testing::HasSubstr;

ParsedRun SomeRun() {
  ParsedRun run;
  run.time = 1700000000;
  run.domain = "d\n";
  run.device = "r1";
  run.source = "bgp";
  return run;
}

/// The text of one value that breaks its rule, then of one that fits, then of the end.
std::string Told(const std::string& interface, const std::string& value) {
  ParsedRun run = SomeRun();
  VarInfo& variable = run.variables.emplace_back();
  variable.variableName = "peers";
  variable.interfaceValue = interface;
  variable.dataType = KSDataString;
  variable.valueText = value;
  AlertBook book;
  RunOutcome outcome;
  outcome.results = std::make_shared<KSRuleUpdateResultData>();
  outcome.judged = {{0, true}};
  KSAlertExplanation& alert = outcome.explanations.emplace_back();
  alert.dataType = KSDataString;
  alert.observed = value;
  alert.expected = KSExpectation::Of(kStrEqual, R"({"ruleParam":"up"})");
  std::string text = TextOutput(run, outcome, book.Take(run, outcome));
  text += TextOutput(run, outcome, book.Take(run, outcome));  // counted, not told
  for (const auto& [key, episode] : book.Open()) text += OpenEpisodeLine(key, episode);
  outcome.judged = {{0, false}};
  outcome.explanations.clear();
  run.time += 60;
  return text + TextOutput(run, outcome, book.Take(run, outcome));
}

TEST(ResultOutput, TextShowsNoTerminalWhatADeviceSends) {
  const std::string text = Told("\x1b]0;x\x07", "a\nb\xC2\x9B\xE2\x80\xAE\xFF");
  EXPECT_THAT(text, HasSubstr("r1 \\x1b]0;x\\x07 bgp"));
  EXPECT_THAT(text, HasSubstr("is \"a\\nb\\xc2\\x9b\\xe2\\x80\\xae"));
  EXPECT_THAT(text, HasSubstr("with a\\nb\\xc2\\x9b\\xe2\\x80\\xae"));
  EXPECT_EQ(text.find_first_of("\x1b\x07\x9b"), std::string::npos);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
  EXPECT_EQ(Printable("é\xC0\x80x", 100), "é\\xc0\\x80x");
  EXPECT_EQ(Printable("abcdef", 3), "abc…");
}

}  // namespace
}  // namespace keelstone::host
