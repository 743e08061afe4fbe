#ifndef KEELSTONE_HOST_ROOT_USE_H
#define KEELSTONE_HOST_ROOT_USE_H

#include <atomic>
#include <cstdint>
#include <string>

namespace keelstone {

/// How many forks lie between the first process and this one, as far as anybody could notice.
std::uint64_t ForkCount() noexcept;

/// Keeps the system root folder where it is. Of no effect in a child of fork(). Any thread.
class RootUse {
 public:
  /// A HostFailure where `folder` is not the root and another keeps that; "" is any root.
  explicit RootUse(const std::string& folder = {});
  ~RootUse() { End(); }
  RootUse(const RootUse&) = delete;
  RootUse& operator=(const RootUse&) = delete;

  /// Keeps it no longer.
  void End();
  /// Whether a fork lies between its making and now.
  bool IsInherited() const noexcept { return process_ != ForkCount(); }
  /// Whether there is another.
  static bool IsAnyLeft();

 private:
  const std::uint64_t process_;
  std::atomic<bool> isOver_{false};
};

/// Sets the root; a HostFailure while there is a RootUse.
void SetRoot(const std::string& folder);
/// A HostFailure when the domain was opened below another root; by who holds a RootUse.
void RequireSameRoot(const std::string& domainId);
/// Notes below which root the domain is open for the rest of the process; likewise. Answers
/// whether what the process knows of the domain was read by its parent before fork().
bool NoteRootOf(const std::string& domainId);

}  // namespace keelstone

#endif  // KEELSTONE_HOST_ROOT_USE_H
