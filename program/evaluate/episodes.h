#ifndef KEELSTONE_PROGRAM_EVALUATE_EPISODES_H
#define KEELSTONE_PROGRAM_EVALUATE_EPISODES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "program/commands/object_key.h"

namespace keelstone::host {

/// Alerts of one variable that follow each other. Times in seconds since the epoch.
struct Episode {
  std::int64_t first = 0;   // its first alert
  std::int64_t last = 0;    // its latest alert
  std::uint64_t count = 0;  // its alerts
  std::string note;         // what was said of the latest alert
};

/// What one value did to the episodes.
enum class EpisodeStep {
  kNone,       // it fits, and no alert stood before it
  kOpened,     // the first alert
  kContinued,  // a further one
  kCleared,    // the first value that fits again
};

/// Joins alerts to episodes: opened by the first alert of a variable, cleared by the first
/// value after it that was judged and fits. A value that was not judged (rejected, filtered,
/// without a rule) is not to be noted: it says nothing. Holds what is open, and nothing of
/// what was cleared. One thread at a time.
class Episodes {
 public:
  /// Notes the next judged value of a variable. `episode`, when given, becomes the episode
  /// as it stands after the value; it stays as it is for kNone.
  EpisodeStep Note(const ObjectKey& key, std::int64_t time, bool isAlert,
                   std::string_view note = {}, Episode* episode = nullptr);

  bool isEmpty() const noexcept { return open_.empty(); }
  /// What is open, by its first alert and its key. The keys borrow from this object.
  std::vector<std::pair<ObjectKey, Episode>> Open() const;

 private:
  ObjectMap<Episode> open_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_EPISODES_H
