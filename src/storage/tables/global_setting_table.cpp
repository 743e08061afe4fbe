#include "keelstone/global_setting_table.h"

#include <utility>

#include "keelstone/database_files.h"
#include "settings/rule_settings.h"
#include "storage/settings_generation.h"
#include "storage/tables/data_rows.h"

namespace keelstone {

namespace {

constexpr const char* kSource = "ksglobalsettingsql";
constexpr TableOperation kLoad{.table = "KSGlobalSetting",
                               .dbType = kDbGlobalSetting,
                               .function = "KSGlobalSettingSql::LoadDBData",
                               .source = kSource,
                               .failedName = "select * from KSGlobalSetting"};

// The set of the strings in the member "value" of a filter document; the empty one, which
// every name contains, is none.
std::shared_ptr<const InterfaceFilterSet> ReadFilterSet(const JsonValue& filter) {
  auto set = std::make_shared<InterfaceFilterSet>();
  const JsonValue* entries = filter.find("value");
  if (entries != nullptr && entries->isArray()) {
    for (const JsonValue& entry : *entries) set->insert(entry.asString());
    set->erase(std::string());
  }
  return set;
}

}  // namespace

struct KSGlobalSettingSql::Content {
  std::string ruleTypeText;
  JsonValue ruleType;
  std::string generalSettingText;
  JsonValue generalSetting;
  std::string interfaceFilterText;
  JsonValue interfaceFilter;
  std::shared_ptr<const InterfaceFilterSet> interfaceFilterSet =
      std::make_shared<const InterfaceFilterSet>();
  bool dynamicRule = true;
  std::int32_t tableLimitCount = 5000;
  std::int32_t strRowLimitCount = 100;
  bool engine = true;
  std::shared_ptr<const RuleSettings> ruleSettings;

  void BeginReading();
  void Apply(const JsonValue& row);
  void Take(const std::string& name, const JsonValue& value);
  void EndReading() {
    ruleSettings = std::make_shared<const RuleSettings>(KSRuleGlobalSetting(generalSetting));
  }
};

void KSGlobalSettingSql::Content::BeginReading() {
  ruleTypeText.clear();
  generalSettingText.clear();
  dynamicRule = true;
  engine = true;
}

void KSGlobalSettingSql::Content::Apply(const JsonValue& row) {
  const std::string name = TextMember(row, "name");
  try {
    ReadMember(row, "value", [&](const JsonValue& value) { Take(name, value); });
  } catch (const JsonError& error) {
    throw JsonError(std::string(error.what()) + " (in the setting \"" + name + "\")");
  }
}

void KSGlobalSettingSql::Content::Take(const std::string& name, const JsonValue& value) {
  if (name == "KSRuleType") {
    ruleType = value;
    ruleTypeText = value.toString();
  } else if (name == "KSGeneralSetting") {
    generalSetting = value;
    generalSettingText = value.toString();
  } else if (name == "KSInterfaceFilter") {
    interfaceFilterSet = ReadFilterSet(value);  // first: it may refuse
    interfaceFilter = value;
    interfaceFilterText = value.toString();
  } else if (name == "KSTableCountLimit") {
    tableLimitCount = value.asInt();
  } else if (name == "KSStrRowCountLimit") {
    strRowLimitCount = value.asInt();
  } else if (name == "KSDynamicRuleStatus") {
    dynamicRule = value.asString() == "true";
  } else if (name == "EnableKSFunction") {
    engine = value.asString() == "true";
  }
}

KSGlobalSettingSql::KSGlobalSettingSql(const std::string& subPath) : CKSDBOperateBase(subPath) {
  auto defaults = std::make_shared<Content>();
  defaults->EndReading();
  const WriterLock lock(mutex_);
  content_ = std::move(defaults);
}

KSGlobalSettingSql::~KSGlobalSettingSql() = default;

bool KSGlobalSettingSql::InitDB(const std::string& domainId) {
  SetDomainId(domainId);
  return true;
}

void KSGlobalSettingSql::RequireRow(const JsonValue& row) { Content().Apply(row); }

int KSGlobalSettingSql::LoadDBData() {
  const DeferredLog log(kLoad.function, kSource);
  const MutexLock change(changeMutex_);
  auto next = std::make_shared<Content>(*GetContent());
  next->BeginReading();
  const TableOutcome outcome =
      ReadDataRows(*this, kLoad, [&next](const JsonValue& row) { next->Apply(row); });
  if (IsFailure(outcome)) return 0;
  if (outcome == TableOutcome::kRan) next->EndReading();
  {
    const WriterLock lock(mutex_);
    if (outcome == TableOutcome::kRan) content_ = std::move(next);
    isRead_ = true;
  }
  AdvanceGlobalSettingsGeneration();
  return 1;
}

std::shared_ptr<const KSGlobalSettingSql::Content> KSGlobalSettingSql::GetContent() const {
  const ReaderLock lock(mutex_);
  return content_;
}

std::string KSGlobalSettingSql::GetRuleTypeJson() const { return GetContent()->ruleTypeText; }

JsonValue KSGlobalSettingSql::GetRuleTypeJsonObj() const { return GetContent()->ruleType; }

std::string KSGlobalSettingSql::GetGeneralSettingJson() const {
  return GetContent()->generalSettingText;
}

JsonValue KSGlobalSettingSql::GetGeneralSettingJsonObj() const {
  return GetContent()->generalSetting;
}

JsonValue KSGlobalSettingSql::GetInterfaceFilter() const { return GetContent()->interfaceFilter; }

std::shared_ptr<const InterfaceFilterSet> KSGlobalSettingSql::GetInterfaceFilterSet() const {
  return GetContent()->interfaceFilterSet;
}

std::int32_t KSGlobalSettingSql::GetTableLimitcount() const {
  return GetContent()->tableLimitCount;
}

std::int32_t KSGlobalSettingSql::GetStrRowLimitcount() const {
  return GetContent()->strRowLimitCount;
}

bool KSGlobalSettingSql::IsEnableDynamicCal() const { return GetContent()->dynamicRule; }

bool KSGlobalSettingSql::IsEnableKSFunction() const { return GetContent()->engine; }

bool KSGlobalSettingSql::IsRead() const {
  const ReaderLock lock(mutex_);
  return isRead_;
}

std::shared_ptr<const RuleSettings> KSGlobalSettingSql::GetRuleSettings() const {
  return GetContent()->ruleSettings;
}

}  // namespace keelstone
