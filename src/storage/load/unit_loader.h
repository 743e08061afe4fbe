#ifndef KEELSTONE_STORAGE_LOAD_UNIT_LOADER_H
#define KEELSTONE_STORAGE_LOAD_UNIT_LOADER_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "keelstone/mutex.h"
#include "keelstone/object_rule_table.h"
#include "keelstone/rule_records.h"
#include "keelstone/thread_wrapper.h"

namespace keelstone {

/// The keys that are asked for and the units that are loaded, of one kind of data
/// (DevParserRule or DevParserHistory), and the thread between them. Any thread.
template <class Data>
class UnitLoader final : private ThreadWrapper {
 public:
  using Keys = std::vector<std::shared_ptr<UnitKey>>;
  using Units = std::map<std::string, std::shared_ptr<Data>>;

  /// What differs by the kind of data. Texts are literals.
  struct Kind {
    int (KSObjectRuleSql::*query)(Units&, const Keys&, Enum_VariableSourceType);
    const char* name;       // "rule"
    const char* searchEnd;  // what ends the line on a search
    const char* loadFunction;
    const char* getFunction;
  };

  explicit UnitLoader(const Kind& kind) : kind_(kind) {}
  ~UnitLoader() override { Stop(); }

  void SetTable(std::shared_ptr<KSObjectRuleSql> table);
  /// Puts a key at the end of the queue and answers its number, counted from 1; `ahead`
  /// when nobody waits for it. 0, and not taken: an empty key, one whose text may stand for
  /// another unit too, and every one while no thread can be started that would load it.
  std::uint64_t Put(std::shared_ptr<UnitKey> key, bool ahead);
  int TakeKeys(Keys& out);
  std::shared_ptr<UnitKey> TakeOne();
  void Clear();
  std::shared_ptr<Data> Get(const std::shared_ptr<UnitKey>& key);

 private:
  static constexpr std::size_t kKeyLimit = 100000;  // keys a load
  // Units a query: those of one are handed out while the next one runs.
  static constexpr std::size_t kUnitsAQuery = 1000;
  static constexpr int kWaitAttempts = 10;
  static constexpr int kWaitStep = 10;  // ms

  struct Request {
    std::shared_ptr<UnitKey> key;
    std::uint64_t number = 0;
    bool ahead = false;
  };
  /// When a unit was loaded, and for whom.
  struct Stamp {
    std::uint64_t newestRequest = 0;  // made before the load began, like all before it
    std::uint64_t changes = 0;        // of the device, before the load began
    bool ahead = false;               // somebody may come for it later
    bool incomplete = false;          // rows were waiting to be written
  };
  struct Entry {
    std::shared_ptr<Data> data;
    Stamp stamp;
  };
  using Stamps = std::unordered_map<std::string, Stamp>;
  using Requests = std::span<Request>;

  void thread_sleep() override;
  void inner_thread_func() override;
  std::uint64_t TakeRequests(std::vector<Request>& out);
  int Load();
  // False when nothing came in time.
  static bool WaitStep(Condition& condition, Mutex& mutex) KS_REQUIRES(mutex);

  Stamps StampUnits(const std::string& domainId, Requests requests) const;
  std::shared_ptr<KSObjectRuleSql> BeginLoad();
  std::size_t LoadSome(KSObjectRuleSql& table, Requests requests);
  void Keep(const KSObjectRuleSql& table, Units& found, const Stamps& stamps);
  void EndLoad();
  bool IsUnchanged(const UnitKey& key, const Entry& entry) const KS_REQUIRES(cacheMutex_);
  std::shared_ptr<Data> TakeLoaded(const UnitKey& key, const std::string& text,
                                   std::uint64_t request) KS_REQUIRES(cacheMutex_);
  std::shared_ptr<Data> AwaitLoad(const UnitKey& key, const std::string& text,
                                  std::uint64_t request) KS_REQUIRES(cacheMutex_);
  std::shared_ptr<Data> Await(const UnitKey& key, const std::string& text, std::uint64_t request);

  const Kind kind_;

  // The queue, under mutex_ of the base; wake_ tells of new keys.
  std::deque<Request> queue_ KS_GUARDED_BY(mutex_);
  std::uint64_t lastNumber_ KS_GUARDED_BY(mutex_) = 0;
  bool lacksThread_ KS_GUARDED_BY(mutex_) = false;

  // What the thread has taken to load; its own.
  std::vector<Request> taken_;
  std::uint64_t newestTaken_ = 0;

  // Guards what follows; innermost. While loading_ is set callers wait for their unit as if
  // the loader held it, but no database work and no logging is done under it.
  mutable Mutex cacheMutex_;
  Condition cacheFilled_;
  std::unordered_map<std::string, Entry> cache_ KS_GUARDED_BY(cacheMutex_);
  std::shared_ptr<KSObjectRuleSql> table_ KS_GUARDED_BY(cacheMutex_);
  std::string domainId_ KS_GUARDED_BY(cacheMutex_);
  bool loading_ KS_GUARDED_BY(cacheMutex_) = false;
};

extern template class UnitLoader<DevParserRule>;
extern template class UnitLoader<DevParserHistory>;

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_LOAD_UNIT_LOADER_H
