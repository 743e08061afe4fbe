#ifndef KEELSTONE_TESTS_SUPPORT_TUNED_DOMAIN_H
#define KEELSTONE_TESTS_SUPPORT_TUNED_DOMAIN_H

#include <memory>
#include <string>
#include <vector>

#include "keelstone/domain_data_manager.h"
#include "keelstone/rule_global_setting.h"
#include "tests/support/domain_files.h"
#include "tests/support/temp_root.h"

namespace keelstone::testing {

/// A domain of its own, with databases below a root folder of its own.
class TunedDomain {
 public:
  TunedDomain() : files_(NextId()) {}

  const std::string& id() const { return files_.domainId(); }
  DomainFiles& files() { return files_; }
  std::shared_ptr<KSDataManagerSql> manager() const {
    return KSDomainDataManager::Instance()->GetKSDataManager(id());
  }

  /// Stores general settings and has them read.
  void Tune(const std::string& document) {
    files_.SetGeneralSettings(document);
    manager()->InvalidateKSGlobalSettingCaches();
  }

  /// Stores the default general settings with some members changed.
  struct Changed {
    const char* kind;
    const char* member;
    JsonValue value;
  };
  void TuneDefaults(const std::vector<Changed>& changes = {}) {
    JsonValue document = DefaultGeneralSettings();
    for (const auto& [kind, member, value] : changes) document[kind][member] = value;
    Tune(document.toString());
  }

 private:
  static std::string NextId() {
    static int made = 0;
    return "tuned" + std::to_string(++made);
  }

  TempRoot root_;
  DomainFiles files_;
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_TUNED_DOMAIN_H
