#include "keelstone/resident_store.h"

#include <algorithm>
#include <atomic>
#include <boost/thread/thread.hpp>
#include <exception>
#include <functional>
#include <list>
#include <map>
#include <new>
#include <unordered_map>
#include <utility>

#include "base/threads/thread_number.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/mutex.h"
#include "keelstone/unit_data.h"
#include "keelstone/write_behind.h"
#include "resident/resident_domain.h"
#include "storage/load/unit_changes.h"

namespace keelstone {

namespace {

using Entry = ResidentDomain::Entry;

// What a unit takes besides its rows, about.
constexpr std::size_t kEntryBytes = sizeof(ResidentEntry) + 256;

std::string NameOf(const std::string& domainId, const UnitKey& key) {
  std::string name;
  for (const std::string* part :
       {&domainId, &key.deviceName, &key.variableSource, &key.variableParam}) {
    name.append(std::to_string(part->size())).append(":").append(*part);
  }
  return name;
}

/// Tries again while memory is short, up to ten seconds.
template <class Step>
void UntilThereIsMemory(const Step& step) {
  constexpr int kTries = 1000;
  for (int i = 1;; ++i) {
    try {
      return step();
    } catch (const std::bad_alloc&) {
      if (i == kTries) throw;
      boost::this_thread::sleep_for(boost::chrono::milliseconds(10));
    }
  }
}

/// A unit that the caller has until it drops the pointer; empty when it did not get it.
struct Claimed {
  std::shared_ptr<ResidentUnit> unit;
  ResidentEntry* entry = nullptr;
};

bool IsCurrent(ResidentEntry& entry) {
  return entry.unit.IsWhole() && !entry.domain.IsOutOfDate(entry, entry.domain.Readings());
}

/// Makes the unit one that may be read from the databases; false when it stays as it is,
/// because its rows cannot be written.
bool MakeReadable(ResidentEntry& entry) {
  const std::string& domainId = entry.domain.id();
  if (entry.unit.HasUnwritten()) {
    entry.domain.Write();
    if (entry.unit.HasUnwritten()) return false;
  }
  entry.unit.Drop();
  const std::string& device = entry.unit.key().deviceName;
  DBWriteWrapper* const cache = DBWriteWrapper::Instance();
  if (cache->HasPendingRows(domainId, device)) cache->WriteDomain(domainId);
  entry.readings = entry.domain.Readings();
  entry.others = OthersUnitChanges(domainId, device);
  return true;
}

}  // namespace

struct ResidentStore::State : std::enable_shared_from_this<State> {
  using Uses = std::list<Entry>;

  State(std::size_t limit, std::function<void(State&)> renewIt)
      : budget(limit), renew(std::move(renewIt)) {}

  ResidentDomain* DomainOf(const std::string& domainId);
  const std::string* DomainAfter(const std::string* domainId);
  Claimed Claim(ResidentDomain& domain, const UnitKey& key, bool waits);
  void Release(const Entry& entry) noexcept;
  void Shrink() noexcept;
  ResidentDomain* Leave(std::size_t most, bool passesUnwritten);
  void Forget(Uses::iterator place, Uses& left) KS_REQUIRES(mutex);
  std::size_t UnitsWorthLoading();

