#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/cases.h"
#include "bench/history_series.h"
#include "bench/learned_device.h"
#include "keelstone/algorithm_manager.h"

namespace keelstone::bench {

namespace {

// The reference knows nothing but this one layout: numbers are read and written with the
// standard library's from_chars and to_chars, the keys between them compared and copied.

constexpr std::string_view kTimeKey = R"({"liveTime":)";
constexpr std::string_view kValueKey = R"(,"dataValue":)";
constexpr std::string_view kTail = "]}";

template <class Value>
struct Entry {
  std::int64_t time = 0;
  Value value = {};
};

template <class Number>
const char* ReadNumber(const char* at, const char* end, Number& number) {
  return std::from_chars(at, end, number).ptr;
}

const char* Skip(const char* at, const char* end, std::string_view literal) {
  const bool fits = static_cast<std::size_t>(end - at) >= literal.size() &&
                    std::memcmp(at, literal.data(), literal.size()) == 0;
  if (!fits) throw std::runtime_error("not the layout");
  return at + literal.size();
}

template <class Value>
void ReadEntries(const std::string& text, std::string_view head,
                 std::vector<Entry<Value>>& entries) {
  const char* const end = text.data() + text.size();
  const char* at = Skip(text.data(), end, head);
  entries.clear();
  entries.reserve(text.size() / 28);
  while (true) {
    Entry<Value>& entry = entries.emplace_back();
    at = ReadNumber(Skip(at, end, kTimeKey), end, entry.time);
    at = Skip(ReadNumber(Skip(at, end, kValueKey), end, entry.value), end, "}");
    if (at == end || *at != ',') break;
    ++at;
  }
  if (Skip(at, end, kTail) != end) throw std::runtime_error("not the layout");
}

char* Put(char* at, std::string_view literal) {
  std::memcpy(at, literal.data(), literal.size());
  return at + literal.size();
}

/// The most that one number takes.
constexpr std::size_t kNumberSize = 32;

template <class Value>
std::string WriteEntries(std::string_view head, const std::vector<Entry<Value>>& entries) {
  std::string text(head.size() + kTail.size() + entries.size() * (2 * kNumberSize + 32), '\0');
  char* at = Put(text.data(), head);
  for (const Entry<Value>& entry : entries) {
    if (&entry != entries.data()) *at++ = ',';
    at = Put(at, kTimeKey);
    at = std::to_chars(at, at + kNumberSize, entry.time).ptr;
    at = Put(at, kValueKey);
    at = std::to_chars(at, at + kNumberSize, entry.value).ptr;
    *at++ = '}';
  }
  at = Put(at, kTail);
  text.resize(static_cast<std::size_t>(at - text.data()));
  return text;
}

struct Material {
  std::vector<std::string> texts;
  std::vector<std::int64_t> values;  // each of a further point
};

Material MakeMaterial(EnumKSDataType dataType, std::uint64_t seed, std::size_t count) {
  std::mt19937_64 random(seed);
  Material material;
  for (std::size_t i = 0; i < count; ++i) {
    const EnumRuleType kind = kLearnedKinds[random() % kLearnedKinds.size()];
    auto series = MakeSeries(kind, kHistoryPoints + 1, random);
    // Odd ones have all their decimals, so that both sides write the same text.
    for (std::int64_t& value : series) value |= 1;
    const auto history = MakeHistory(dataType);
    for (std::size_t round = 0; round < kHistoryPoints; ++round) {
      const auto time = 1'700'000'000 + static_cast<std::int64_t>(round) * 1'800;
      history->AddData(MakePoint(dataType, time, series[round]), kHistoryPoints);
    }
    material.texts.push_back(history->ToString());
    material.values.push_back(series.back());
  }
  return material;
}

constexpr std::int64_t kNewTime = 1'700'000'000 + std::int64_t{kHistoryPoints} * 1'800;

/// Every text is read, gets a value in place of its oldest, and is written, by the model and
/// by the reference; the texts must come out the same.
template <class Value>
Rounds ReadAndWriteRounds(EnumKSDataType dataType, const BenchSettings& settings) {
  const auto material = std::make_shared<const Material>(
      MakeMaterial(dataType, settings.seed, settings.brief ? 5 : 100));
  const auto points = std::make_shared<std::vector<std::shared_ptr<KSDataBase>>>();
  for (const std::int64_t value : material->values) {
    points->push_back(MakePoint(dataType, kNewTime, value));
  }
  const std::string head = "{\"dataType\":" + std::to_string(dataType) + ",\"dataList\":[";
  return {.round = [=] {
    const std::size_t count = material->texts.size();
    std::vector<std::string> ours(count);
    std::vector<std::string> theirs(count);
    Sample sample = TimeInTurn(
        Clock::kProcessor, count,
        [&] {
          for (std::size_t i = 0; i < count; ++i) {
            const auto history = MakeHistory(dataType);
            if (!history->FromString(material->texts[i])) return;
            history->AddData((*points)[i], kHistoryPoints);
            ours[i] = history->ToString();
          }
        },
        [&] {
          std::vector<Entry<Value>> entries;
          for (std::size_t i = 0; i < count; ++i) {
            ReadEntries(material->texts[i], head, entries);
            entries.erase(entries.begin());
            const auto& point = static_cast<const KSDataPoint<Value>&>(*(*points)[i]);
            entries.push_back({point.time, point.value});
            theirs[i] = WriteEntries(head, entries);
          }
        });
    if (ours != theirs) throw std::runtime_error("the texts differ");
    return sample;
  }};
}

template <class Value>
BenchCase HistoryCase(EnumKSDataType dataType) {
  return {.number = "3",
          .name = std::string("history/") + NameOfType(dataType),
          .ours = std::string("read 30 of ") + NameOfType(dataType) + ", add one, write",
          .reference = "from_chars + to_chars by hand",
          .unit = "ns/text",
          .goal = 1.2,
          .beyond = 1.0,
          .repeat = true,
          .make = [dataType](const BenchSettings& settings) {
            return ReadAndWriteRounds<Value>(dataType, settings);
          }};
}

}  // namespace

void AddHistoryCases(BenchCases& cases) {
  cases.push_back(HistoryCase<double>(KSDataDouble));
  cases.push_back(HistoryCase<std::int64_t>(KSDataInt64));
}

}  // namespace keelstone::bench
