#include "tests/support/faulty_io.h"

#include <cerrno>
#include <new>
#include <string_view>

namespace keelstone::testing {

namespace {

std::atomic<FaultyIo*> current{nullptr};

bool Concerns(IoFault::Kind fault, IoKind kind) {
  if (fault == IoFault::Kind::kError || kind == IoKind::kWrite) return true;
  return fault == IoFault::Kind::kFull && kind == IoKind::kCreate;
}

bool IsJournal(const char* name) {
  return name != nullptr && std::string_view(name).ends_with("-journal");
}

}  // namespace

struct FaultyIo::File {
  sqlite3_file base;
  FaultyIo* owner;
  const char* name;
  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }

  static File* Of(sqlite3_file* file) { return reinterpret_cast<File*>(file); }
  static sqlite3_file* RealOf(sqlite3_file* file) { return Of(file)->real(); }
};

FaultyIo::FaultyIo() : real_(sqlite3_vfs_find(nullptr)), vfs_(*real_) {
  vfs_.zName = "keelstone-faulty";
  vfs_.pAppData = this;
  vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
  vfs_.xOpen = Open;
  vfs_.xDelete = Delete;
  sqlite3_vfs_register(&vfs_, 1);
  current = this;
}

FaultyIo::~FaultyIo() {
  current = nullptr;
  sqlite3_vfs_unregister(&vfs_);
  sqlite3_vfs_register(real_, 1);
}

void FaultyIo::FailAt(int number, IoFault fault) {
  operations_ = 0;
  failAt_ = number;
  fault_ = fault;
}

bool FaultyIo::Fails(IoKind kind) {
  FaultyIo* const self = current;
  if (self == nullptr || self->failAt_ <= 0 || !Concerns(self->fault_.kind, kind)) return false;
  const int number = ++self->operations_;
  return self->fault_.forever ? number >= self->failAt_ : number == self->failAt_;
}

int FaultyIo::ErrnoOf(IoKind kind) {
  const FaultyIo* const self = current;
  const bool isFull = self != nullptr && self->fault_.kind == IoFault::Kind::kFull;
  return isFull && (kind == IoKind::kCreate || kind == IoKind::kWrite) ? ENOSPC : EIO;
}

int FaultyIo::CodeOf(IoKind kind) {
  switch (kind) {
    case IoKind::kRead:
      return SQLITE_IOERR_READ;
    case IoKind::kWrite:
      return ErrnoOf(kind) == ENOSPC ? SQLITE_FULL : SQLITE_IOERR_WRITE;
    case IoKind::kSync:
      return SQLITE_IOERR_FSYNC;
    case IoKind::kTruncate:
      return SQLITE_IOERR_TRUNCATE;
    case IoKind::kRemove:
      return SQLITE_IOERR_DELETE;
    default:
      return SQLITE_CANTOPEN;
  }
}

void FaultyIo::Committed(const char* name) {
  if (!IsJournal(name)) return;
  ++transactions_;
  if (onCommit_) onCommit_();
}

int FaultyIo::Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* out) {
  auto* const self = static_cast<FaultyIo*>(vfs->pAppData);
  auto* const wrapped = new (file) File{{nullptr}, self, name};
  const IoKind kind = (flags & SQLITE_OPEN_CREATE) != 0 ? IoKind::kCreate : IoKind::kOpen;
  if (Fails(kind)) return CodeOf(kind);
  const int code = self->real_->xOpen(self->real_, name, wrapped->real(), flags, out);
  if (wrapped->real()->pMethods != nullptr) wrapped->base.pMethods = &Methods();
  return code;
}

int FaultyIo::Delete(sqlite3_vfs* vfs, const char* name, int /*sync*/) {
  auto* const self = static_cast<FaultyIo*>(vfs->pAppData);
  if (Fails(IoKind::kRemove)) return CodeOf(IoKind::kRemove);
  const int code = self->real_->xDelete(self->real_, name, 0);
  if (code == SQLITE_OK) self->Committed(name);
  return code;
}

int FaultyIo::Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 at) {
  sqlite3_file* const real = File::RealOf(file);
  if (!Fails(IoKind::kWrite)) return real->pMethods->xWrite(real, from, size, at);
  if (File::Of(file)->owner->fault_.kind != IoFault::Kind::kError) {
    real->pMethods->xWrite(real, from, size / 2, at);
  }
  return CodeOf(IoKind::kWrite);
}

// Version 1: no shared memory, no memory maps; rollback journals need neither.
const sqlite3_io_methods& FaultyIo::Methods() {
  static const sqlite3_io_methods methods = [] {
    sqlite3_io_methods m{};
    m.iVersion = 1;
    m.xClose = [](sqlite3_file* f) { return File::RealOf(f)->pMethods->xClose(File::RealOf(f)); };
    m.xRead = [](sqlite3_file* f, void* to, int size, sqlite3_int64 at) {
      if (Fails(IoKind::kRead)) return CodeOf(IoKind::kRead);
      return File::RealOf(f)->pMethods->xRead(File::RealOf(f), to, size, at);
    };
    m.xWrite = Write;
    m.xTruncate = [](sqlite3_file* f, sqlite3_int64 size) {
      if (Fails(IoKind::kTruncate)) return CodeOf(IoKind::kTruncate);
      const int code = File::RealOf(f)->pMethods->xTruncate(File::RealOf(f), size);
      if (code == SQLITE_OK && size == 0) File::Of(f)->owner->Committed(File::Of(f)->name);
      return code;
    };
    m.xSync = [](sqlite3_file*, int) {
      return Fails(IoKind::kSync) ? CodeOf(IoKind::kSync) : SQLITE_OK;
    };
    m.xFileSize = [](sqlite3_file* f, sqlite3_int64* size) {
      return File::RealOf(f)->pMethods->xFileSize(File::RealOf(f), size);
    };
    m.xLock = [](sqlite3_file* f, int level) {
      return File::RealOf(f)->pMethods->xLock(File::RealOf(f), level);
    };
    m.xUnlock = [](sqlite3_file* f, int level) {
      return File::RealOf(f)->pMethods->xUnlock(File::RealOf(f), level);
    };
    m.xCheckReservedLock = [](sqlite3_file* f, int* out) {
      return File::RealOf(f)->pMethods->xCheckReservedLock(File::RealOf(f), out);
    };
    m.xFileControl = [](sqlite3_file* f, int operation, void* argument) {
      return File::RealOf(f)->pMethods->xFileControl(File::RealOf(f), operation, argument);
    };
    m.xSectorSize = [](sqlite3_file* f) {
      return File::RealOf(f)->pMethods->xSectorSize(File::RealOf(f));
    };
    m.xDeviceCharacteristics = [](sqlite3_file* f) {
      return File::RealOf(f)->pMethods->xDeviceCharacteristics(File::RealOf(f));
    };
    return m;
  }();
  return methods;
}

}  // namespace keelstone::testing
