#include "storage/load/unit_loader.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "keelstone/logger.h"
#include "keelstone/write_behind.h"
#include "storage/load/unit_changes.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "Performance";
constexpr const char* kSource = "ksdatacachequeue";

// True on a thread that loads: a host's log callback that asks for a unit there would wait
// for itself.
thread_local bool isLoading = false;

struct LoadingMark {
  LoadingMark() noexcept { isLoading = true; }
  ~LoadingMark() { isLoading = false; }
  LoadingMark(const LoadingMark&) = delete;
  LoadingMark& operator=(const LoadingMark&) = delete;
};

// Whether the key's text stands for this unit alone: with the separator in a name, or the
// half of one at its edge, it may be another's too.
bool HasOwnText(const UnitKey& key, const std::string& text) {
  const auto holds = [](const std::string& name) { return name.find('$') != std::string::npos; };
  if (!holds(key.deviceName) && !holds(key.variableSource) && !holds(key.variableParam))
    return true;
  UnitKey read;
  return read.LoadKeyString(text) && read.deviceName == key.deviceName &&
         read.variableSource == key.variableSource && read.variableParam == key.variableParam;
}

}  // namespace

template <class Data>
void UnitLoader<Data>::SetTable(std::shared_ptr<KSObjectRuleSql> table) {
  std::string domainId = table->GetDomainId();
  {
    const MutexLock lock(cacheMutex_);
    table_ = std::move(table);
    domainId_ = std::move(domainId);
    cache_.clear();
  }
  Start();
  const bool isStarted = IsStarted();
  const MutexLock lock(mutex_);
  lacksThread_ = !isStarted;
}

// ---- The queue

template <class Data>
std::uint64_t UnitLoader<Data>::Put(std::shared_ptr<UnitKey> key, bool ahead) {
  if (key == nullptr || !HasOwnText(*key, key->GetKeyString())) return 0;
  const MutexLock lock(mutex_);
  if (lacksThread_) return 0;
  queue_.push_back({std::move(key), ++lastNumber_, ahead});
  wake_.NotifyAll();
  return lastNumber_;
}

template <class Data>
bool UnitLoader<Data>::WaitStep(Condition& condition, Mutex& mutex) {
  return condition.WaitUntil(
      mutex, boost::chrono::steady_clock::now() + boost::chrono::milliseconds(kWaitStep));
}

// Answers the number of the newest request made so far.
template <class Data>
std::uint64_t UnitLoader<Data>::TakeRequests(std::vector<Request>& out) {
  // A lone key waits a little for company.
  for (int pass = 0; pass < 2; ++pass) {
    const MutexLock lock(mutex_);
    if (queue_.size() < 2 && !stopping_) WaitStep(wake_, mutex_);
  }
  const MutexLock lock(mutex_);
  const std::size_t count = std::min(queue_.size(), kKeyLimit);
  const auto end = queue_.begin() + static_cast<std::ptrdiff_t>(count);
  out.assign(std::make_move_iterator(queue_.begin()), std::make_move_iterator(end));
  queue_.erase(queue_.begin(), end);
  if (out.empty() && !stopping_) WaitStep(wake_, mutex_);
  // Those behind the limit are not in this load.
  return queue_.empty() ? lastNumber_ : queue_.front().number - 1;
}

template <class Data>
int UnitLoader<Data>::TakeKeys(Keys& out) {
  std::vector<Request> requests;
  TakeRequests(requests);
  for (Request& request : requests) out.push_back(std::move(request.key));
  return static_cast<int>(out.size());
}

template <class Data>
std::shared_ptr<UnitKey> UnitLoader<Data>::TakeOne() {
  const MutexLock lock(mutex_);
  if (queue_.empty()) return nullptr;
  auto key = std::move(queue_.front().key);
  queue_.pop_front();
  return key;
}

template <class Data>
void UnitLoader<Data>::Clear() {
  const MutexLock lock(mutex_);
  queue_.clear();
}

// ---- Loading

template <class Data>
void UnitLoader<Data>::thread_sleep() {
  newestTaken_ = TakeRequests(taken_);
}

template <class Data>
void UnitLoader<Data>::inner_thread_func() {
  if (taken_.empty()) return;
  const int asked = static_cast<int>(taken_.size());
  KS_LOG(kModule, kind_.loadFunction, kSource, kLogInformation, "Get the %s data %d", kind_.name,
         asked);
  const int got = Load();
  KS_LOG(kModule, kind_.loadFunction, kSource, kLogInformation, "Search %d and get %d  %s data%s",
         asked, got, kind_.name, kind_.searchEnd);
}

// Answers the number of units found.
template <class Data>
int UnitLoader<Data>::Load() {
  const LoadingMark mark;
  const auto table = BeginLoad();
  std::size_t got = 0;
  try {
    for (Requests left(taken_); !left.empty();) {
      const std::size_t count = std::min(left.size(), kUnitsAQuery);
      got += LoadSome(*table, left.first(count));
      left = left.subspan(count);
    }
  } catch (...) {
    EndLoad();
    throw;
  }
  EndLoad();
  return static_cast<int>(got);
}

template <class Data>
std::size_t UnitLoader<Data>::LoadSome(KSObjectRuleSql& table, Requests requests) {
  const Stamps stamps = StampUnits(table.GetDomainId(), requests);
  Keys keys;
  keys.reserve(requests.size());
  for (Request& request : requests) keys.push_back(std::move(request.key));
  Units found;
  const std::uint64_t failedBefore = FailedOperationsHere();
  (table.*kind_.query)(found, keys, kVariableSourceParser);
  // A unit may have been read in part: its callers read for themselves.
  if (FailedOperationsHere() != failedBefore) found.clear();
  const std::size_t got = found.size();
  Keep(table, found, stamps);
  return got;
}

