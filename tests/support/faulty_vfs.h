#ifndef KEELSTONE_TESTS_SUPPORT_FAULTY_VFS_H
#define KEELSTONE_TESTS_SUPPORT_FAULTY_VFS_H

#include <sqlite3.h>

#include <new>
#include <string_view>

namespace keelstone::testing {

/// While it lives, SQLite's default way to files: the system's own, but one chosen write,
/// sync, truncation or removal fails, or all from that one on, as when the disk is gone.
/// One thread.
class FaultyVfs {
 public:
  enum class Duration { kOnce, kForever };

  FaultyVfs() : real_(sqlite3_vfs_find(nullptr)), vfs_(*real_) {
    vfs_.zName = "keelstone-faulty";
    vfs_.pAppData = this;
    vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
    vfs_.xOpen = Open;
    vfs_.xDelete = Delete;
    sqlite3_vfs_register(&vfs_, 1);
  }
  ~FaultyVfs() {
    sqlite3_vfs_unregister(&vfs_);
    sqlite3_vfs_register(real_, 1);
  }
  FaultyVfs(const FaultyVfs&) = delete;
  FaultyVfs& operator=(const FaultyVfs&) = delete;

  /// The operation with this number from now on (from 1) answers `code`.
  void FailAt(int number, int code, Duration duration) {
    operations_ = 0;
    failAt_ = number;
    code_ = code;
    duration_ = duration;
  }
  void Heal() { failAt_ = 0; }
  /// Whether the chosen operation has come.
  bool HasFailed() const { return failAt_ > 0 && operations_ >= failAt_; }
  /// Removals of rollback journals so far: each one ends a transaction.
  int transactions() const { return transactions_; }

 private:
  struct File {
    sqlite3_file base;
    FaultyVfs* owner;
    sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
  };

  static File* FileOf(sqlite3_file* file) { return reinterpret_cast<File*>(file); }
  static sqlite3_file* RealOf(sqlite3_file* file) { return FileOf(file)->real(); }

  int Next() {
    ++operations_;
    const bool fails =
        failAt_ > 0 && (duration_ == Duration::kOnce ? operations_ == failAt_ : HasFailed());
    return fails ? code_ : SQLITE_OK;
  }

  static int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* out) {
    auto* self = static_cast<FaultyVfs*>(vfs->pAppData);
    auto* wrapped = new (file) File{{nullptr}, self};
    const int code = self->real_->xOpen(self->real_, name, wrapped->real(), flags, out);
    if (wrapped->real()->pMethods != nullptr) wrapped->base.pMethods = &Methods();
    return code;
  }

  static int Delete(sqlite3_vfs* vfs, const char* name, int sync) {
    auto* self = static_cast<FaultyVfs*>(vfs->pAppData);
    if (const int code = self->Next(); code != SQLITE_OK) return code;
    if (std::string_view(name).ends_with("-journal")) ++self->transactions_;
    return self->real_->xDelete(self->real_, name, sync);
  }

  template <class Call>
  static int Guarded(sqlite3_file* file, const Call& call) {
    const int code = FileOf(file)->owner->Next();
    return code != SQLITE_OK ? code : call(RealOf(file));
  }

  // Version 1: no shared memory, no memory maps; rollback journals need neither.
  static const sqlite3_io_methods& Methods() {
    static const sqlite3_io_methods methods = [] {
      sqlite3_io_methods m{};
      m.iVersion = 1;
      m.xClose = [](sqlite3_file* f) { return RealOf(f)->pMethods->xClose(RealOf(f)); };
      m.xRead = [](sqlite3_file* f, void* to, int size, sqlite3_int64 at) {
        return RealOf(f)->pMethods->xRead(RealOf(f), to, size, at);
      };
      m.xWrite = [](sqlite3_file* f, const void* from, int size, sqlite3_int64 at) {
        return Guarded(f, [&](auto* r) { return r->pMethods->xWrite(r, from, size, at); });
      };
      m.xTruncate = [](sqlite3_file* f, sqlite3_int64 size) {
        return Guarded(f, [&](auto* r) { return r->pMethods->xTruncate(r, size); });
      };
      m.xSync = [](sqlite3_file* f, int flags) {
        return Guarded(f, [&](auto* r) { return r->pMethods->xSync(r, flags); });
      };
      m.xFileSize = [](sqlite3_file* f, sqlite3_int64* size) {
        return RealOf(f)->pMethods->xFileSize(RealOf(f), size);
      };
      m.xLock = [](sqlite3_file* f, int l) { return RealOf(f)->pMethods->xLock(RealOf(f), l); };
      m.xUnlock = [](sqlite3_file* f, int l) { return RealOf(f)->pMethods->xUnlock(RealOf(f), l); };
      m.xCheckReservedLock = [](sqlite3_file* f, int* out) {
        return RealOf(f)->pMethods->xCheckReservedLock(RealOf(f), out);
      };
      m.xFileControl = [](sqlite3_file* f, int operation, void* argument) {
        return RealOf(f)->pMethods->xFileControl(RealOf(f), operation, argument);
      };
      m.xSectorSize = [](sqlite3_file* f) { return RealOf(f)->pMethods->xSectorSize(RealOf(f)); };
      m.xDeviceCharacteristics = [](sqlite3_file* f) {
        return RealOf(f)->pMethods->xDeviceCharacteristics(RealOf(f));
      };
      return m;
    }();
    return methods;
  }

  sqlite3_vfs* real_;
  sqlite3_vfs vfs_;
  int operations_ = 0;
  int failAt_ = 0;
  int code_ = SQLITE_OK;
  Duration duration_ = Duration::kOnce;
  int transactions_ = 0;
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_FAULTY_VFS_H
