#include "keelstone/write_behind.h"

#include <algorithm>
#include <atomic>
#include <boost/thread/thread.hpp>
#include <exception>
#include <map>
#include <set>
#include <utility>

#include "base/threads/fork_gate.h"
#include "keelstone/domain_data_manager.h"
#include "keelstone/ini_reader.h"
#include "keelstone/logger.h"
#include "storage/load/unit_changes.h"
#include "storage/pending/pending_rows.h"
#include "storage/pending/row_source.h"
#include "storage/tables/note_failure.h"
#include "storage/tables/table_frame.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "FS_Keelstone";
constexpr const char* kFlushFunction = "DBWriteWrapper::ForceWriteDisk";
constexpr const char* kSource = "dbwritewrapper";

constexpr std::int64_t kStartInterval = 60;  // s, between two attempts to start the worker

std::int64_t SteadySeconds() {
  using Seconds = boost::chrono::seconds;
  const auto sinceStart = boost::chrono::steady_clock::now().time_since_epoch();
  return boost::chrono::duration_cast<Seconds>(sinceStart).count();
}

int ReadSetting(const char* key, int otherwise) {
  return IniReader::GetInt("Keelstone", key, otherwise, "fix_frontserver.ini", "frontserver.ini");
}

// True while this thread flushes: a host's log callback runs inside a flush, and a flush
// that it asks for would wait for the one it runs in.
thread_local bool isFlushing = false;

class FlushingMark {
 public:
  FlushingMark() noexcept { isFlushing = true; }
  ~FlushingMark() { isFlushing = false; }
  FlushingMark(const FlushingMark&) = delete;
  FlushingMark& operator=(const FlushingMark&) = delete;
};

// Runs one step of a flush. What fails here is outside the tables, which catch and count
// their own errors; the flush goes on with the next step.
template <class Step>
void RunStep(const Step& step) noexcept {
  try {
    step();
  } catch (const std::exception& error) {
    CountFailedWrite();
    NoteFailure({}, kFlushFunction, error.what());
    KS_LOG(kModule, kFlushFunction, kSource, kLogError, "c++ exception in rw:%s.", error.what());
  } catch (...) {
    CountFailedWrite();
    KS_LOG(kModule, kFlushFunction, kSource, kLogError, "unkown error.");
  }
}

std::shared_ptr<KSObjectRuleSql> TableOf(const std::string& domainId) {
  return KSDomainDataManager::Instance()->GetKSDataManager(domainId)->GetObjectRuleTable();
}

std::set<std::string> DevicesOf(const std::vector<ObjectRuleData>& rules,
                                const std::vector<ObjectRuleHistoryData>& history) {
  std::set<std::string> devices;
  for (const ObjectRuleData& row : rules) devices.insert(row.object.deviceName);
  for (const ObjectRuleHistoryData& row : history) devices.insert(row.object.deviceName);
  return devices;
}

// Says how many rows of a table are written, `size` a line.
void Announce(std::size_t rows, std::size_t size, const char* operation) {
  for (std::size_t done = 0; done < rows;) {
    const std::size_t count = std::min(size, rows - done);
    KS_LOG(kModule, kFlushFunction, kSource, kLogProgress,
           "Force write cache data to data base. %s-%s: %d", operation,
           count == size ? "batch" : "over", static_cast<int>(count));
    done += count;
  }
}

// `size` 0: says nothing.
void AnnounceBoth(std::size_t rules, std::size_t histories, std::size_t size) {
  if (size == 0) return;
  Announce(rules, size, "SetRuleAlgParam");
  Announce(histories, size, "SetRuleHistoryData");
}

// Writes a generation in one commit; the number of its rows, which are lost unless `isOnDisk`.
int WriteWhole(const std::string& domainId, const PendingGeneration& generation, bool& isOnDisk) {
  int written = 0;
  isOnDisk = false;
  RunStep([&] {
    const std::uint64_t failedBefore = FailedOperationsHere();
    const auto rules = generation.RuleRows();
    const auto history = generation.HistoryRows();
    TableOf(domainId)->WriteFlush(rules, history);
    isOnDisk = FailedOperationsHere() == failedBefore;
    written += static_cast<int>(rules.size() + history.size());
  });
  return written;
}

