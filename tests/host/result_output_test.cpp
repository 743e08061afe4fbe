#include "host/result_output.h"

#include <gmock/gmock.h>

#include <string>

#include "platform/text_escape.h"

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

RunOutcome WithAlert(const std::string& interface, const std::string& valueText) {
  RunOutcome outcome;
  outcome.variables = 1;
  outcome.results = std::make_shared<KSRuleUpdateResultData>();
  auto alert = std::make_shared<KSAlertData>();
  alert->SetInterfaceValue(interface);
  alert->SetVaraibleName("peers");
  JsonValue info;
  info["_t"] = 7;
  info["_p"] = R"({"maxValue":16,"minValue":4})";
  info["_v"] = valueText;
  alert->SetAlertInfo(info.toString());
  outcome.results->AddKSAlertResultItem(alert);
  return outcome;
}

TEST(ResultOutput, TextTellsAnAlertInOneLine) {
  EXPECT_EQ(TextOutput(SomeRun(), WithAlert("eth0", "90")),
            "2023-11-14 22:13:20Z ALERT  r1 eth0 bgp peers = 90: expected between 4 and 16\n");
}

TEST(ResultOutput, TextShowsNoTerminalWhatADeviceSends) {
  const std::string text =
      TextOutput(SomeRun(), WithAlert("\x1b]0;x\x07", "a\nb\xC2\x9B\xE2\x80\xAE\xFF"));
  EXPECT_THAT(text, HasSubstr("r1 \\x1b]0;x\\x07 bgp"));
  EXPECT_THAT(text, HasSubstr("a\\nb\\xc2\\x9b\\xe2\\x80\\xae"));
  EXPECT_EQ(text.find_first_of("\x1b\x07\x9b"), std::string::npos);
  EXPECT_EQ(text.find('\n'), text.size() - 1);
  EXPECT_EQ(Printable("é\xC0\x80x", 100), "é\\xc0\\x80x");
  EXPECT_EQ(Printable("abcdef", 3), "abc…");
}

}  // namespace
}  // namespace keelstone::host
