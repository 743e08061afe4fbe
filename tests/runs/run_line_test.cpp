#include "runs/run_line.h"

#include <gmock/gmock.h>

#include <string>
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

TEST(RunLine, LeavesOutWhatWasNotRead) {
  const auto outcome = ReadLine(Line(
      R"({"name":"a","value":null},{"name":"b","value":1},{"name":"c","value":2,"value":null})"));
  ASSERT_EQ(outcome.fault, "");
  ASSERT_EQ(outcome.run.variables.size(), 1U);
  EXPECT_EQ(outcome.run.variables[0].variableName, "b");
}

TEST(RunLine, SaysWhatIsWrong) {
  const std::string rest = R"(,"device":"d","source":"s","variables":[]})";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "not JSON"},
      {"{\"time\":1", "not JSON"},
      {"{} {}", "not JSON"},
      {"{\"time\":1 /* no */" + rest, "not JSON"},
      {std::string("{\"time\":1\0", 10) + rest, "not JSON"},
      {"{\"time\":1,\"device\":\"\xC3(\"}", "not JSON"},
      {R"({"time":1,"device":"\ud800","source":"s","variables":[]})", "not JSON"},
      {std::string("{\"time\":1,\"deep\":").append(100000, '[') + rest, "not JSON"},
      {"[1]", "a run must be a JSON object"},
      {std::string("{").append(rest, 1), "time: is missing"},
      {"{\"time\":1.0" + rest, "time: must be an integer"},
      {"{\"time\":1e9" + rest, "time: must be an integer"},
      {"{\"time\":\"1\"" + rest, "time: must be an integer"},
      {"{\"time\":9223372036854775808" + rest, "time: is out of range"},
      {"{\"time\":-99999999999999999999" + rest, "time: is out of range"},
      {"{\"time\":1,\"domain\":null" + rest, "domain: must be a string"},
      {"{\"time\":1,\"onDemand\":1" + rest, "onDemand: must be true or false"},
      {R"({"time":1,"device":"d","variables":[]})", "source: is missing"},
      {R"({"time":1,"device":"d","source":"s","variables":{}})", "variables: must be an array"},
      {Line(R"({"name":"a","value":1},7)"), "variables[1]: must be an object"},
      {Line(R"({"value":1})"), "variables[0].name: is missing"},
      {Line(R"({"name":"a","value":1},{"name":"a"})"), "variables[1].value: is missing"},
      {Line(R"({"name":"a","value":1,"typeCode":2147483648})"), "typeCode: is out of range"},
      {Line(R"({"name":"a","value":1,"sort":"yes"})"), "sort: must be true or false"},
      {Line(R"({"name":"a","value":1,"keys":["x",1]})"), "keys: must be an array"},
      {Line(R"({"name":"a","value":null,"type":"int32"})"), "type: \"int32\" is none of"},
      {Line(R"({"name":"a","value":9223372036854775808,"type":"int64"})"), "beyond 64 bits"},
      {Line(R"({"name":"a","value":"-9223372036854775809","type":"int64"})"), "beyond 64 bits"},
      {Line(R"({"name":"a","value":[],"type":"string"})"), "a table is no string"},
      {Line(R"({"name":"a","value":1,"type":"table"})"), "value: must be a table"},
      {Line(R"({"name":"a","value":{"columns":[],"rows":[[1]]}})"), "row 1 has 1 cells"},
  };
  for (const auto& [line, fault] : cases) {
    EXPECT_THAT(ReadLine(line).fault, HasSubstr(fault)) << line.substr(0, 200);
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
