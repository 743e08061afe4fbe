#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/cases.h"
#include "bench/json_round_trip.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/update_result.h"

namespace keelstone::bench {

namespace {

constexpr std::size_t kItems = 34;  // of each kind, so that a document has about 100

template <class Item>
std::shared_ptr<Item> MakeItem(std::size_t i) {
  auto item = std::make_shared<Item>();
  item->nRuleId = 4;
  item->strVariableName = "counter" + std::to_string(i);
  item->strNodeId = "node-1";
  item->strInterfaceName = "GigabitEthernet0/" + std::to_string(i);
  item->strVariableSource = "parser/interfaces";
  item->strDeviceName = "core-1";
  item->strInterfacePath = "interfaces/" + item->strInterfaceName;
  item->nVariableType = 1;
  return item;
}

std::shared_ptr<KSAlertData> MakeAlert(std::size_t i) {
  auto alert = std::make_shared<KSAlertData>();
  alert->SetNodeId("node-1");
  alert->SetDeviceName("core-1");
  alert->SetInterfaceValue("GigabitEthernet0/" + std::to_string(i));
  alert->SetInterfacePath("interfaces/GigabitEthernet0/" + std::to_string(i));
  alert->SetSourcePath("parser/interfaces");
  alert->SetVaraibleName("counter" + std::to_string(i));
  alert->SetAlertInfo(R"({"_t":4,"_p":"{\"maxValue\":93.25,\"minValue\":12.5}","_v":")" +
                      std::to_string(100 + i) + ".75\"}");
  alert->SetLiveTime(1'700'000'000);
  return alert;
}

/// The document of a run that learned, changed and alerted.
std::string ResultText() {
  KSRuleUpdateResultData results;
  for (std::size_t i = 0; i < kItems; ++i) {
    auto rule = MakeItem<KSRuleUpdateResultItem>(i);
    rule->strRuleAlgParam =
        R"({"maxValue":93.25,"minValue":)" + std::to_string(i) + R"(.5,"valueCount":30})";
    results.AddKSRuleUpdateResultItem(rule);
    auto value = MakeItem<KSValueUpdateResultItem>(i);
    value->strJsonValue = std::to_string(i * 7919) + ".125";
    value->nValueTime = 1'700'000'000;
    results.AddKSValueUpdateResultItem(value);
    results.AddKSAlertResultItem(MakeAlert(i));
  }
  return results.ToJsonString();
}

/// Reads the text into a value and writes the value again, over the same with RapidJSON's
/// document.
Rounds JsonRounds(const std::string& text, bool brief) {
  const std::vector<std::string> texts(brief ? 1 : 1 + 1'000'000 / text.size(), text);
  const auto round = [texts] {
    std::size_t ours = 0;
    std::size_t reference = 0;
    const Sample sample = TimeInTurn(
        Clock::kProcessor, texts.size(),
        [&] {
          for (const std::string& one : texts) {
            JsonValue value;
            if (!JsonReader::Parse(one, value)) throw std::runtime_error("not read");
            ours += value.toString().size();
          }
        },
        [&] { reference = JsonRoundTrip(texts); });
    if (ours != reference || ours != texts.size() * texts.front().size()) {
      throw std::runtime_error("not written as it was read");
    }
    return sample;
  };
  return {.round = round};
}

BenchCase JsonCase(const char* name, const char* what, std::string (*text)()) {
  return {
      .number = "4",
      .name = std::string("json/") + name,
      .ours = std::string("JsonValue parse + write, ") + what,
      .reference = "RapidJSON's document",
      .unit = "ns/text",
      .goal = 1.5,
      .beyond = 1.0,
      .make = [text](const BenchSettings& settings) { return JsonRounds(text(), settings.brief); }};
}

}  // namespace

void AddJsonCases(BenchCases& cases) {
  cases.push_back(JsonCase("result", "102 result items", ResultText));
  cases.push_back(
      JsonCase("settings", "default settings", [] { return DefaultGeneralSettings().toString(); }));
}

}  // namespace keelstone::bench