template <class Row>
std::vector<const Row*> PointersTo(const std::vector<Row>& rows) {
  std::vector<const Row*> pointers;
  pointers.reserve(rows.size());
  for (const Row& row : rows) pointers.push_back(&row);
  return pointers;
}

// Writes what a source holds in one commit; the number of its rows.
int WriteSource(const std::string& domainId, RowSource& source, std::size_t announced) {
  if (!source.HasRows()) return 0;
  int written = 0;
  bool isOnDisk = false;
  RunStep([&] {
    const SourceRows rows = source.Take();
    const std::uint64_t failedBefore = FailedOperationsHere();
    AnnounceBoth(rows.rules.size(), rows.histories.size(), announced);
    {
      const SourceWriteMark mark;
      TableOf(domainId)->WriteFlush(PointersTo(rows.rules), PointersTo(rows.histories));
    }
    isOnDisk = FailedOperationsHere() == failedBefore;
    written = static_cast<int>(rows.rules.size() + rows.histories.size());
  });
  source.Written(isOnDisk);
  return written;
}

}  // namespace

struct DBWriteWrapper::State {
  struct Source {
    RowSource* source = nullptr;
    std::int64_t rows = 0;  // that have come since the last flush of the domain
  };

  PendingRows pending;
  Mutex sourcesMutex;  // guards sources; innermost
  std::map<std::string, Source> sources KS_GUARDED_BY(sourcesMutex);
  std::atomic<std::int64_t> sourceRows{0};  // the sum of their rows
  std::atomic<std::uint64_t> lostBatches{0};
  int cacheTime = 0;           // s; set before the worker starts, like wakeAt
  std::int64_t cacheSize = 1;  // rows; the worker flushes at once when so many are pending
  std::int64_t wakeAt = 1;     // rows; the worker is notified from here on
  Mutex wakeMutex;             // guards started; orders tests of the pending rows with
  Condition wake;              // notifications, so that none is lost; innermost
  bool started KS_GUARDED_BY(wakeMutex) = false;
  // Never joined nor destroyed: the worker does not end.
  std::atomic<boost::thread*> worker{nullptr};
  // While there is none, those who add rows write what is due.
  std::atomic<std::int64_t> nextFlush{0};  // s of the steady clock
  std::atomic<std::int64_t> nextStart{0};  // likewise: when a worker is tried again

  // Rows that count towards cacheSize.
  std::int64_t WaitingRows() const { return pending.OpenRows() + sourceRows.load(); }
  void WaitForRows();
  bool HasSource(const std::string& domainId);
  std::vector<std::string> DomainsOfSources();
  // The domain's source, whose rows count no longer; nullptr when it has none. It stays while
  // the right to flush the domain is held.
  RowSource* BeginFlush(const std::string& domainId);
  void RenewSources() noexcept KS_NO_THREAD_SAFETY_ANALYSIS;
};

bool DBWriteWrapper::State::HasSource(const std::string& domainId) {
  const MutexLock lock(sourcesMutex);
  return sources.contains(domainId);
}

std::vector<std::string> DBWriteWrapper::State::DomainsOfSources() {
  std::vector<std::string> domains;
  const MutexLock lock(sourcesMutex);
  for (const auto& [domainId, source] : sources) domains.push_back(domainId);
  return domains;
}

RowSource* DBWriteWrapper::State::BeginFlush(const std::string& domainId) {
  const MutexLock lock(sourcesMutex);
  const auto found = sources.find(domainId);
  if (found == sources.end()) return nullptr;
  sourceRows.fetch_sub(std::exchange(found->second.rows, 0));
  return found->second.source;
}

// In a forked child: no other thread is here, and the lock may be one that the parent held.
void DBWriteWrapper::State::RenewSources() noexcept {
  for (const auto& [domainId, source] : sources) source.source->Renew();
}

void DBWriteWrapper::State::WaitForRows() {
  const auto deadline = boost::chrono::steady_clock::now() + boost::chrono::seconds(cacheTime);
  const MutexLock lock(wakeMutex);
  if (cacheTime == 0) {
    // Without a time to wait every row is due at once, and without rows nothing is.
    while (WaitingRows() < wakeAt) wake.Wait(wakeMutex);
    return;
  }
  while (WaitingRows() < wakeAt && wake.WaitUntil(wakeMutex, deadline)) {
  }
}