  std::atomic<std::size_t> budget;
  const std::function<void(State&)> renew;  // by the store, in the child of a fork
  std::atomic<bool> isAbandoned{false};     // by the child of a fork, where it is the parent's
  Mutex mutex;  // guards what follows; a domain's and a unit's inside it
  Condition released;
  std::map<std::string, std::unique_ptr<ResidentDomain>> domains KS_GUARDED_BY(mutex);
  Uses byUse KS_GUARDED_BY(mutex);  // least recently used first
  std::unordered_map<std::string, Uses::iterator> units KS_GUARDED_BY(mutex);
  std::size_t bytes KS_GUARDED_BY(mutex) = 0;
};

/// nullptr for a domain that is another store's.
ResidentDomain* ResidentStore::State::DomainOf(const std::string& domainId) {
  const MutexLock lock(mutex);
  const auto known = domains.find(domainId);
  if (known != domains.end()) return known->second.get();
  auto made = std::make_unique<ResidentDomain>(domainId, [this] { renew(*this); });
  ResidentDomain* const domain = made.get();
  const auto place = domains.emplace(domainId, std::move(made)).first;
  try {
    if (DBWriteWrapper::Instance()->AddSource(domainId, *domain)) return domain;
  } catch (...) {
    domains.erase(place);
    throw;
  }
  domains.erase(place);
  return nullptr;
}

/// The first domain for nullptr; nullptr behind the last one.
const std::string* ResidentStore::State::DomainAfter(const std::string* domainId) {
  const MutexLock lock(mutex);
  const auto next = domainId == nullptr ? domains.begin() : domains.upper_bound(*domainId);
  return next == domains.end() ? nullptr : &next->first;
}

/// Empty when the unit is taken and is not waited for, or would be waited for in vain.
Claimed ResidentStore::State::Claim(ResidentDomain& domain, const UnitKey& key, bool waits) {
  const std::string name = NameOf(domain.id(), key);
  Entry entry;
  {
    const MutexLock lock(mutex);
    auto place = units.find(name);
    while (place != units.end() && (*place->second)->isTaken) {
      if (!waits || (*place->second)->holder == ThreadNumber()) return {};
      released.Wait(mutex);
      place = units.find(name);
    }
    if (place == units.end()) {
      domain.AddRoom();
      byUse.push_back(std::make_shared<ResidentEntry>(domain, key, name));
      try {
        place = units.emplace(name, std::prev(byUse.end())).first;
      } catch (...) {
        domain.RemoveRoom();
        byUse.pop_back();
        throw;
      }
    }
    byUse.splice(byUse.end(), byUse, place->second);
    entry = *place->second;
    entry->isTaken = true;
    entry->holder = ThreadNumber();
  }
  // Released, too, when there is no memory for the pointer.
  const auto release = [state = shared_from_this(), entry](ResidentUnit*) {
    state->Release(entry);
  };
  return {std::shared_ptr<ResidentUnit>(&entry->unit, release), entry.get()};
}

void ResidentStore::State::Release(const Entry& entry) noexcept {
  if (isAbandoned.load()) return;
  ResidentUnit& unit = entry->unit;
  const std::int64_t rows = unit.TakeRowCount();
  const bool isUnwritten = unit.HasUnwritten();
  if (isUnwritten) entry->domain.NoteUnwritten(entry);
  bool isFull = false;
  Uses left;
  {
    const MutexLock lock(mutex);
    entry->isTaken = false;
    const std::size_t now = unit.bytes() + kEntryBytes + 2 * entry->name.size();
    bytes += now - std::exchange(entry->bytes, now);
    if (!isUnwritten && !unit.IsWhole()) Forget(units.find(entry->name)->second, left);
    isFull = bytes > budget.load();
    released.NotifyAll();
  }
  try {
    if (rows > 0) DBWriteWrapper::Instance()->NoteSourceRows(entry->domain.id(), rows);
  } catch (const std::exception&) {
    // The worker finds them when its time has come.
  }
  if (isFull) Shrink();
}

void ResidentStore::State::Forget(Uses::iterator place, Uses& left) {
  (*place)->domain.RemoveRoom();
  bytes -= (*place)->bytes;
  units.erase((*place)->name);
  left.splice(left.end(), byUse, place);
}

/// A flush leaves all units of its domain clean, so that it serves all that leave next.
void ResidentStore::State::Shrink() noexcept {
  try {
    const ResidentDomain* written = nullptr;
    const std::size_t most = budget.load();
    ResidentDomain* next = Leave(most, false);
    for (; next != nullptr && next != written; next = Leave(most, false)) {
      next->Write();
      written = next;
    }
    if (next != nullptr) Leave(most, true);
  } catch (const std::exception&) {
    // Without memory for it they stay until the next run has ended.
  }
}

/// Lets the least recently used units go until there are so many bytes at most, but for unwritten
/// ones; the domain that has to be written before more can, unless these are passed over.
ResidentDomain* ResidentStore::State::Leave(std::size_t most, bool passesUnwritten) {
  Uses left;  // freed after the lock is
  const MutexLock lock(mutex);
  for (auto place = byUse.begin(); place != byUse.end() && bytes > most;) {
    const auto unit = place++;
    if ((*unit)->isTaken) continue;
    if (!(*unit)->unit.HasUnwritten()) {
      Forget(unit, left);
    } else if (!passesUnwritten) {
      return &(*unit)->domain;
    }
  }
  return nullptr;
}

std::size_t ResidentStore::State::UnitsWorthLoading() {
  constexpr std::size_t kGuess = 16384;  // bytes a unit, before one is known
  const MutexLock lock(mutex);
  const std::size_t average = units.empty() ? kGuess : bytes / units.size();
  return budget.load() / 2 / std::max<std::size_t>(average, 1);
}

ResidentStore::ResidentStore(std::size_t budget)
    : state_(std::make_shared<State>(budget, [this](State& old) { Renew(old); })) {}

// The cache must not ask a store that is gone, and what is unwritten would be lost: where memory
// is short, this waits for it.
ResidentStore::~ResidentStore() {
  for (const std::string* id = state_->DomainAfter(nullptr); id != nullptr;
       id = state_->DomainAfter(id)) {
    UntilThereIsMemory([&] { DBWriteWrapper::Instance()->WriteDomain(*id); });
    UntilThereIsMemory([&] { DBWriteWrapper::Instance()->RemoveSource(*id); });
  }
}

/// In the child of a fork: what the threads of the parent held cannot be let go.
void ResidentStore::Renew(State& old) {
  if (state_.get() != &old) return;  // another of its domains has renewed it
  old.isAbandoned.store(true);
  new std::shared_ptr<State>(
      std::exchange(state_, std::make_shared<State>(old.budget.load(), old.renew)));
}

std::shared_ptr<ResidentUnit> ResidentStore::Take(const std::string& domainId, const UnitKey& key) {
  ResidentDomain* const domain = state_->DomainOf(domainId);
  if (domain == nullptr) return nullptr;
  const Claimed claimed = state_->Claim(*domain, key, true);
  if (!claimed.unit) {
    DBWriteWrapper::Instance()->WriteDomain(domainId);
  } else if (!IsCurrent(*claimed.entry)) {
    MakeReadable(*claimed.entry);
  }
  return claimed.unit;
}

void ResidentStore::LoadAhead(const std::string& domainId, const std::vector<UnitKey>& keys) {
  ResidentDomain* const domain = state_->DomainOf(domainId);
  if (domain == nullptr) return;
  const std::size_t most = state_->UnitsWorthLoading();
  std::vector<std::shared_ptr<ResidentUnit>> taken;
  std::vector<UnitKey> wanted;
  for (const UnitKey& key : keys) {
    if (taken.size() >= most) break;
    Claimed claimed = state_->Claim(*domain, key, false);
    if (!claimed.unit || IsCurrent(*claimed.entry) || !MakeReadable(*claimed.entry)) continue;
    taken.push_back(std::move(claimed.unit));
    wanted.push_back(key);
  }
  if (taken.empty()) return;
  const auto table =
      KSDomainDataManager::Instance()->GetKSDataManager(domainId)->GetObjectRuleTable();
  auto loaded = LoadUnits(*table, wanted);
  for (std::size_t i = 0; i < loaded.size(); ++i) {
    if (!loaded[i]) continue;
    taken[i]->SetRules(loaded[i]->rules);
    taken[i]->SetHistories(loaded[i]->histories);
  }
}

void ResidentStore::SetBudget(std::size_t budget) {
  state_->budget.store(budget);
  state_->Shrink();
}

void ResidentStore::LetGo() noexcept { state_->Leave(0, true); }

std::size_t ResidentStore::bytes() const {
  const MutexLock lock(state_->mutex);
  return state_->bytes;
}

std::size_t ResidentStore::units() const {
  const MutexLock lock(state_->mutex);
  return state_->units.size();
}

}  // namespace keelstone
