#include "storage/delivery/database_overwrite.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "keelstone/filesystem.h"

namespace keelstone {

namespace {

namespace fs = boost::filesystem;

constexpr std::string_view kCopySuffix = ".incoming";

[[noreturn]] void FailWith(const std::string& path, int error) {
  throw DeliveryError(path + ": " + std::strerror(error));
}

/// A file descriptor, closed with the scope.
class Descriptor {
 public:
  explicit Descriptor(int file) : file_(file) {}
  ~Descriptor() {
    if (file_ >= 0) ::close(file_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return file_; }

 private:
  int file_;
};

void SyncFolderOf(const std::string& path) {
  const std::string folder = fs::path(path).parent_path().string();
  const Descriptor handle(
      ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (handle.get() >= 0) ::fsync(handle.get());
}

// Where SQLite would put the database: behind symbolic links, beside which it looks for
// the journal too.
std::string ResolveLinks(const std::string& path) {
  boost::system::error_code error;
  const fs::path resolved = fs::canonical(path, error);
  return error ? path : resolved.string();
}

/// The copy while it is made: a file beside the destination, named for nobody else, locked
/// as long as its maker lives, removed with the scope unless it has been moved.
class IncomingCopy {
 public:
  explicit IncomingCopy(const std::string& destination)
      : path_(NextName(destination)), file_(Create(path_)) {
    struct stat old = {};
    if (::stat(destination.c_str(), &old) == 0) ::fchmod(file_.get(), old.st_mode & 07777);
  }
  ~IncomingCopy() {
    if (!moved_) Remove(path_);
  }
  IncomingCopy(const IncomingCopy&) = delete;
  IncomingCopy& operator=(const IncomingCopy&) = delete;

  void Fill(CppSQLite3DB& source) {
    // Reads every page that counts, so that a damaged source shows itself here.
    auto statement = source.compileStatement("vacuum into ?");
    statement.bind(1, path_);
    statement.execDML();
    if (::fsync(file_.get()) != 0) FailWith(path_, errno);
  }

  /// Takes the place of `destination`; false when that exists and `replace` is not set.
  bool Move(const std::string& destination, bool replace) {
    if (replace) {
      if (std::rename(path_.c_str(), destination.c_str()) != 0) FailWith(destination, errno);
    } else if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, destination.c_str(),
                           RENAME_NOREPLACE) != 0) {
      if (errno == EEXIST) return false;
      // A file system that knows no such renaming: the plain one.
      if (errno != EINVAL) FailWith(destination, errno);
      return Move(destination, true);
    }
    moved_ = true;
    SyncFolderOf(destination);
    return true;
  }

  /// Removes what makers that were killed have left beside `destination`.
  static void RemoveAbandoned(const std::string& destination) {
    const fs::path place(destination);
    const std::string prefix = place.filename().string() + '.';
    boost::system::error_code error;
    const fs::path folder = place.has_parent_path() ? place.parent_path() : fs::path(".");
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
      const std::string name = entry->path().filename().string();
      if (!name.starts_with(prefix) || !name.ends_with(kCopySuffix)) continue;
      const std::string path = entry->path().string();
      const Descriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
      if (file.get() >= 0 && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) Remove(path);
    }
  }

 private:
  static std::string NextName(const std::string& destination) {
    static std::atomic<unsigned> count{0};
    return destination + '.' + std::to_string(::getpid()) + '-' + std::to_string(++count) +
           std::string(kCopySuffix);
  }

  static int Create(const std::string& path) {
    while (true) {
      const int file =
          ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kFileRights);
      if (file < 0 && errno == EEXIST && ::unlink(path.c_str()) == 0) continue;  // an old process's
      if (file < 0) FailWith(path, errno);
      ::flock(file, LOCK_EX);
      struct stat status = {};
      // Another process may have taken it for abandoned before it was locked.
      if (::fstat(file, &status) == 0 && status.st_nlink == 1) return file;
      ::close(file);
    }
  }

  static void Remove(const std::string& path) {
    ::unlink(path.c_str());
    ::unlink((path + "-journal").c_str());
  }

  std::string path_;
  Descriptor file_;
  bool moved_ = false;
};