// What is on disk is what will be loaded: rows that wait are written first, and the changes
// are read before it is asked whether more have come.
template <class Data>
typename UnitLoader<Data>::Stamps UnitLoader<Data>::StampUnits(const std::string& domainId,
                                                               Requests requests) const {
  DBWriteWrapper* const pending = DBWriteWrapper::Instance();
  const auto isPending = [&](const Request& request) {
    return pending->HasPendingRows(domainId, request.key->deviceName);
  };
  if (std::any_of(requests.begin(), requests.end(), isPending)) pending->WriteDomain(domainId);
  Stamps stamps;
  stamps.reserve(requests.size());
  for (const Request& request : requests) {
    Stamp& stamp = stamps[request.key->GetKeyString()];
    stamp.newestRequest = newestTaken_;
    stamp.ahead = stamp.ahead || request.ahead;
    stamp.changes = UnitChanges(domainId, request.key->deviceName);
    stamp.incomplete = isPending(request);
  }
  return stamps;
}

template <class Data>
std::shared_ptr<KSObjectRuleSql> UnitLoader<Data>::BeginLoad() {
  const MutexLock lock(cacheMutex_);
  loading_ = true;
  return table_;
}

template <class Data>
void UnitLoader<Data>::EndLoad() {
  const MutexLock lock(cacheMutex_);
  loading_ = false;
  cacheFilled_.NotifyAll();
}

template <class Data>
void UnitLoader<Data>::Keep(const KSObjectRuleSql& table, Units& found, const Stamps& stamps) {
  const MutexLock lock(cacheMutex_);
  cacheFilled_.NotifyAll();
  if (&table != table_.get()) return;  // another table has been set meanwhile
  for (auto& [text, data] : found) {
    const auto stamp = stamps.find(text);
    if (stamp == stamps.end() || stamp->second.incomplete) continue;
    const auto [place, isNew] = cache_.try_emplace(text);
    // What was loaded ahead and still holds is kept, for it holds for everybody.
    const Stamp& kept = place->second.stamp;
    if (!isNew && kept.ahead && kept.changes == stamp->second.changes) continue;
    place->second = {std::move(data), stamp->second};
  }
}

// ---- Handing out

template <class Data>
bool UnitLoader<Data>::IsUnchanged(const UnitKey& key, const Entry& entry) const {
  return entry.stamp.changes == UnitChanges(domainId_, key.deviceName);
}

// A unit that is in memory and holds for this request (0: one that is not made yet).
template <class Data>
std::shared_ptr<Data> UnitLoader<Data>::TakeLoaded(const UnitKey& key, const std::string& text,
                                                   std::uint64_t request) {
  const auto found = cache_.find(text);
  if (found == cache_.end()) return nullptr;
  const Stamp& stamp = found->second.stamp;
  const bool isMeant = stamp.ahead || (request != 0 && request <= stamp.newestRequest);
  if (!isMeant || !IsUnchanged(key, found->second)) return nullptr;
  auto data = std::move(found->second.data);
  cache_.erase(found);
  return data;
}

// The unit as soon as it is there; nothing when no load runs that could bring it.
template <class Data>
std::shared_ptr<Data> UnitLoader<Data>::AwaitLoad(const UnitKey& key, const std::string& text,
                                                  std::uint64_t request) {
  while (true) {
    if (auto data = TakeLoaded(key, text, request)) return data;
    if (!loading_ || isLoading) return nullptr;
    cacheFilled_.Wait(cacheMutex_);
  }
}

template <class Data>
std::shared_ptr<Data> UnitLoader<Data>::Await(const UnitKey& key, const std::string& text,
                                              std::uint64_t request) {
  for (int attempt = 1; attempt < kWaitAttempts; ++attempt) {
    bool isLate = false;
    {
      const MutexLock lock(cacheMutex_);
      if (auto data = AwaitLoad(key, text, request)) return data;
      isLate = !cacheFilled_.WaitUntil(
          cacheMutex_, boost::chrono::steady_clock::now() + boost::chrono::milliseconds(kWaitStep));
    }
    if (isLate) {
      KS_LOG(kModule, kind_.getFunction, kSource, kLogInformation,
             "Wait too long to get the %s data. : %s", kind_.name, text.c_str());
    }
  }
  return nullptr;
}

template <class Data>
std::shared_ptr<Data> UnitLoader<Data>::Get(const std::shared_ptr<UnitKey>& key) {
  if (key == nullptr) return nullptr;
  const std::string text = key->GetKeyString();
  std::shared_ptr<Data> data;
  if (HasOwnText(*key, text)) {
    {
      const MutexLock lock(cacheMutex_);
      data = AwaitLoad(*key, text, 0);
    }
    const std::uint64_t request = data == nullptr ? Put(key, false) : 0;
    if (request != 0) data = Await(*key, text, request);
  }
  if (data != nullptr) {
    KS_LOG(kModule, kind_.getFunction, kSource, kLogInformation, "Succeed to get the %s data. : %s",
           kind_.name, text.c_str());
  } else {
    KS_LOG(kModule, kind_.getFunction, kSource, kLogInformation, "Failed to get the %s data for %s",
           kind_.name, text.c_str());
  }
  return data;
}

template class UnitLoader<DevParserRule>;
template class UnitLoader<DevParserHistory>;

}  // namespace keelstone
