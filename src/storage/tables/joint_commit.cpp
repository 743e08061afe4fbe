#include "storage/tables/joint_commit.h"

#include <dirent.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <string_view>

#include "keelstone/filesystem.h"

namespace keelstone {

namespace {

std::string JournalMode(CppSQLite3DB& db, const std::string& pragma) {
  auto statement = db.compileStatement(pragma);
  return std::string(statement.execQuery().getStringField(0));
}

bool IsSuperJournal(std::string_view name, std::string_view database) {
  constexpr std::string_view kMark = "-mj";
  constexpr std::size_t kDigits = 9;
  return name.size() == database.size() + kMark.size() + kDigits && name.starts_with(database) &&
         name.substr(database.size()).starts_with(kMark);
}

// Whether nobody needs a super-journal: of the journals that it lists, each name ended by a
// NUL, there are none but those of the two files that are held.
bool IsAbandoned(const std::string& superJournal, const std::string& first,
                 const std::string& second) {
  std::ifstream file(superJournal, std::ios::binary);
  if (!file) return false;
  std::string name;
  while (std::getline(file, name, '\0')) {
    if (name != first && name != second && PathError(name) != ENOENT) return false;
  }
  return true;
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

}  // namespace

bool MayPass(int code) {
  switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
    case SQLITE_IOERR:
    case SQLITE_NOMEM:
    case SQLITE_INTERRUPT:
    case SQLITE_TOOBIG:
      return true;
    default:
      return false;
  }
}

bool HasRollbackJournal(CppSQLite3DB& db, const std::string& schema) {
  const std::string pragma = "pragma " + schema + ".journal_mode";
  if (JournalMode(db, pragma) != "wal") return true;
  try {
    return JournalMode(db, pragma + "=delete") == "delete";
  } catch (const CppSQLite3Exception&) {
    return false;
  }
}

void RemoveAbandonedSuperJournals(const std::string& database, const std::string& second) {
  const std::size_t slash = database.rfind('/') + 1;
  const std::string folder = database.substr(0, slash);
  const std::string own = database.substr(slash);
  const std::string beside = folder + second.substr(second.rfind('/') + 1);
  constexpr const char* kJournal = "-journal";
  // Not by the standard library's iterator, which ends the process when memory is short.
  const std::unique_ptr<DIR, CloseFolder> entries(::opendir(folder.c_str()));
  if (entries == nullptr) return;
  while (const dirent* const entry = ::readdir(entries.get())) {
    const char* const name = static_cast<const char*>(entry->d_name);
    if (!IsSuperJournal(name, own)) continue;
    const std::string path = folder + name;
    if (IsAbandoned(path, database + kJournal, beside + kJournal)) ::unlink(path.c_str());
  }
}

}  // namespace keelstone
