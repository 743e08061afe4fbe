#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "model/ksruledata.h"
#include "tests/support/numeric_kinds.h"

namespace keelstone::testing {
namespace {

template <class T>
class NumericRuleDataOf : public ::testing::Test {
 protected:
  /// The text of a whole number of this type.
  static std::string Text(int number) {
    return std::to_string(number) + (std::is_same_v<T, std::int64_t> ? "" : ".0");
  }
};
TYPED_TEST_SUITE(NumericRuleDataOf, NumericTypes);

TYPED_TEST(NumericRuleDataOf, StartsWithoutParameterAndGoldenValue) {
  const IntEqualData<TypeParam> equal;
  EXPECT_EQ(equal.ParamToString(), "{\"ruleParam\":" + this->Text(-1) + "}");
  EXPECT_EQ(equal.GetGlodenValueTime(), -1);
  EXPECT_EQ(equal.GetGlodenValue(), this->Text(0));
  EXPECT_EQ(IntEnumData<TypeParam>().ParamToString(), R"({"ruleParam":[]})");
  EXPECT_EQ(IntRangeData<TypeParam>().ParamToString(),
            "{\"maxValue\":" + this->Text(-1) + ",\"minValue\":" + this->Text(-1) + "}");
}

TYPED_TEST(NumericRuleDataOf, WritesItsParameter) {
  IntEnumData<TypeParam> enumeration;
  for (const int value : {3, -2, 3, 1}) enumeration.values.insert(TypeParam(value));
  EXPECT_EQ(enumeration.ParamToString(),
            "{\"ruleParam\":[" + this->Text(-2) + "," + this->Text(1) + "," + this->Text(3) + "]}");
  IntRangeData<TypeParam> range;
  range.minValue = TypeParam(2);
  range.maxValue = TypeParam(9);
  range.golden = KSDataPoint<TypeParam>(77, TypeParam(5));
  EXPECT_EQ(range.ParamToString(),
            "{\"maxValue\":" + this->Text(9) + ",\"minValue\":" + this->Text(2) + "}");
  EXPECT_EQ(range.GetGlodenValue(), this->Text(5));
  EXPECT_EQ(range.GetGlodenValueTime(), 77);
  EXPECT_FALSE(range.ParseParam(range.ParamToString()));  // its rules read it
}

TYPED_TEST(NumericRuleDataOf, ClearsParameterAndGoldenValue) {
  const KSDataPoint<TypeParam> golden(77, TypeParam(5));
  IntEqualData<TypeParam> equal;
  IntEnumData<TypeParam> enumeration;
  IntRangeData<TypeParam> range;
  equal.value = range.minValue = range.maxValue = TypeParam(4);
  enumeration.values.insert(TypeParam(4));
  const auto expectCleared = [&](NumericRuleData<TypeParam>& data, const KSRuleDataBase& fresh) {
    data.golden = golden;
    data.Clear();
    EXPECT_EQ(data.ParamToString(), fresh.ParamToString());
    EXPECT_EQ(data.GetGlodenValueTime(), 0);
    EXPECT_EQ(data.GetGlodenValue(), this->Text(0));
  };
  expectCleared(equal, IntEqualData<TypeParam>());
  expectCleared(enumeration, IntEnumData<TypeParam>());
  expectCleared(range, IntRangeData<TypeParam>());
}

TYPED_TEST(NumericRuleDataOf, ComparesParametersOnly) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, float>, double, float>;
  IntEqualData<TypeParam> five;
  IntEqualData<TypeParam> alsoFive;
  five.value = alsoFive.value = TypeParam(5);
  alsoFive.golden = KSDataPoint<TypeParam>(1, TypeParam(2));
  EXPECT_TRUE(five.IsEqual(&alsoFive));
  alsoFive.value = TypeParam(6);
  EXPECT_FALSE(five.IsEqual(&alsoFive));
  EXPECT_FALSE(five.IsEqual(nullptr));

  IntEqualData<Other> otherType;
  otherType.value = Other(5);
  EXPECT_FALSE(five.IsEqual(&otherType));

  IntEnumData<TypeParam> few;
  IntEnumData<TypeParam> more;
  EXPECT_TRUE(few.IsEqual(&more));
  more.values.insert(TypeParam(1));
  EXPECT_FALSE(few.IsEqual(&more));
  EXPECT_FALSE(more.IsEqual(&few));

  IntRangeData<TypeParam> range;
  IntRangeData<TypeParam> wider;
  EXPECT_TRUE(range.IsEqual(&wider));
  wider.minValue = TypeParam(-2);
  EXPECT_FALSE(range.IsEqual(&wider));
  wider = range;
  wider.maxValue = TypeParam(8);
  EXPECT_FALSE(range.IsEqual(&wider));
  EXPECT_FALSE(range.IsEqual(&few));
}

TEST(RuleDataText, KeepsEveryDigit) {
  IntEqualData<std::int64_t> whole;
  whole.value = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(whole.ParamToString(), R"({"ruleParam":-9223372036854775808})");
  IntEqualData<float> single;
  single.value = 0.1F;  // stands as the double that it is
  EXPECT_EQ(single.ParamToString(), R"({"ruleParam":0.10000000149011612})");
  IntEqualData<double> wide;
  wide.value = 1e-7;
  EXPECT_EQ(wide.ParamToString(), R"({"ruleParam":1e-07})");
}

}  // namespace
}  // namespace keelstone::testing
