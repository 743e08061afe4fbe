#include "model/history/history_scan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "base/text/numbers.h"
#include "keelstone/algorithm_manager.h"
#include "keelstone/history_data.h"
#include "model/history/packed_history.h"
#include "tests/support/odd_texts.h"

// The short ways through a history text against the way through the JSON reader, which a
// text with a blank in front of it takes.
namespace keelstone::testing {
namespace {

constexpr EnumKSDataType kTypes[] = {KSDataInt64, KSDataFloat, KSDataDouble, KSDataString};
constexpr int kHistories = 6'000;  // of each type
constexpr int kChanges = 5;        // of each history

class Histories {
 public:
  explicit Histories(EnumKSDataType type)
      : type_(type), random_(100U + static_cast<unsigned>(type)) {}

  unsigned Below(unsigned n) { return static_cast<unsigned>(random_() % n); }

  std::shared_ptr<KSDataBase> Point(std::int64_t time) {
    if (type_ == KSDataInt64) return std::make_shared<KSDataPoint<std::int64_t>>(time, Whole());
    if (type_ == KSDataDouble) return std::make_shared<KSDataPoint<double>>(time, Real());
    if (type_ == KSDataFloat) {
      return std::make_shared<KSDataPoint<float>>(time, NarrowToFloat(Real()));
    }
    return std::make_shared<KSDataPoint<std::string>>(time, Text());
  }

  /// A history as devices make them: values that are written alike, with exceptions.
  std::string Text(std::size_t points) {
    const auto history = MakeHistory(type_);
    scale_ = Below(6);
    std::int64_t time = Below(3) == 0 ? Whole() : 1'700'000'000;
    for (std::size_t i = 0; i < points; ++i) {
      history->AddData(Point(Below(40) == 0 ? Whole() : time), 1 << 20);
      time += Below(5'000);
    }
    return history->ToString();
  }

  /// The text with a byte changed, left out or put in: mostly one that could belong there.
  std::string Changed(std::string text) {
    const std::size_t at = Below(static_cast<unsigned>(text.size()));
    const char byte =
        Below(4) == 0 ? static_cast<char>(Below(256)) : "0123456789.-eE,}{]\" "[Below(20)];
    const unsigned what = Below(3);
    if (what == 0) text[at] = byte;
    if (what == 1) text.erase(at, 1);
    if (what == 2) text.insert(at, 1, byte);
    return text;
  }

 private:
  std::int64_t Whole() {
    const auto bits = static_cast<std::int64_t>(random_());
    return Below(200) == 0 ? bits : bits % (Below(2) == 0 ? 10 : 100'000'000);
  }
  double Real() {
    const double powers[] = {1, 10, 100, 1e3, 1e5, 1e7};
    if (Below(10) > 0) return static_cast<double>(Whole() % 1'000'000'000) / powers[scale_];
    double value = 0;
    const std::uint64_t bits = random_();
    std::memcpy(&value, &bits, sizeof value);
    return std::isfinite(value) && std::fabs(value) < 1e30 ? value : -0.0;
  }
  std::string Text() {
    if (Below(12) == 0) return OddTexts()[Below(static_cast<unsigned>(OddTexts().size()))];
    return Below(4) == 0 ? "down" : "Established";
  }

  EnumKSDataType type_;
  std::mt19937_64 random_;
  unsigned scale_ = 0;
};

/// What reading a text and adding a point to it comes to.
struct Outcome {
  bool isRead = false;
  std::int32_t count = 0;
  std::int64_t newest = 0;
  std::string text;
  std::string grown;

  friend bool operator==(const Outcome&, const Outcome&) = default;
};

template <class Read>
Outcome OutcomeOf(EnumKSDataType type, const std::shared_ptr<KSDataBase>& point, int most,
                  Read read) {
  const auto history = MakeHistory(type);
  Outcome outcome;
  outcome.isRead = read(*history);
  outcome.count = history->GetDataCount();
  outcome.newest = history->GetLastTime();
  outcome.text = history->ToString();
  history->AddData(point, most);
  history->AddData(point, most);
  outcome.grown = history->ToString();
  return outcome;
}

/// That a history kept in memory is the one whose text it was made of; `asPoints` counts those
/// that are kept as points.
void ExpectKept(EnumKSDataType type, const std::string& text, const Outcome& plain,
                const std::shared_ptr<KSDataBase>& point, int most, int& asPoints) {
  PackedHistory packed = PackedHistory::OfText(text);
  const auto newest = NewestTimeOfOwnText(type, text);
  EXPECT_EQ(packed.NewestTime(type), newest) << text;
  packed.Pack();
  ASSERT_EQ(packed.ToText(), text);
  if (packed.Text()) return;
  ++asPoints;
  ASSERT_EQ(packed.NewestTime(type), newest) << text;
  ASSERT_EQ(packed.Open(type == KSDataString ? KSDataInt64 : KSDataString), nullptr);
  const auto history = packed.Open(type);
  ASSERT_NE(history, nullptr) << text;
  history->AddData(point, most);
  history->AddData(point, most);
  ASSERT_EQ(history->ToString(), plain.grown);
  ASSERT_EQ(PackedHistory::Of(*history).ToText(), plain.grown);
}

TEST(HistoryScan, ShortWaysGiveWhatTheJsonReaderGives) {
  for (const EnumKSDataType type : kTypes) {
    SCOPED_TRACE(type);
    Histories histories(type);
    int scanned = 0;
    int asPoints = 0;
    for (int i = 0; i < kHistories; ++i) {
      const std::string written = histories.Text(histories.Below(40));
      const auto point = histories.Point(1'800'000'000);
      const int most = static_cast<int>(histories.Below(45));
      for (int change = 0; change < kChanges; ++change) {
        const std::string text =
            change == 0 || written.empty() ? written : histories.Changed(written);
        const std::string blank = " " + text;
        const Outcome plain =
            OutcomeOf(type, point, most, [&](auto& h) { return h.FromString(blank); });
        const Outcome copied =
            OutcomeOf(type, point, most, [&](auto& h) { return h.FromString(text); });
        const Outcome lasting =
            OutcomeOf(type, point, most, [&](auto& h) { return h.FromLastingText(text); });
        ASSERT_EQ(copied, plain) << text;
        ASSERT_EQ(lasting, plain) << text;

        ASSERT_NO_FATAL_FAILURE(ExpectKept(type, text, plain, point, most, asPoints));
        const auto newest = NewestTimeOfOwnText(type, text);
        if (newest) {
          ++scanned;
          ASSERT_TRUE(plain.isRead) << text;
          ASSERT_EQ(*newest, plain.newest) << text;
          ASSERT_EQ(text, plain.text);
          ASSERT_EQ(GuessNewestTime(text).value_or(*newest), *newest) << text;
        }
      }
    }
    EXPECT_GT(scanned, kHistories / 2);
    EXPECT_GT(asPoints, kHistories / 2);
  }
}

}  // namespace
}  // namespace keelstone::testing
