#ifndef KEELSTONE_BASE_THREADS_FORK_GATE_H
#define KEELSTONE_BASE_THREADS_FORK_GATE_H

namespace keelstone {

/// Makes fork() wait until no thread is at work inside the library, so that the child finds
/// every lock free, no database open and everything in memory whole. Threads that come while
/// a fork waits or runs wait until it is over. The C interface and the write-behind worker
/// go through the gate; a host of the C++ classes does not.
///
/// A process has one gate. Any thread; nothing throws.
class ForkGate {
 public:
  /// A stay inside the library. May be nested; costs two atomic additions.
  class Inside {
   public:
    Inside() noexcept;
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
  };

  /// The time in which a thread runs a host's callback, or waits for a thread that may be in
  /// one. A fork does not wait for it: the host may hold what the callback needs to come to
  /// its end. What is locked meanwhile, the child replaces.
  class Outside {
   public:
    Outside() noexcept;
    ~Outside();
    Outside(const Outside&) = delete;
    Outside& operator=(const Outside&) = delete;

   private:
    const int depth_;
  };

  /// False in the child of a fork that a callback made: the thread that forked may hold what
  /// others inside were waiting for, so nobody waited for them.
  static bool IsUsable() noexcept;

  using Step = void (*)(void* object);
  /// Adds a step that the forking thread takes before each fork, when all others are out.
  static void Before(Step step, void* object);
  /// Adds a step that the child takes before fork() returns in it, to drop or replace what it
  /// must not share with its parent. It must take no lock that is taken outside the gate.
  static void InChild(Step step, void* object);
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_THREADS_FORK_GATE_H
