#include "keelstone/run_line.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace keelstone {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string Line(const std::string& variable) {
  return R"({"time":5,"device":"d","source":"s","variables":[)" + variable + "]}";
}

struct Outcome {
  ParsedRun run;
  std::string fault;  // empty: the line was read
};

Outcome ReadLine(const std::string& line) {
  RunLineReader reader("home");
  Outcome outcome;
  if (!reader.Read(line, outcome.run)) outcome.fault = reader.fault();
  return outcome;
}

TEST(RunLine, TakesEveryFieldOrItsDefault) {
  const auto full = ReadLine(
      R"({"time":-7,"domain":"x","device":"d\u0000e","source":"s","param":"p","nodeId":"n",)"
      R"("nodePathSchema":"np","structureId":"st","onDemand":true,"extra":{"time":1},)"
      R"("variables":[{"name":"v","interface":"i","interfacePath":"ip","value":1,"typeCode":77}]})");
  ASSERT_EQ(full.fault, "");
  EXPECT_EQ(full.run.time, -7);
  EXPECT_EQ(full.run.domain, "x");
  EXPECT_EQ(full.run.device, std::string("d\0e", 3));
  EXPECT_EQ(full.run.param + full.run.nodeId + full.run.nodePathSchema + full.run.structureId,
            "pnnpst");
  EXPECT_TRUE(full.run.onDemand);
  ASSERT_EQ(full.run.variables.size(), 1U);
  const VarInfo& variable = full.run.variables[0];
  EXPECT_EQ(variable.variableName + variable.interfaceValue + variable.interfacePath, "viip");
  EXPECT_EQ(variable.variableType, 77);

  const auto sparse = ReadLine(R"({"time":2147483647,"device":"","source":"","variables":[]})");
  ASSERT_EQ(sparse.fault, "");
  EXPECT_EQ(sparse.run.domain, "home");
  EXPECT_FALSE(sparse.run.onDemand);
}

TEST(RunLine, GivesEachValueItsTypeCodeAndText) {
  struct Case {
    const char* fields;
    EnumKSDataType dataType;
    int typeCode;
    const char* text;
  };
  const std::vector<Case> cases = {
      {R"("value":12)", KSDataInt64, 1, "12"},
      {R"("value":-0)", KSDataInt64, 1, "-0"},
      {R"("value":9223372036854775807)", KSDataInt64, 1, "9223372036854775807"},
      {R"("value":9223372036854775808)", KSDataDouble, 2, "9223372036854775808"},
      {R"("value":-9223372036854775809)", KSDataDouble, 2, "-9223372036854775809"},
      {R"("value":1.0)", KSDataDouble, 2, "1.0"},
      {R"("value":1e2)", KSDataDouble, 2, "1e2"},
      {R"("value":1E999)", KSDataDouble, 2, "1E999"},
      {R"("value":" up ")", KSDataString, 3, " up "},
      {R"("value":true)", KSDataString, 3, "true"},
      {R"("value":false)", KSDataString, 3, "false"},
      {R"("value":true,"type":"int64")", KSDataInt64, 1, "1"},
      {R"("value":false,"type":"double")", KSDataDouble, 2, "0"},
      {R"("value":"-12.50e+1","type":"float")", KSDataFloat, 25, "-12.50e+1"},
      {R"("value":"0","type":"int64")", KSDataInt64, 1, "0"},
      {R"("value":7,"type":"double")", KSDataDouble, 2, "7"},
      {R"("value":7.50,"type":"string")", KSDataString, 3, "7.50"},
      {R"("value":"x","type":"string","typeCode":-2147483648)", KSDataString, -2147483648, "x"},
      {R"("value":"bad","value":4)", KSDataInt64, 1, "4"},
      {R"("type":5,"value":4,"type":"double")", KSDataDouble, 2, "4"},
  };
  for (const Case& c : cases) {
    const auto outcome = ReadLine(Line(std::string(R"({"name":"v",)") + c.fields + "}"));
    ASSERT_EQ(outcome.fault, "") << c.fields;
    ASSERT_EQ(outcome.run.variables.size(), 1U) << c.fields;
    EXPECT_EQ(outcome.run.variables[0].dataType, c.dataType) << c.fields;
    EXPECT_EQ(outcome.run.variables[0].variableType, c.typeCode) << c.fields;
    EXPECT_EQ(outcome.run.variables[0].valueText, c.text) << c.fields;
  }
}

TEST(RunLine, TakesOnlyNumbersInTheGrammarOfJson) {
  for (const char* text : {"0", "-0", "10", "-1.5", "1e5", "1E+05", "0.10e-7"}) {
    EXPECT_TRUE(IsNumberText(text)) << text;
  }
  for (const char* text : {"", "-", "+1", "01", ".5", "1.", "1e", "1e+", "0x1F", "nan", "inf", " 1",
                           "1 ", "1,5", "--1", "1\n"}) {
    EXPECT_FALSE(IsNumberText(text)) << text;
    std::string variable = R"({"name":"a","type":"double","value":")";
    variable.append(text).append("\"}");
    EXPECT_NE(ReadLine(Line(variable)).fault, "") << text;
  }
}

