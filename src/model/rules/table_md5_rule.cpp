#include "model/rules/table_md5_rule.h"

namespace keelstone {

bool KSTableMd5EqualRule::Fits(const Case& lesson) {
  return Lasts(lesson, lesson.settings.Of<kTableMd5>());
}

bool KSTableMd5EqualRule::UpdateRuleWith(const RuleSettings* settings) {
  TablMd5EqualData* const data = RuleData();
  const KSTableDataPoint* const stable =
      StableText(OwnHistory(), settings == nullptr ? nullptr : settings->Of<kTableMd5>());
  if (data == nullptr || stable == nullptr) return false;
  data->hashCmp = stable->value;
  data->hashSort = stable->content->hashSort;
  data->hashColumns = stable->content->hashColumns;
  data->golden = *stable;
  return true;
}

bool KSTableMd5EqualRule::Breaks(const TablMd5EqualData& data, const std::string& digest) {
  return digest != data.hashCmp;
}

bool KSTableMd5EqualRule::IsGolden(const TablMd5EqualData& data, const std::string& digest) {
  return digest == data.golden.value;
}

}  // namespace keelstone