DBWriteWrapper* DBWriteWrapper::Instance() {
  static auto* const instance = [] {
    auto* const made = new DBWriteWrapper;
    ForkGate::InChild([](void* cache) { static_cast<DBWriteWrapper*>(cache)->Renew(); }, made);
    return made;
  }();
  return instance;
}

DBWriteWrapper::DBWriteWrapper() : state_(new State) {
  state_->cacheTime = std::max(ReadSetting("CacheTime", 60), 0);
  state_->cacheSize = std::max(ReadSetting("CacheSize", 10000), 1);
  state_->wakeAt = state_->cacheTime == 0 ? 1 : state_->cacheSize;
  state_->nextFlush = SteadySeconds() + state_->cacheTime;
  StartWorker();
}

void DBWriteWrapper::Renew() {
  // The parent writes its rows, and its worker is not here. What it waited for cannot be
  // used again, and marks point into what was pending: all of that stays as it is.
  auto* const renewed = new State;
  renewed->cacheTime = state_->cacheTime;
  renewed->cacheSize = state_->cacheSize;
  renewed->wakeAt = state_->wakeAt;
  renewed->nextFlush = SteadySeconds() + state_->cacheTime;
  std::exchange(state_, renewed)->RenewSources();
}

void DBWriteWrapper::StartWorker() {
  const std::int64_t now = SteadySeconds();
  std::int64_t due = state_->nextStart.load();
  if (now < due || !state_->nextStart.compare_exchange_strong(due, now + kStartInterval)) return;
  try {
    state_->worker = new boost::thread([this] { Work(); });
  } catch (const std::exception& error) {
    KS_LOG(kModule, "DBWriteWrapper::StartWorker", kSource, kLogError,
           "The worker cannot be started, whoever adds rows writes them when they are due: %s",
           error.what());
    return;
  }
  const MutexLock lock(state_->wakeMutex);
  while (!state_->started) state_->wake.Wait(state_->wakeMutex);
}

void DBWriteWrapper::FlushWithoutWorker() {
  const std::int64_t now = SteadySeconds();
  if (state_->WaitingRows() < state_->wakeAt && now < state_->nextFlush.load()) return;
  state_->nextFlush.store(now + state_->cacheTime);
  ForceWriteDisk();
}

void DBWriteWrapper::Work() {
  {
    const MutexLock lock(state_->wakeMutex);
    state_->started = true;
    state_->wake.NotifyAll();
  }
  while (true) {
    RunStep([this] {
      state_->WaitForRows();
      const ForkGate::Inside inside;
      ForceWriteDisk();
    });
  }
}

void DBWriteWrapper::CacheData(const std::string& domainId, const std::string& unitKey,
                               std::vector<ObjectRuleData> rules,
                               std::vector<ObjectRuleHistoryData> history) {
  const std::set<std::string> devices = DevicesOf(rules, history);
  state_->pending.Add(domainId, unitKey, std::move(rules), std::move(history));
  for (const std::string& device : devices) NoteUnitChange(domainId, device);
  WakeWhenDue();
}

std::shared_ptr<HandedRows> DBWriteWrapper::HandOver(const std::string& domainId,
                                                     const std::string& unitKey,
                                                     std::vector<ObjectRuleData> rules,
                                                     std::vector<ObjectRuleHistoryData> history) {
  const std::set<std::string> devices = DevicesOf(rules, history);
  auto handed = state_->pending.AddKept(domainId, unitKey, std::move(rules), std::move(history));
  for (const std::string& device : devices) NoteUnitChange(domainId, device);
  WakeWhenDue();
  return handed;
}

void DBWriteWrapper::HandOverAgain(const std::string& domainId, const std::string& unitKey,
                                   const HandedRows& rows) {
  state_->pending.AddAgain(domainId, unitKey, rows);
  NoteUnitChange(domainId, unitKey);  // a unit's key is its device
  WakeWhenDue();
}

void DBWriteWrapper::WakeWhenDue() {
  if (state_->worker.load() == nullptr) StartWorker();  // as in a forked child
  if (state_->worker.load() == nullptr) return FlushWithoutWorker();
  if (state_->WaitingRows() < state_->wakeAt) return;
  const MutexLock lock(state_->wakeMutex);
  state_->wake.NotifyAll();
}

