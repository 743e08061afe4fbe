#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "bench/cases.h"
#include "bench/program_input.h"
#include "bench/program_root.h"
#include "bench/stored_fleet.h"

namespace keelstone::bench {

namespace {

constexpr std::size_t kPasses = 5;  // of all values in one evaluation

/// What there is many of.
enum class Many { kVariables, kDevices, kDomains, kSources };

void AppendValue(std::string& lines, std::size_t number) {
  lines += "{\"name\":\"load\",\"interface\":\"" + std::to_string(number) + "\",\"value\":7}";
}

/// One value of each of `count`; all in one run where they are variables.
void AppendPass(std::string& lines, Many many, std::size_t count, std::int32_t time) {
  const std::string begin = "{\"time\":" + std::to_string(time) + ",\"device\":\"";
  if (many == Many::kVariables) {
    lines += begin + "d\",\"source\":\"s\",\"variables\":[";
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0) lines += ',';
      AppendValue(lines, i);
    }
    lines += "]}\n";
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::string number = std::to_string(i);
    lines += begin + "d" + (many == Many::kDevices ? number : "") + "\",\"source\":\"s" +
             (many == Many::kSources ? number : "") + '"';
    if (many == Many::kDomains) lines += ",\"domain\":\"n" + number + '"';
    lines += ",\"variables\":[";
    AppendValue(lines, 0);
    lines += "]}\n";
  }
}

/// So many of something, each with one value that is judged again and again.
class ManyOfSomething {
 public:
  ManyOfSomething(const BenchSettings& settings, Many many, std::size_t count)
      : root_(settings.root,
              "growth-" + std::to_string(static_cast<int>(many)) + "-" + std::to_string(count)),
        values_(static_cast<double>(kPasses * count)) {
    std::string first;
    AppendPass(first, many, many == Many::kDomains ? 1 : count, FleetTime(0));
    WriteFile(root_.File("first.jsonl"), first);
    root_.Evaluate("default", "first.jsonl");
    if (many == Many::kDomains) CopyDomains(count);
    std::string lines;
    for (std::size_t pass = 1; pass <= kPasses; ++pass) {
      AppendPass(lines, many, count, FleetTime(0) + 30 * static_cast<std::int32_t>(pass));
    }
    WriteFile(root_.File("input.jsonl"), lines);
    WriteFile(root_.File("empty.jsonl"), "");
  }

  /// Nanoseconds of processor time a value, without what any evaluation takes.
  double Cost() const {
    const std::vector<std::string> more = {"--threads", "1", "--judge-repeated"};
    const double all = root_.Evaluate("default", "input.jsonl", more).processorSeconds;
    const double none = root_.Evaluate("default", "empty.jsonl", more).processorSeconds;
    return (all - none) * 1e9 / values_;
  }

 private:
  /// The first one's databases are those of all.
  void CopyDomains(std::size_t count) const {
    for (std::size_t i = 1; i < count; ++i) {
      std::filesystem::copy(root_.DomainFolder("n0"), root_.DomainFolder("n" + std::to_string(i)),
                            std::filesystem::copy_options::recursive);
    }
  }

  ProgramRoot root_;
  double values_;
};

std::function<Rounds(const BenchSettings&)> GrowthOf(Many many, std::size_t count) {
  return [=](const BenchSettings& settings) -> Rounds {
    const std::size_t most = settings.brief ? 20 : count;
    const auto all = std::make_shared<ManyOfSomething>(settings, many, most);
    const auto tenth = std::make_shared<ManyOfSomething>(settings, many, most / 10);
    return {.round = [=] {
      return Sample{.ours = all->Cost(), .reference = tenth->Cost(), .figures = {}};
    }};
  };
}

}  // namespace

void AddGrowthCases(BenchCases& cases) {
  const auto add = [&](const char* name, const char* ours, const char* reference, Many many,
                       std::size_t count) {
    cases.push_back({.number = "22",
                     .name = name,
                     .ours = ours,
                     .reference = reference,
                     .unit = "ns/value",
                     .goal = 1.3,
                     .rounds = kLeastRounds,
                     .make = GrowthOf(many, count)});
  };
  add("growth/variables", "a value of one device with 200,000 variables", "with 20,000",
      Many::kVariables, 200'000);
  add("growth/devices", "a value of 100,000 devices with one each", "of 10,000", Many::kDevices,
      100'000);
  add("growth/domains", "a value of 10,000 domains with one each", "of 1,000", Many::kDomains,
      10'000);
  add("growth/sources", "a value of 10,000 sources of one device with one each", "of 1,000",
      Many::kSources, 10'000);
}

}  // namespace keelstone::bench
