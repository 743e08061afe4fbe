#ifndef KEELSTONE_TESTS_SUPPORT_FAULTY_IO_H
#define KEELSTONE_TESTS_SUPPORT_FAULTY_IO_H

#include <sqlite3.h>

#include <atomic>
#include <functional>

namespace keelstone::testing {

/// What fails, and from when it goes well again.
struct IoFault {
  enum class Kind {
    kError,       // any open, read, write, sync, truncation, removal or renaming
    kShortWrite,  // half of what is written arrives
    kFull,        // likewise, because the disk is full; nor can a file be made
  };
  Kind kind = Kind::kError;
  bool forever = false;  // else once
};

/// What an operation does to a file.
enum class IoKind { kOpen, kCreate, kRead, kWrite, kSync, kTruncate, kRemove, kRename };

/// While it lives, one chosen operation on a file fails, or all from that one on. It sees
/// what SQLite does (it is the default VFS then, and does no real sync), and, in a program
/// that is linked with faulty_calls.cpp in the place of the system's calls, what the
/// library does itself. One at a time; any thread may work meanwhile.
class FaultyIo {
 public:
  FaultyIo();
  ~FaultyIo();
  FaultyIo(const FaultyIo&) = delete;
  FaultyIo& operator=(const FaultyIo&) = delete;

  /// The operation with this number from now on (from 1), of those that `fault` concerns.
  void FailAt(int number, IoFault fault);
  /// Whether the chosen operation has come.
  bool HasFailed() const { return failAt_ > 0 && operations_ >= failAt_; }
  /// Runs after each end of a transaction, while its locks are held.
  void OnCommit(std::function<void()> hook) { onCommit_ = std::move(hook); }
  /// Ends of transactions so far.
  int transactions() const { return transactions_; }

  /// Counts an operation; whether it is to fail. Of no effect when there is none.
  static bool Fails(IoKind kind);
  /// What a failing operation reports: the errno, and SQLite's code.
  static int ErrnoOf(IoKind kind);

 private:
  struct File;
  static int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* out);
  static int Delete(sqlite3_vfs* vfs, const char* name, int sync);
  static int Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 at);
  static const sqlite3_io_methods& Methods();
  static int CodeOf(IoKind kind);
  void Committed(const char* name);

  sqlite3_vfs* real_;
  sqlite3_vfs vfs_;
  std::atomic<int> operations_{0};
  int failAt_ = 0;
  IoFault fault_;
  std::atomic<int> transactions_{0};
  std::function<void()> onCommit_;
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_FAULTY_IO_H
