#include "keelstone/domain_data_manager.h"

#include <exception>

#include "base/threads/thread_owned.h"
#include "settings/rule_settings.h"
#include "storage/tables/deferred_log.h"

namespace keelstone {

namespace {

// What a thread last fetched; of worth while the generation is the same.
struct FetchedSettings {
  std::string domainId;
  std::uint64_t generation = 0;
  std::shared_ptr<const RuleSettings> settings;
};

}  // namespace

KSDomainDataManager* KSDomainDataManager::Instance() {
  static auto* const instance = new KSDomainDataManager;
  return instance;
}

std::shared_ptr<KSDataManagerSql> KSDomainDataManager::GetKSDataManager(
    const std::string& domainId) {
  {
    const ReaderLock lock(mutex_);
    const auto found = domains_.find(domainId);
    if (found != domains_.end()) return found->second;
  }
  // Evaluation waits for the registry: what loading has to say is logged after it is free.
  const DeferredLog log("KSDomainDataManager::GetKSDataManager", "ksdomaindatamanager");
  const WriterLock lock(mutex_);
  const auto found = domains_.find(domainId);
  if (found != domains_.end()) return found->second;
  auto manager = std::make_shared<KSDataManagerSql>();
  manager->Init(domainId);
  domains_.emplace(domainId, manager);
  return manager;
}

std::shared_ptr<const RuleSettings> DomainRuleSettings(const std::string& domainId) {
  try {
    FetchedSettings& fetched = ThreadOwned<FetchedSettings>::Get();
    // Before fetching: a reload in between leaves a generation that is past already.
    const std::uint64_t generation = GlobalSettingsGeneration();
    if (fetched.settings != nullptr && fetched.generation == generation &&
        fetched.domainId == domainId) {
      return fetched.settings;
    }
    const auto manager = KSDomainDataManager::Instance()->GetKSDataManager(domainId);
    // A counter of the thread's own around the shared one: taking and dropping what is
    // answered must not have all cores write the same cache line for every value.
    const auto own =
        std::make_shared<const std::shared_ptr<const RuleSettings>>(manager->GetRuleSettings());
    fetched = {domainId, generation, std::shared_ptr<const RuleSettings>(own, own->get())};
    return fetched.settings;
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace keelstone
