#include "engine/evaluation_settings.h"

#include <algorithm>
#include <atomic>

#include "keelstone/ini_reader.h"

namespace keelstone {

namespace {

std::int32_t ReadIni(const char* key, std::int32_t otherwise) {
  return IniReader::GetInt("Keelstone", key, otherwise, "fix_frontserver.ini");
}

std::shared_ptr<const RuleSettings> RulesOf(const KSDataManagerSql* manager) {
  return manager != nullptr ? manager->GetRuleSettings()
                            : std::make_shared<const RuleSettings>(KSRuleGlobalSetting());
}

}  // namespace

EvaluationSettings::EvaluationSettings(const KSDataManagerSql* manager)
    : rules(RulesOf(manager)),
      areUnreadable(manager != nullptr && !manager->AreGlobalSettingsRead()),
      dynamicCalculation(manager != nullptr && manager->IsEnableDynamicCal()) {
  // What is wrong with them is said, whether or not a value asks.
  static std::atomic<bool> isChecked{false};
  if (isChecked.exchange(true)) return;
  IntervalTime();
  StrValueLength();
}

std::int32_t EvaluationSettings::IntervalTime() const {
  if (!intervalTime_) intervalTime_ = ReadIni("IntervalTime", 1800);
  return *intervalTime_;
}

std::size_t EvaluationSettings::StrValueLength() const {
  if (!strValueLength_) {
    strValueLength_ = static_cast<std::size_t>(std::max(ReadIni("StrValueLength", 1024), 0));
  }
  return *strValueLength_;
}

}  // namespace keelstone
