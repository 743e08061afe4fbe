#ifndef KEELSTONE_BASE_JSON_JSON_KEYS_H
#define KEELSTONE_BASE_JSON_JSON_KEYS_H

#include <atomic>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace keelstone {

/// The names of an object's members in their order, counted: the objects of a document
/// that are built alike share them. Names with one holder belong to that holder's thread;
/// those with more are only read. From a certain number on an index finds them.
class JsonKeys {
 public:
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

  JsonKeys() = default;
  /// The first `count` names of others.
  JsonKeys(const JsonKeys& other, std::size_t count);

  std::size_t size() const noexcept { return names_.size(); }
  const std::string& operator[](std::size_t position) const noexcept { return names_[position]; }
  std::size_t Find(std::string_view name) const noexcept;
  /// Whether they are few and short.
  bool IsSmall() const noexcept;
  /// Whether all of them are ASCII that stands in a JSON text as it is.
  bool ArePlain() const noexcept { return arePlain_; }

  // For an only holder.
  /// Adds a name that is not there yet; no change when it throws.
  void Add(std::string_view name);
  void Erase(std::size_t position) noexcept;
  void Reserve(std::size_t count);

  bool IsShared() const noexcept { return holders_.load(std::memory_order_acquire) != 1; }
  friend void intrusive_ptr_add_ref(JsonKeys* keys) noexcept {
    keys->holders_.fetch_add(1, std::memory_order_relaxed);
  }
  friend void intrusive_ptr_release(JsonKeys* keys) noexcept {
    // A last holder needs no locked instruction: nobody else can take hold any more.
    if (keys->holders_.load(std::memory_order_acquire) == 1 ||
        keys->holders_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete keys;
    }
  }

 private:
  static constexpr std::size_t kUnindexed = 16;

  static void Enter(std::vector<std::uint32_t>& slots, std::string_view name,
                    std::size_t position) noexcept;

  std::atomic<std::uint32_t> holders_{0};
  bool arePlain_ = true;
  std::vector<std::string> names_;
  // Open addressing: position + 1 of a name, 0 for an empty slot; a power of two of slots,
  // at most half of them taken. Empty while there are few names.
  std::vector<std::uint32_t> slots_;
};

using JsonKeysPointer = boost::intrusive_ptr<JsonKeys>;

}  // namespace keelstone

#endif  // KEELSTONE_BASE_JSON_JSON_KEYS_H