/// The old database, closed to writers until the scope ends. Opening it rolls back what a
/// killed writer has left, and no new journal can come while it is held.
class HeldDatabase {
 public:
  explicit HeldDatabase(const std::string& file) : file_(file) {
    db_.open(file, CppSQLite3DB::Mode::kReadWrite);
    try {
      LeaveWal();
      db_.execDML("begin immediate transaction;");
    } catch (const CppSQLite3Exception& error) {
      const int code = error.errorCode() & 0xFF;
      if (code != SQLITE_NOTADB && code != SQLITE_CORRUPT) throw;
      // Nobody can work on such a file, so nobody needs what lies beside it.
      db_.close();
      RemoveSideFiles(file_);
    }
  }
  HeldDatabase(const HeldDatabase&) = delete;
  HeldDatabase& operator=(const HeldDatabase&) = delete;

  static void RemoveSideFiles(const std::string& file) {
    bool removed = false;
    for (const char* suffix : {"-journal", "-wal", "-shm"}) {
      removed |= ::unlink((file + suffix).c_str()) == 0;
    }
    if (removed) SyncFolderOf(file);
  }

 private:
  // A write-ahead log would be taken for the new file's: it is emptied into the old file
  // and removed, which needs it free of other users.
  void LeaveWal() {
    if (JournalMode("pragma journal_mode") != "wal") return;
    if (JournalMode("pragma journal_mode=delete") == "wal") {
      throw DeliveryError(file_ + ": its write-ahead log is in use");
    }
  }
  std::string JournalMode(const char* pragma) {
    auto statement = db_.compileStatement(pragma);
    return std::string(statement.execQuery().getStringField(0));
  }

  std::string file_;
  CppSQLite3DB db_;  // closing it ends the transaction
};

/// Has no statement, nor the schema, call functions with arguments while it lives: what a
/// schema computes (checks, defaults, indexes, generated columns) could take any time.
class WithoutFunctions {
 public:
  explicit WithoutFunctions(CppSQLite3DB& db)
      : db_(db), before_(sqlite3_limit(db.handle(), SQLITE_LIMIT_FUNCTION_ARG, 0)) {}
  ~WithoutFunctions() { sqlite3_limit(db_.handle(), SQLITE_LIMIT_FUNCTION_ARG, before_); }
  WithoutFunctions(const WithoutFunctions&) = delete;
  WithoutFunctions& operator=(const WithoutFunctions&) = delete;

 private:
  CppSQLite3DB& db_;
  int before_;
};

/// A view is no table to begin with; a virtual table has no rows of its own.
void RequireTable(CppSQLite3DB& source, const DeliveredTable& expected) {
  auto statement = source.compileStatement(
      "select 1 from sqlite_master where type = 'table' and rootpage > 0 and name = ?1 collate "
      "nocase");
  statement.bind(1, expected.table);
  if (!statement.execQuery().eof()) return;
  throw DeliveryError(std::string("it has no table ") + expected.table);
}

// A trigger would run with every write to the copy. What an entry is says its text, in the
// spelling that SQLite gives it; the column "type" of a hostile file may say anything.
void RequirePlainSchema(CppSQLite3DB& source) {
  auto statement = source.compileStatement("select name, sql from sqlite_master");
  for (auto entry = statement.execQuery(); !entry.eof(); entry.nextRow()) {
    if (entry.fieldIsNull(1)) continue;  // an index that a constraint has made
    const std::string_view text = entry.getStringField(1);
    if (text.starts_with("CREATE TABLE ") || text.starts_with("CREATE INDEX ") ||
        text.starts_with("CREATE UNIQUE INDEX ") || text.starts_with("CREATE VIEW ")) {
      continue;
    }
    throw DeliveryError("its schema holds " + std::string(entry.getStringField(0)) +
                        ", which is no table, index or view");
  }
}

void RequirePlainColumns(CppSQLite3DB& source, const DeliveredTable& expected) {
  auto statement =
      source.compileStatement(std::string("pragma table_xinfo(") + expected.table + ")");
  for (auto column = statement.execQuery(); !column.eof(); column.nextRow()) {
    if (column.getIntField("hidden") == 0) continue;
    throw DeliveryError("its column " + std::string(column.getStringField("name")) +
                        " is computed");
  }
}

