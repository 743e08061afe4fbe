#include "engine/variable_values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "engine/typed_value.h"

namespace keelstone::testing {
namespace {

template <class T>
std::optional<T> ValueOf(int dataType, const std::string& text) {
  VarInfo variable;
  variable.dataType = dataType;
  variable.valueText = text;
  const auto point = TypedValue(variable).MakePoint(1700000000);
  if (!point) return std::nullopt;
  const auto* const number = dynamic_cast<const KSDataPoint<T>*>(point.get());
  EXPECT_NE(number, nullptr);
  EXPECT_EQ(number->time, 1700000000);
  return number->value;
}

TEST(DataPoint, OfIntegerTexts) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  const std::vector<std::pair<std::string, std::optional<std::int64_t>>> cases = {
      {" \t9 packets", 9},
      {"3.9", 3},
      {"9223372036854775807", kMost},
      {"9223372036854775808", kMost},
      {"-99999999999999999999999", std::numeric_limits<std::int64_t>::min()},
      {"", {}},
      {"up", {}},
  };
  for (const auto& [text, value] : cases) EXPECT_EQ(ValueOf<std::int64_t>(1, text), value) << text;
}

TEST(DataPoint, OfRealTexts) {
  const std::vector<std::pair<std::string, std::optional<double>>> cases = {
      {"0.25", 0.25},    {"-1e3", -1000.0}, {"  7.5%", 7.5}, {".5", 0.5}, {"5.", 5.0},
      {"1e-400", 0.0},   {"1,5", 1.0},      {"1e999", {}},   {"nan", {}}, {"inf", {}},
      {"-Infinity", {}}, {"", {}},          {"up", {}},      {"-", {}},   {"1e", 1.0},
  };
  for (const auto& [text, value] : cases) {
    EXPECT_EQ(ValueOf<double>(3, text), value) << text;
    EXPECT_EQ(ValueOf<float>(2, text),
              value ? std::optional<float>(static_cast<float>(*value)) : std::nullopt)
        << text;
  }
  EXPECT_EQ(ValueOf<float>(2, "0.1"), 0.1F);
  EXPECT_EQ(ValueOf<float>(2, "3.4028235e38"), std::numeric_limits<float>::max());
  EXPECT_EQ(ValueOf<float>(2, "3.5e38"), std::nullopt);
  EXPECT_EQ(ValueOf<double>(3, "3.5e38"), 3.5e38);
}

TEST(VariableRuleParam, HasItsTextsTurnedIntoNumbers) {
  struct Case {
    const char* param;
    const char* ofInt64;
    const char* ofDouble;
  };
  const std::vector<Case> cases = {
      {R"({"ruleParam":"80"})", R"({"ruleParam":80})", R"({"ruleParam":80.0})"},
      {R"({"maxValue":" 9.9x","minValue":"low"})", R"({"maxValue":9,"minValue":0})",
       R"({"maxValue":9.9,"minValue":0.0})"},
      {R"({"ruleParam":["1","2.5",3,4.5,true]})", R"({"ruleParam":[1,2,3,4,0]})",
       R"({"ruleParam":[1.0,2.5,3.0,4.5,0.0]})"},
      // Members are read with 32 bits, elements with 64.
      {R"({"ruleParam":"4294967299","a":["4294967299"]})", R"({"ruleParam":3,"a":[4294967299]})",
       R"({"ruleParam":4294967299.0,"a":[4294967299.0]})"},
      {R"({"ruleParam":"99999999999999999999","a":["99999999999999999999"]})",
       R"({"ruleParam":-1,"a":[9223372036854775807]})", R"({"ruleParam":1e+20,"a":[1e+20]})"},
      {R"({"a":{"b":"7","c":{"d":["8"]}}})", R"({"a":"{\"b\":7,\"c\":\"{\\\"d\\\":[8]}\"}"})",
       R"({"a":"{\"b\":7.0,\"c\":\"{\\\"d\\\":[8.0]}\"}"})"},
      {"no JSON", "null", "null"},
      {R"( { "a" : 1 } /* b */ )", R"({"a":1})", R"({"a":1})"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ConvertVariableRuleParam(KSDataInt64, c.param), c.ofInt64);
    EXPECT_EQ(ConvertVariableRuleParam(KSDataDouble, c.param), c.ofDouble);
  }
  // Floats keep their texts.
  EXPECT_EQ(ConvertVariableRuleParam(KSDataFloat, R"({ "ruleParam" : "80", "a":["1"] })"),
            R"({"ruleParam":"80","a":["1"]})");
  EXPECT_EQ(ConvertVariableRuleParam(KSDataFloat, ""), "null");
}

}  // namespace
}  // namespace keelstone::testing