TEST(RunLine, KeepsControlCharactersOutOfFaults) {
  const auto outcome = ReadLine(Line(R"({"name":"a","type":"\u001b[2J\u202e","value":1})"));
  EXPECT_THAT(outcome.fault, HasSubstr("\\x1b[2J"));
  EXPECT_EQ(outcome.fault.find('\x1b'), std::string::npos);
}

/// All that a run holds.
std::string TextOf(const ParsedRun& run) {
  std::string text;
  const auto add = [&](const auto&... parts) {
    ((text += testing::PrintToString(parts) + "|"), ...);
  };
  add(run.time, run.domain, run.device, run.source, run.param, run.nodeId, run.nodePathSchema,
      run.structureId, run.onDemand, run.unread);
  for (const VarInfo& variable : run.variables) {
    add(variable.variableName, variable.dataType, variable.variableType, variable.interfacePath,
        variable.interfaceValue, variable.value.toString(), variable.tableKeys, variable.tableFlag,
        variable.valueText);
  }
  return text;
}

/// An object of a few of these members, one of them changed at random.
std::string RandomObject(std::mt19937& random, std::vector<std::string> members) {
  std::shuffle(members.begin(), members.end(), random);
  if (random() % 4 == 0) members.resize(random() % members.size());
  if (random() % 8 == 0 && !members.empty()) {
    std::string& member = members[random() % members.size()];
    static constexpr std::string_view kBytes = "\"\\{}[],: \t\n019-+.eEtfnu\x80\xC3";
    member[random() % member.size()] = kBytes[random() % kBytes.size()];
  }
  std::string text = "{";
  for (const std::string& member : members) {
    text += (text.size() > 1 ? random() % 9 == 0 ? " , " : "," : "") + member;
  }
  return text + "}";
}

TEST(RunLine, ReadsPlainLinesAsAnyOtherJson) {
  const std::vector<std::string> values = {
      "1",           "-0",    "0.5",    "1e999",        "9223372036854775808",
      "true",        "null",  "\"up\"", "\"\xC3\xA9\"", "\"a\\tb\"",
      "[{\"a\":1}]", "\"7\"", "{}",     "01",           "\"long enough for many bytes at once\""};
  const std::vector<std::string> types = {"int64", "float", "double", "string", "table", "other"};
  std::mt19937 random(7);
  ParsedRun run;  // used again and again
  int plain = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::string list = "[";
    for (std::size_t i = random() % 4; i > 0; --i) {
      std::vector<std::string> members = {"\"name\":\"v\"",
                                          "\"value\":" + values[random() % values.size()]};
      if (random() % 2 == 0) members.push_back("\"interface\": \"Ethernet0/1\"");
      if (random() % 8 == 0) members.push_back("\"interfacePath\":\"p\"");
      if (random() % 8 == 0)
        members.push_back(std::string("\"typeCode\":-2147483649").substr(0, 14 + random() % 9));
      if (random() % 8 == 0) members.push_back("\"type\":\"" + types[random() % 6] + "\"");
      if (random() % 16 == 0) members.push_back("\"keys\":[\"a\"]");
      if (random() % 16 == 0) members.push_back("\"other\":" + values[random() % values.size()]);
      if (random() % 16 == 0) members.push_back(members[random() % members.size()]);
      list += (list.size() > 1 ? "," : "") + RandomObject(random, members);
    }
    std::vector<std::string> members = {"\"time\":5", "\"device\":\"d\"", "\"source\":\"s\"",
                                        "\"variables\":" + list + "]"};
    if (random() % 4 == 0) members.push_back("\"param\":\"p\"");
    if (random() % 8 == 0) members.push_back("\"onDemand\":true");
    if (random() % 8 == 0) members.push_back("\"domain\":" + values[random() % values.size()]);
    const std::string line = RandomObject(random, members);
    if (line == "{}") continue;
    RunLineReader reader("home");
    RunLineReader other("home");
    const bool isRead = reader.Read(line, run);
    ParsedRun expected;
    // An escape in front, and it is not plain.
    const bool isExpected = other.Read(R"({"\u0020":0,)" + line.substr(1), expected);
    ASSERT_EQ(isRead, isExpected) << line << reader.fault() << other.fault();
    if (isRead) {
      ++plain;
      ASSERT_EQ(TextOf(run), TextOf(expected)) << line;
    } else if (!reader.fault().starts_with("not JSON")) {
      ASSERT_EQ(reader.fault(), other.fault()) << line;
    }
  }
  EXPECT_GT(plain, 5000);
}

TEST(RunLine, ReaderIsUsedAgainAfterAFault) {
  RunLineReader reader("home");
  ParsedRun run;
  EXPECT_FALSE(reader.Read(Line(R"({"name":"a","value":1},{"name":1})"), run));
  EXPECT_EQ(reader.fault(), "variables[1].name: must be a string");
  EXPECT_FALSE(reader.Read(R"({"time":1})", run));
  EXPECT_EQ(reader.fault(), "device: is missing");
  EXPECT_TRUE(reader.Read(Line(""), run));
}

}  // namespace
}  // namespace keelstone
