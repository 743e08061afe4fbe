// A history text of each type: what is taken comes back from its own text, whichever way
// it is read; the points are then learned from.
#include <limits>
#include <memory>

#include "keelstone/algorithm_manager.h"
#include "keelstone/history_data.h"
#include "keelstone/table_data_point.h"
#include "tests/fuzz/fuzz_home.h"

namespace keelstone::fuzz {
namespace {

constexpr std::int32_t kNoLimit = std::numeric_limits<std::int32_t>::max();

std::shared_ptr<KSDataBase> NewestPoint(const HistoryDataBase& history) {
  if (const auto* const ints = dynamic_cast<const IntHistoryData*>(&history)) {
    return std::make_shared<KSDataPoint<std::int64_t>>(ints->points().back());
  }
  if (const auto* const floats = dynamic_cast<const FloatHistoryData*>(&history)) {
    return std::make_shared<KSDataPoint<float>>(floats->points().back());
  }
  if (const auto* const doubles = dynamic_cast<const DoubleHistoryData*>(&history)) {
    return std::make_shared<KSDataPoint<double>>(doubles->points().back());
  }
  if (const auto* const texts = dynamic_cast<const StrHisotryData*>(&history)) {
    return std::make_shared<KSDataPoint<std::string>>(texts->points().back());
  }
  const auto& tables = dynamic_cast<const TableHistoryData&>(history);
  return std::make_shared<KSTableDataPoint>(tables.points().back());
}

/// The text of the history that `text` gives; "" when it is refused or empty.
std::string Reread(EnumKSDataType type, const std::string& text) {
  const auto history = MakeHistory(type);
  return history->FromString(text) ? history->ToString() : "";
}

void ExpectGrowth(EnumKSDataType type, const std::string& text) {
  const auto history = MakeHistory(type);
  KS_PROMISE(history->FromString(text));
  const std::int32_t count = history->GetDataCount();
  const auto point = NewestPoint(*history);
  history->AddData(point, kNoLimit);
  KS_PROMISE(history->GetDataCount() == count + 1);
  KS_PROMISE(Reread(type, history->ToString()) == history->ToString());
  history->AddData(point, count / 2);
  KS_PROMISE(history->GetDataCount() == std::max(count / 2, 1));
  KS_PROMISE(Reread(type, history->ToString()) == history->ToString());
  std::string value;
  history->GetDataValue(point, value);
}

void Learn(const Home& home, EnumKSDataType type, const std::string& text) {
  std::shared_ptr<HistoryDataBase> history;
  std::shared_ptr<KSDataFeature> feature;
  KSRuleAlgMgr* const manager = KSRuleAlgMgr::Instance();
  manager->GetHistoryAndDataFeatrue(text, type, history, feature);
  KS_PROMISE(feature != nullptr);
  auto definition = std::make_shared<RuleDefinitionData>();
  definition->history = text;
  const auto rule =
      manager->CalculateRule(definition, history, feature, type, home.domainId(), AlgTypeOf(type));
  if (!rule || !rule->UpdateRule()) return;
  KS_PROMISE(IsStrictJson(rule->GetRuleParam()) || type == KSDataString || type == KSDataTable);
  rule->CheckAlert(NewestPoint(*history));
  rule->CheckGoldenValue(NewestPoint(*history));
  rule->GetRuleKSValue();
}

void ReadHistory(Input input) {
  static Home home;
  const auto type = static_cast<EnumKSDataType>(1 + input.Byte() % 5);
  const std::string text = input.Rest();
  const auto history = MakeHistory(type);
  if (!history->FromString(text) || history->GetDataCount() == 0) return;
  const std::string written = history->ToString();
  KS_PROMISE(Reread(type, written) == written);
  // A blank before it keeps the text from the quick way.
  KS_PROMISE(Reread(type, " " + written) == written);
  KS_PROMISE(Reread(type, " " + text) == written);
  if (const auto* const tables = dynamic_cast<const TableHistoryData*>(history.get())) {
    for (const KSTableDataPoint& table : tables->points()) table.content->GetTableText();
  }
  ExpectGrowth(type, text);
  Learn(home, type, text);
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::ReadHistory({data, size});
  return 0;
}
