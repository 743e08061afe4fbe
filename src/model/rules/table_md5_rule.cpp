#include "model/rules/table_md5_rule.h"

#include "keelstone/logger.h"

namespace keelstone {

void KSTableMd5EqualRule::LogRefusedHistory(const std::string& text) const {
  KS_LOG("FS_Keelstone", "KSTableMd5EqualRule::Init", "kstablemd5equalrule", kLogError,
         "Failed to load history data: %s", text.c_str());
}

bool KSTableMd5EqualRule::CheckRuleWith(const RuleSettings& settings, const std::string& domainId) {
  return Lasts(settings.tableMd5.get()) && Accept(domainId);
}

bool KSTableMd5EqualRule::UpdateRuleWith(const RuleSettings* settings) {
  TablMd5EqualData* const data = RuleData();
  const KSTableDataPoint* const stable =
      StablePoint(settings == nullptr ? nullptr : settings->tableMd5.get());
  if (data == nullptr || stable == nullptr) return false;
  data->hashCmp = stable->value;
  data->hashSort = stable->content->hashSort;
  data->hashColumns = stable->content->hashColumns;
  data->golden = *stable;
  return true;
}

bool KSTableMd5EqualRule::CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) {
  return TakeGoldenIf<KSTableDataPoint>(
      point, [](const TablMd5EqualData& data, const KSTableDataPoint& table) {
        return table.value == data.golden.value;
      });
}

bool KSTableMd5EqualRule::CheckAlert(const std::shared_ptr<KSDataBase>& point) {
  return AlertIf<KSTableDataPoint>(point,
                                   [](const TablMd5EqualData& data, const KSTableDataPoint& table) {
                                     return table.value != data.hashCmp;
                                   });
}

}  // namespace keelstone