std::shared_ptr<RuleDefinitionData> DBWriteWrapper::GetCachedRuleDefinition(
    const std::string& domainId, const std::string& unitKey, const std::string& interfaceValue,
    const std::string& variableSource, const std::string& param,
    const std::string& variableName) const {
  return state_->pending.FindDefinition(domainId, unitKey,
                                        {interfaceValue, variableSource, param, variableName});
}

int DBWriteWrapper::GetCachedHistoryData(const std::string& domainId, const std::string& unitKey,
                                         const std::string& interfaceValue,
                                         const std::string& variableSource,
                                         const std::string& param, const std::string& variableName,
                                         std::string& historyOut) const {
  const PendingKey key{interfaceValue, variableSource, param, variableName};
  return state_->pending.FindHistory(domainId, unitKey, key, historyOut) ? 1 : 0;
}

PendingMark DBWriteWrapper::MarkOf(const std::string& domainId,
                                   const std::string& unitKey) const noexcept {
  return PendingMark(state_->pending.UnitCounter(domainId, unitKey));
}

bool DBWriteWrapper::HasPendingRows(const std::string& domainId, const std::string& unitKey) const {
  return state_->pending.HasUnit(domainId, unitKey);
}

bool DBWriteWrapper::AddSource(const std::string& domainId, RowSource& source) {
  const MutexLock lock(state_->sourcesMutex);
  return state_->sources.try_emplace(domainId, State::Source{&source}).second;
}

void DBWriteWrapper::RemoveSource(const std::string& domainId) {
  // Who holds the right to flush is the only one to use it.
  const PendingRows::Flush flush(state_->pending, domainId, 0);
  state_->BeginFlush(domainId);
  const MutexLock lock(state_->sourcesMutex);
  state_->sources.erase(domainId);
}

void DBWriteWrapper::NoteSourceRows(const std::string& domainId, std::int64_t count) {
  {
    const MutexLock lock(state_->sourcesMutex);
    const auto found = state_->sources.find(domainId);
    if (found == state_->sources.end()) return;
    found->second.rows += count;
    state_->sourceRows.fetch_add(count);
  }
  WakeWhenDue();
}

int DBWriteWrapper::WriteUpTo(const std::string& domainId, std::uint64_t last,
                              std::size_t announced) {
  int written = 0;
  PendingRows::Flush flush(state_->pending, domainId, last);
  while (const PendingGeneration* generation = flush.Oldest()) {
    AnnounceBoth(generation->ruleRows, generation->rows - generation->ruleRows, announced);
    bool isOnDisk = false;
    written += WriteWhole(domainId, *generation, isOnDisk);
    if (!isOnDisk) ++state_->lostBatches;
    flush.DropOldest();
  }
  RowSource* const source = state_->BeginFlush(domainId);
  return source != nullptr ? written + WriteSource(domainId, *source, announced) : written;
}

std::uint64_t DBWriteWrapper::LostBatches() const noexcept { return state_->lostBatches.load(); }

int DBWriteWrapper::WriteDomain(const std::string& domainId) {
  if (isFlushing) return 0;
  const FlushingMark mark;
  const std::uint64_t last = state_->pending.Seal(domainId);
  if (last == 0 && !state_->HasSource(domainId)) return 0;
  return WriteUpTo(domainId, last, 0);
}

void DBWriteWrapper::ForceWriteDisk() {
  if (isFlushing) return;
  const FlushingMark mark;
  KS_LOG(kModule, kFlushFunction, kSource, kLogProgress,
         "Force write cache data to data base. Begin");
  std::map<std::string, std::uint64_t> domains;  // with the newest generation to write
  for (const std::string& domainId : state_->DomainsOfSources()) domains[domainId] = 0;
  for (const auto& [domainId, last] : state_->pending.SealAll()) domains[domainId] = last;
  const auto announced = static_cast<std::size_t>(std::max(ReadSetting("BachCount", 10000), 1));
  for (const auto& [domainId, last] : domains) WriteUpTo(domainId, last, announced);
  KS_LOG(kModule, kFlushFunction, kSource, kLogProgress,
         "Force write cache data to data base. End");
}

}  // namespace keelstone
