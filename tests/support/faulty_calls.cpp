#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdarg>

#include "tests/support/faulty_io.h"

// The calls by which the library works on files without SQLite. The linker puts these in
// their place (--wrap), in the objects of the library and of the test alone.
using keelstone::testing::FaultyIo;
using keelstone::testing::IoKind;

namespace {

bool Fails(IoKind kind) {
  if (!FaultyIo::Fails(kind)) return false;
  errno = FaultyIo::ErrnoOf(kind);
  return true;
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_fsync(int file);
int __real_mkdir(const char* path, mode_t mode);
int __real_mknod(const char* path, mode_t mode, dev_t device);
int __real_rename(const char* from, const char* to);
int __real_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                     unsigned flags);
int __real_unlink(const char* path);

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (Fails((flags & O_CREAT) != 0 ? IoKind::kCreate : IoKind::kOpen)) return -1;
  return __real_open(path, flags, mode);
}

int __wrap_fsync(int /*file*/) { return Fails(IoKind::kSync) ? -1 : 0; }

int __wrap_mkdir(const char* path, mode_t mode) {
  return Fails(IoKind::kCreate) ? -1 : __real_mkdir(path, mode);
}

int __wrap_mknod(const char* path, mode_t mode, dev_t device) {
  return Fails(IoKind::kCreate) ? -1 : __real_mknod(path, mode, device);
}

int __wrap_rename(const char* from, const char* to) {
  return Fails(IoKind::kRename) ? -1 : __real_rename(from, to);
}

int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                     unsigned flags) {
  return Fails(IoKind::kRename) ? -1 : __real_renameat2(fromFolder, from, toFolder, to, flags);
}

int __wrap_unlink(const char* path) { return Fails(IoKind::kRemove) ? -1 : __real_unlink(path); }

}  // extern "C"
