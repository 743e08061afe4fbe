#ifndef KEELSTONE_HOST_EPISODES_H
#define KEELSTONE_HOST_EPISODES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace keelstone::host {

/// Whose values an episode joins. The texts are borrowed for the length of a call.
struct EpisodeKey {
  std::string_view domain;
  std::string_view device;
  std::string_view source;
  std::string_view param;
  std::string_view interface;
  std::string_view variable;

  friend bool operator==(const EpisodeKey&, const EpisodeKey&) = default;
  friend auto operator<=>(const EpisodeKey&, const EpisodeKey&) = default;
};

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
  /// as it stands after the value, for kNone nothing.
  EpisodeStep Note(const EpisodeKey& key, std::int64_t time, bool isAlert,
                   std::string_view note = {}, Episode* episode = nullptr);

  bool isEmpty() const noexcept { return open_.empty(); }
  /// What is open, by its first alert and its key. The keys borrow from this object.
  std::vector<std::pair<EpisodeKey, Episode>> Open() const;

 private:
  struct Texts {  // a key that owns what it names
    explicit Texts(const EpisodeKey& key);
    EpisodeKey view() const;
    std::string domain, device, source, param, interface, variable;
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const EpisodeKey& key) const noexcept;
    std::size_t operator()(const Texts& key) const noexcept { return (*this)(key.view()); }
  };
  struct Equal {
    using is_transparent = void;
    static EpisodeKey View(const EpisodeKey& key) { return key; }
    static EpisodeKey View(const Texts& key) { return key.view(); }
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      return View(a) == View(b);
    }
  };

  std::unordered_map<Texts, Episode, Hash, Equal> open_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_EPISODES_H
