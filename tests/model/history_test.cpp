#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/numeric_kinds.h"

namespace keelstone::testing {
namespace {

using ::testing::ElementsAreArray;

template <class T>
std::vector<std::pair<std::int64_t, T>> Content(const NumercialHistoryData<T>& history) {
  std::vector<std::pair<std::int64_t, T>> content;
  for (const KSDataPoint<T>& point : history.points())
    content.emplace_back(point.time, point.value);
  return content;
}

/// A text, whether it is taken, and the points there are afterwards.
template <class T>
struct TextCase {
  const char* about;
  std::string text;
  bool taken;
  std::vector<std::pair<std::int64_t, T>> points;
};

template <class T>
void Check(const std::vector<TextCase<T>>& cases) {
  for (const TextCase<T>& c : cases) {
    SCOPED_TRACE(c.about);
    typename Kind<T>::History history;
    EXPECT_EQ(history.FromString(c.text), c.taken) << c.text;
    EXPECT_THAT(Content(history), ElementsAreArray(c.points)) << c.text;
    EXPECT_EQ(history.GetDataCount(), static_cast<std::int32_t>(c.points.size()));
    EXPECT_EQ(history.GetLastTime(), c.points.empty() ? 0 : c.points.back().first);
  }
}

std::string IntText(const std::string& list) {
  return R"({"dataType":1,"dataList":[)" + list + "]}";
}

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();

TEST(IntHistory, ReadsEveryWritingOfAText) {
  Check<std::int64_t>({
      {"own layout",
       IntText(R"({"liveTime":5,"dataValue":-7},{"liveTime":6,"dataValue":0})"),
       true,
       {{5, -7}, {6, 0}}},
      {"comments",
       "/* a */{\"dataType\":1,// b\n\"dataList\":[{\"liveTime\":5,\"dataValue\":7}]}",
       true,
       {{5, 7}}},
      {"further members",
       R"({"dataType":1,"x":{},"dataList":[{"liveTime":5,"unit":"s","dataValue":7}]})",
       true,
       {{5, 7}}},
      {"last of two members counts",
       R"({"dataType":2,"dataType":1,"dataList":[{"liveTime":5,"dataValue":7,"dataValue":8}]})",
       true,
       {{5, 8}}},
      {"reals are cut",
       IntText(R"({"liveTime":5.9,"dataValue":2.9},{"liveTime":6,"dataValue":-2.9})"),
       true,
       {{5, 2}, {6, -2}}},
      {"19 digits",
       IntText(R"({"liveTime":5,"dataValue":9223372036854775807},)"
               R"({"liveTime":6,"dataValue":-9223372036854775808})"),
       true,
       {{5, kLargest}, {6, kSmallest}}},
      {"data type as a real",
       R"({"dataType":1.0,"dataList":[{"liveTime":5,"dataValue":7}]})",
       true,
       {{5, 7}}},
      {"empty list", IntText(""), true, {}},
      {"null list", R"({"dataType":1,"dataList":null})", true, {}},
  });
}

TEST(IntHistory, RefusesWhatIsNoHistoryAndKeepsThePointsBeforeAFault) {
  const std::string sound = R"({"liveTime":5,"dataValue":7})";
  Check<std::int64_t>({
      {"cut off", R"({"dataType":1,"dataList":[)" + sound, false, {}},
      {"NUL behind", IntText(sound) + std::string(1, '\0'), false, {}},
      {"null", "null", false, {}},
      {"other data type", R"({"dataType":2,"dataList":[)" + sound + "]}", false, {}},
      {"no data type", R"({"dataList":[)" + sound + "]}", false, {}},
      {"text for a value",
       IntText(sound + R"(,{"liveTime":6,"dataValue":"8"},)" + sound),
       false,
       {{5, 7}}},
      {"beyond 64 bits",
       IntText(sound + R"(,{"liveTime":6,"dataValue":9223372036854775808})"),
       false,
       {{5, 7}}},
      {"far beyond 64 bits",
       IntText(sound + R"(,{"liveTime":6,"dataValue":1e30})"),
       false,
       {{5, 7}}},
  });
}

TEST(RealHistory, RefusesNumbersBeyondItsPrecision) {
  const std::string list = R"({"liveTime":1,"dataValue":0.5},{"liveTime":2,"dataValue":1e39}]})";
  Check<double>(
      {{"fits a double", R"({"dataType":3,"dataList":[)" + list, true, {{1, 0.5}, {2, 1e39}}}});
  // What single precision cannot hold would be no number.
  Check<float>({{"fits no float", R"({"dataType":2,"dataList":[)" + list, false, {{1, 0.5F}}}});
  Check<double>({{"fits no double",
                  R"({"dataType":3,"dataList":[{"liveTime":1,"dataValue":1e400}]})",
                  false,
                  {}}});
}

template <class T>
class NumericHistory : public ::testing::Test {
 protected:
  using History = typename Kind<T>::History;
};
TYPED_TEST_SUITE(NumericHistory, NumericTypes);

TYPED_TEST(NumericHistory, PassesOverPointsOfAnotherType) {
  using T = TypeParam;
  using Other = std::conditional_t<std::is_same_v<T, double>, float, double>;
  typename TestFixture::History history;
  history.AddData(PointOf<Other>(1, Other(2)), 3);
  history.AddData(std::make_shared<KSDataPoint<std::string>>(1, "2"), 3);
  history.AddData(nullptr, 3);
  EXPECT_EQ(history.GetDataCount(), 0);
  std::string text = "as it was";
  history.GetDataValue(PointOf<Other>(1, Other(2)), text);
  history.GetDataValue(nullptr, text);
  EXPECT_EQ(text, "as it was");
  history.GetDataValue(PointOf<T>(1, T(-12)), text);
  EXPECT_EQ(text, (std::is_same_v<T, std::int64_t> ? "-12" : "-12.0"));
}

TYPED_TEST(NumericHistory, AppendsTextAfterText) {
  using T = TypeParam;
  const std::string type = std::to_string(Kind<T>::kDataType);
  const std::string own =
      R"({"dataType":)" + type + R"(,"dataList":[{"liveTime":1,"dataValue":3}]})";
  const std::string spaced =
      R"({"dataType": )" + type + R"(,"dataList":[{"liveTime":2,"dataValue":4}]})";
  const std::string broken =
      R"({"dataType":)" + type +
      R"(,"dataList":[{"liveTime":3,"dataValue":5},{"liveTime":4,"dataValue":[]}]})";
  typename TestFixture::History history;
  EXPECT_TRUE(history.FromString(own));
  EXPECT_TRUE(history.FromString(spaced));
  EXPECT_TRUE(history.FromString(own));
  EXPECT_FALSE(history.FromString(broken));
  const std::vector<plain::Seen<T>> all = {{1, T(3)}, {2, T(4)}, {1, T(3)}, {3, T(5)}};
  EXPECT_EQ(history.ToString(), plain::HistoryText(all));
}

/// A number in some writing that JSON allows.
template <class T>
std::string SomeWriting(T value, std::mt19937& random) {
  const std::string text = plain::NumberText(
      std::conditional_t<std::is_same_v<T, std::int64_t>, std::int64_t, double>(value));
  if constexpr (std::is_same_v<T, std::int64_t>) {
    return random() % 8 == 0 && value > -1000000 && value < 1000000 ? text + ".0" : text;
  } else {
    char writing[64];
    switch (random() % 6) {
      case 0:
        std::snprintf(writing, sizeof writing, "%.17g", static_cast<double>(value));
        return writing;
      case 1:
        std::snprintf(writing, sizeof writing, "%.20E", static_cast<double>(value));
        return writing;
      case 2:  // the shortest that reads back as a float, which a double would not show
        std::snprintf(writing, sizeof writing, "%.9g",
                      static_cast<double>(static_cast<float>(value)));
        return std::is_same_v<T, float> ? std::string(writing) : text;
      case 3:
        return text.find('e') == std::string::npos ? text + "0" : text;
      default:
        return text;
    }
  }
}

template <class T>
T SomeNumber(std::mt19937& random) {
  const auto raw = static_cast<std::int64_t>(std::uint64_t{random()} << 32U | random());
  if constexpr (std::is_same_v<T, std::int64_t>) {
    return random() % 4 == 0 ? raw : raw % 1000;
  } else {
    switch (random() % 5) {
      case 0:
        return static_cast<T>(raw);
      case 1:
        return static_cast<T>(static_cast<double>(raw) * 1e-37);
      case 2:
        return static_cast<T>(static_cast<double>(raw % 100000) / 100);
      case 3:
        return static_cast<T>(raw % 3);
      default:
        return static_cast<T>(static_cast<double>(raw % 1000) * 0.1);
    }
  }
}

TYPED_TEST(NumericHistory, WritesTheSameHoweverItCameToItsPoints) {
  using T = TypeParam;
  std::mt19937 random(20240229);
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(::testing::Message() << "round " << round);
    std::vector<plain::Seen<T>> seen(random() % 12);
    std::string list;
    const bool oddWriting = random() % 2 == 0;
    for (auto& [time, value] : seen) {
      time = static_cast<std::int64_t>(random()) - 1000;
      value = SomeNumber<T>(random);
      const std::string number =
          oddWriting
              ? SomeWriting(value, random)
              : plain::NumberText(
                    std::conditional_t<std::is_same_v<T, std::int64_t>, std::int64_t, double>(
                        value));
      list += (list.empty() ? "" : ",") + std::string(R"({"liveTime":)") + std::to_string(time) +
              R"(,"dataValue":)" + number + "}";
    }
    typename TestFixture::History history;
    const std::string text =
        R"({"dataType":)" + std::to_string(Kind<T>::kDataType) + R"(,"dataList":[)" + list + "]}";
    ASSERT_TRUE(history.FromString(text)) << text;
    ASSERT_EQ(history.ToString(), plain::HistoryText(seen)) << text;
    for (unsigned added = random() % 8; added > 0; --added) {
      const plain::Seen<T> next{static_cast<std::int64_t>(random()), SomeNumber<T>(random)};
      const int most = static_cast<int>(random() % 14) - 1;
      while (!seen.empty() && static_cast<int>(seen.size()) >= most) seen.erase(seen.begin());
      seen.push_back(next);
      history.AddData(PointOf(next.time, next.value), most);
      ASSERT_EQ(history.ToString(), plain::HistoryText(seen)) << text;
    }
  }
}

}  // namespace
}  // namespace keelstone::testing
