#ifndef KEELSTONE_RESIDENT_RESIDENT_DOMAIN_H
#define KEELSTONE_RESIDENT_RESIDENT_DOMAIN_H

#include <atomic>
#include <boost/chrono/chrono.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/resident_unit.h"
#include "keelstone/mutex.h"
#include "resident/database_watch.h"
#include "storage/pending/row_source.h"

namespace keelstone {

class ResidentDomain;

/// A unit in the store, and when what is in memory was read.
struct ResidentEntry {
  ResidentEntry(ResidentDomain& domainOfIt, UnitKey key, std::string text)
      : domain(domainOfIt), unit(std::move(key)), name(std::move(text)) {}

  ResidentDomain& domain;
  ResidentUnit unit;
  const std::string name;  // in the store
  // Set by the thread that has taken it, while nothing of it is unwritten.
  std::atomic<std::uint64_t> readings{0};  // ResidentDomain::Readings before it was read
  std::atomic<std::uint64_t> others{0};    // OthersUnitChanges likewise
  // Guarded by the store's mutex.
  bool isTaken = false;
  std::uint64_t holder = 0;  // the thread
  std::size_t bytes = 0;     // as they are counted in the store
  // Guarded by the domain's mutex.
  bool isUnwritten = false;  // stands in its list
};

/// One domain of a store: which of its units have unwritten rows, and whether others have
/// changed its databases. Any thread.
class ResidentDomain final : public RowSource {
 public:
  using Entry = std::shared_ptr<ResidentEntry>;

  /// `renew` is called in the child of a fork().
  ResidentDomain(std::string id, std::function<void()> renew);

  const std::string& id() const noexcept { return id_; }
  /// Counts the changes by others that were seen; what was read under another number is to be
  /// read again. Looks at the files at most once a second.
  std::uint64_t Readings();

  /// Flushes the domain, but not within a second after its rows could not be written.
  void Write();

  /// One more unit may be told of, which needs no memory then; and one less.
  void AddRoom();
  void RemoveRoom() noexcept;
  void NoteUnwritten(const Entry& entry) noexcept;

  /// Whether what is in memory of a unit may be other than what is stored, for what others have
  /// done.
  bool IsOutOfDate(const ResidentEntry& entry, std::uint64_t readings) const;

  bool HasRows() override;
  SourceRows Take() override;
  void Written(bool isOnDisk) noexcept override;
  void Renew() noexcept override { renew_(); }

 private:
  void GiveWay(const std::vector<Entry>& entries);

  const std::string id_;
  const std::function<void()> renew_;
  DatabaseWatch watch_;
  using Clock = boost::chrono::steady_clock;
  std::atomic<Clock::rep> nextWrite_{0};  // on this clock
  Mutex mutex_;                           // guards what follows; inside it a unit's own
  std::size_t room_ KS_GUARDED_BY(mutex_) = 0;
  std::vector<Entry> unwritten_ KS_GUARDED_BY(mutex_);  // both have room for all units
  std::vector<Entry> writing_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_RESIDENT_RESIDENT_DOMAIN_H