// Pages that a damaged file uses more than once would come as rows without end, and a
// damaged index would be taken over as it is.
void RequireSound(CppSQLite3DB& source) {
  auto statement = source.compileStatement("pragma integrity_check(1)");
  const auto answer = statement.execQuery();
  const std::string_view fault = answer.eof() ? "no answer" : answer.getStringField(0);
  if (fault != "ok") throw DeliveryError("it is damaged: " + std::string(fault));
}

/// A folder for a copy that only its reader sees; removed with the scope.
class PrivateFolder {
 public:
  PrivateFolder() : path_((fs::temp_directory_path() / "keelstone-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) FailWith(path_, errno);
  }
  ~PrivateFolder() {
    boost::system::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  std::string Place(const char* name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};

/// Whether the header says that the file is in write-ahead mode.
bool IsInWalMode(const std::string& file) {
  const Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  constexpr std::size_t kVersionsAt = 18;  // of the formats for writing and for reading
  char header[kVersionsAt + 2] = {};
  return opened.get() >= 0 &&
         ::pread(opened.get(), header, sizeof header, 0) == static_cast<ssize_t>(sizeof header) &&
         std::string_view(header, 15) == "SQLite format 3" && header[kVersionsAt + 1] == 2;
}

void CopyFile(const std::string& from, const std::string& to) {
  boost::system::error_code error;
  fs::copy_file(from, to, error);
  if (error) throw DeliveryError("its copy " + to + ": " + error.message());
}

/// Opens the file for reading. SQLite would make two files beside one in write-ahead mode,
/// or fail where it may not: unless somebody has it open (then they are there), a copy is
/// taken out of that mode and read, which lives as long as it is open.
void OpenLeavingNothing(CppSQLite3DB& source, const std::string& from) {
  boost::system::error_code ignored;
  if (!IsInWalMode(from) || fs::exists(from + "-shm", ignored)) {
    source.open(from, CppSQLite3DB::Mode::kReadOnly);
    return;
  }
  const PrivateFolder folder;
  const std::string copy = folder.Place("delivered.db");
  CopyFile(from, copy);
  if (fs::exists(from + "-wal", ignored)) CopyFile(from + "-wal", copy + "-wal");
  fs::permissions(copy, fs::add_perms | fs::owner_read | fs::owner_write, ignored);
  source.open(copy, CppSQLite3DB::Mode::kReadWrite);
  source.compileStatement("pragma journal_mode=delete").execQuery();
  source.open(copy, CppSQLite3DB::Mode::kReadOnly);
  source.compileStatement("select 1 from sqlite_master").execQuery();
}

}  // namespace

void OpenDelivered(CppSQLite3DB& source, const std::string& from, const std::string& to,
                   const DeliveredTable& expected) {
  if (PathError(from) == ENOENT) throw DeliveryError("there is no such file");
  if (to.empty()) throw DeliveryError("there is no destination");
  boost::system::error_code error;
  if (fs::equivalent(from, to, error)) throw DeliveryError("both are one file");
  OpenLeavingNothing(source, from);
  source.requireKnownSchema();
  const WithoutFunctions whileTheSchemaIsRead(source);
  RequireTable(source, expected);
  // Compiling names the column that is missing.
  source.compileStatement(std::string("select ") + expected.columns + " from " + expected.table);
  RequirePlainColumns(source, expected);
  RequirePlainSchema(source);
  RequireSound(source);
  const std::string fault = expected.rowFault != nullptr ? expected.rowFault(source) : "";
  if (!fault.empty()) throw DeliveryError(fault);
}

void OverwriteDatabase(CppSQLite3DB& source, const std::string& from, const std::string& to,
                       const DeliveredTable& expected) {
  OpenDelivered(source, from, to, expected);
  const std::string destination = ResolveLinks(to);
  if (!MakeParentFolders(destination)) throw DeliveryError("its folder cannot be made");
  IncomingCopy::RemoveAbandoned(destination);
  IncomingCopy copy(destination);
  copy.Fill(source);
  while (true) {
    boost::system::error_code error;
    if (fs::symlink_status(destination, error).type() != fs::file_not_found) {
      const HeldDatabase old(destination);
      copy.Move(destination, true);
      return;
    }
    HeldDatabase::RemoveSideFiles(destination);
    if (copy.Move(destination, false)) return;  // else another process has made it meanwhile
  }
}

}  // namespace keelstone
