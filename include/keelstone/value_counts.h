#ifndef KEELSTONE_VALUE_COUNTS_H
#define KEELSTONE_VALUE_COUNTS_H

#include <boost/container/flat_map.hpp>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace keelstone {

/// How often each distinct value occurs, as a map by ascending value. It counts when it is
/// asked, and then only what it has to: most rules are learned without a look at the counts,
/// and others only want to know whether there are many. Being asked counts as a change where
/// threads are concerned: one thread at a time, also for const operations.
template <class T>
class ValueCounts {
 public:
  using Map = boost::container::flat_map<T, std::int32_t>;
  using value_type = typename Map::value_type;
  using const_iterator = typename Map::const_iterator;

  void Reserve(std::size_t values) { runs_.reserve(values); }
  void Clear() noexcept {
    runs_.clear();
    counted_ = 0;
    map_.clear();
  }
  void Add(T value) {
    if (counted_ < runs_.size() && runs_.back().first == value) {
      ++runs_.back().second;
    } else {
      runs_.emplace_back(value, 1);
    }
  }

  /// Whether there are more than `limit` distinct values.
  bool HasMoreThan(std::int64_t limit) const {
    Reserve();
    while (Size() <= limit && counted_ < runs_.size()) CountRun();
    return Size() > limit;
  }

  std::size_t size() const { return All().size(); }
  bool empty() const { return runs_.empty(); }
  const_iterator begin() const { return All().begin(); }
  const_iterator end() const { return All().end(); }
  const_iterator find(T value) const { return All().find(value); }
  bool contains(T value) const { return All().contains(value); }
  /// Throws std::out_of_range for a value that does not occur.
  std::int32_t at(T value) const { return All().at(value); }

 private:
  std::int64_t Size() const { return static_cast<std::int64_t>(map_.size()); }
  void CountRun() const {
    const auto& [value, length] = runs_[counted_++];
    map_.try_emplace(value, 0).first->second += length;
  }
  void Reserve() const {
    if (map_.capacity() == 0) map_.reserve(runs_.size());
  }
  const Map& All() const {
    Reserve();
    while (counted_ < runs_.size()) CountRun();
    return map_;
  }

  std::vector<std::pair<T, std::int32_t>> runs_;  // of equal values, in order
  mutable std::size_t counted_ = 0;               // runs that are in map_
  mutable Map map_;
};

}  // namespace keelstone

#endif  // KEELSTONE_VALUE_COUNTS_H
