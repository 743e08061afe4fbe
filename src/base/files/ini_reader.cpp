#include "keelstone/ini_reader.h"

#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

#include "base/files/ini_file.h"
#include "base/files/whole_file.h"
#include "keelstone/filesystem.h"
#include "keelstone/logger.h"
#include "keelstone/mutex.h"

namespace keelstone {

namespace {

using IniFilePointer = std::shared_ptr<const IniFile>;

std::string ErrorText(int error) { return std::generic_category().message(error); }

/// What tells one state of a file from another without reading it.
struct FileVersion {
  std::uint64_t device = 0;
  std::uint64_t node = 0;
  std::int64_t bytes = 0;
  std::int64_t seconds = 0;  // of the last change, and
  std::int64_t nanoseconds = 0;

  bool operator==(const FileVersion&) const = default;

  /// A file that was written just now can be written again within one tick of the file
  /// system's clock and look the same.
  bool IsSettled() const {
    constexpr double kTickSeconds = 0.1;
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    const double changed = static_cast<double>(seconds) + static_cast<double>(nanoseconds) / 1e9;
    return std::abs(now.count() - changed) > kTickSeconds;
  }
};

std::optional<FileVersion> VersionOf(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return FileVersion{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                     status.st_mtim.tv_nsec};
}

/// The files that have been read, by path. Never destroyed: threads of the library
/// outlive main.
class IniCache {
 public:
  static IniCache& Instance() {
    static IniCache* const instance = new IniCache;
    return *instance;
  }

  /// The file as it stands on disk; empty when there is none.
  IniFilePointer Get(const std::string& path) {
    const std::optional<FileVersion> version = VersionOf(path);
    if (!version) return nullptr;
    IniFilePointer file = Known(path, *version);
    return file != nullptr ? file : Read(path, *version);
  }

 private:
  struct Slot {
    FileVersion version;
    bool settled = false;
    IniFilePointer file;
  };

  IniFilePointer Known(const std::string& path, const FileVersion& version) {
    const MutexLock lock(mutex_);
    const auto found = slots_.find(path);
    if (found == slots_.end()) return nullptr;
    const Slot& slot = found->second;
    return slot.settled && slot.version == version ? slot.file : nullptr;
  }

  IniFilePointer Read(const std::string& path, const FileVersion& version) {
    const bool settled = version.IsSettled();
    std::string text;
    const int error = ReadWholeFile(path, text);
    IniFilePointer file = std::make_shared<const IniFile>(std::move(text));
    {
      const MutexLock lock(mutex_);
      Slot& slot = slots_[path];
      slot.version = version;
      slot.settled = settled;
      // The same text keeps its entries: their faults have been logged.
      if (slot.file != nullptr && slot.file->Text() == file->Text()) return slot.file;
      slot.file = file;
    }
    LogFaults(path, *file, error);
    return file;
  }

  static void LogFaults(const std::string& path, const IniFile& file, int error) {
    if (error != 0) {
      KS_LOG("FS_Keelstone", "IniReader::GetInt", "ini_reader", kLogError, "%s cannot be read: %s",
             path.c_str(), ErrorText(error).c_str());
    }
    for (const std::size_t line : file.SkippedLines()) {
      KS_LOG("FS_Keelstone", "IniReader::GetInt", "ini_reader", kLogError,
             "%s:%zu: the line is passed over: too long, or not a text", path.c_str(), line);
    }
  }

  Mutex mutex_;  // guards slots_; innermost; no file is read and nothing logged under it
  std::map<std::string, Slot> slots_ KS_GUARDED_BY(mutex_);
};

std::optional<int> WholeNumber(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::string PathOf(const std::string& file) {
  return VXFileSystem::GetSystemRootFolder() + "conf/" + file;
}

/// The value in one file; nothing when there is none.
std::optional<int> GetFrom(const std::string& file, const std::string& section,
                           const std::string& key, int otherwise) {
  const std::string path = PathOf(file);
  const IniFilePointer ini = IniCache::Instance().Get(path);
  const IniFile::Entry* const entry = ini != nullptr ? ini->Find(section, key) : nullptr;
  if (entry == nullptr) return std::nullopt;
  if (const std::optional<int> number = WholeNumber(entry->value)) return number;
  if (!entry->reported.exchange(true, std::memory_order_relaxed)) {
    KS_LOG("FS_Keelstone", "IniReader::GetInt", "ini_reader", kLogError,
           "%s: [%s] %s = \"%s\" is not a whole number within 32 bits, %d is used", path.c_str(),
           section.c_str(), key.c_str(), entry->value.c_str(), otherwise);
  }
  return otherwise;
}

/// Where a file that is a symbolic link lies in truth.
std::string BehindLinks(const std::string& path) {
  boost::system::error_code error;
  const boost::filesystem::path behind = boost::filesystem::canonical(path, error);
  return error ? path : behind.string();
}

/// Writes one value; the empty text, or why that cannot be.
std::string Set(const std::string& path, const std::string& section, const std::string& key,
                int value) {
  if (!MakeParentFolders(path)) return "its folder cannot be made";
  // From reading to replacing, or of two that write different keys one would lose its own.
  const FolderLock lock(boost::filesystem::path(path).parent_path().string());
  std::string text;
  const int readError = ReadWholeFile(path, text);
  if (readError != 0 && readError != ENOENT) return ErrorText(readError);
  const std::string changed =
      IniFile(std::move(text)).WithValue(section, key, std::to_string(value));
  // A section or key that the file's grammar cannot hold shows when it is looked up.
  const IniFile check(changed);
  const IniFile::Entry* const entry = check.Find(section, key);
  if (entry == nullptr || WholeNumber(entry->value) != value) {
    return "no ini file can hold the section or the key";
  }
  const int writeError = ReplaceWholeFile(path, changed);
  return writeError == 0 ? std::string() : ErrorText(writeError);
}

}  // namespace

int IniReader::GetInt(const std::string& section, const std::string& key, int otherwise,
                      const std::string& overrideFile, const std::string& baseFile) {
  if (const std::optional<int> value = GetFrom(overrideFile, section, key, otherwise)) {
    return *value;
  }
  return GetInt(section, key, otherwise, baseFile);
}

int IniReader::GetInt(const std::string& section, const std::string& key, int otherwise,
                      const std::string& file) {
  return GetFrom(file, section, key, otherwise).value_or(otherwise);
}

bool IniReader::SetInt(const std::string& section, const std::string& key, int value,
                       const std::string& file, std::string* why) {
  const std::string path = BehindLinks(PathOf(file));
  const std::string fault = Set(path, section, key, value);
  if (fault.empty()) return true;
  if (why != nullptr) *why = path + ": " + fault;
  KS_LOG("FS_Keelstone", "IniReader::SetInt", "ini_reader", kLogError, "%s cannot be written: %s",
         path.c_str(), fault.c_str());
  return false;
}

}  // namespace keelstone
