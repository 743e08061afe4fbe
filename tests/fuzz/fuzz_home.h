#ifndef KEELSTONE_TESTS_FUZZ_FUZZ_HOME_H
#define KEELSTONE_TESTS_FUZZ_FUZZ_HOME_H

#include <memory>
#include <string>

#include "keelstone/domain_data_manager.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/write_behind.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/domain_files.h"
#include "tests/support/temp_root.h"

namespace keelstone::fuzz {

/// A root folder (below TMPDIR) with one domain, in which every value is learned from at
/// once. One a process.
class Home {
 public:
  Home() : files_("fuzz") {
    QuietLog();
    JsonValue settings = DefaultGeneralSettings();
    for (const std::string& name : settings.getMemberNames()) {
      if (settings[name].isObject()) settings[name]["timeIntervalLimit"] = 0;
    }
    files_.SetGeneralSettings(settings.toString());
  }

  testing::DomainFiles& files() { return files_; }
  const std::string& domainId() const { return files_.domainId(); }
  std::shared_ptr<KSDataManagerSql> manager() const {
    return KSDomainDataManager::Instance()->GetKSDataManager(domainId());
  }

  /// Brings what waits to the disk and then drops all that was learned, so that no input
  /// sees what an earlier one left.
  void Forget() {
    DBWriteWrapper::Instance()->WriteDomain(domainId());
    files_.Execute(kDbObjectRule, "delete from KSObjectRule");
    files_.Execute(kDbObjectHistory, "delete from KSObjectHistory");
  }

 private:
  testing::TempRoot root_;
  testing::DomainFiles files_;
};

}  // namespace keelstone::fuzz

#endif  // KEELSTONE_TESTS_FUZZ_FUZZ_HOME_H
