#include "base/log/log_file.h"

#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <unistd.h>

#include "keelstone/filesystem.h"

namespace keelstone {

namespace {

constexpr std::size_t kFileBytes = std::size_t{16} << 20;
constexpr std::size_t kOldFiles = 3;

/// Makes the file when it is missing; whether it can be written. Asked first, because
/// spdlog tries several times and sleeps in between, at the cost of whoever logs, and
/// because its files would be readable by all.
bool CanBeWritten(const std::string& path) {
  const int file =
      ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, kFileRights);
  if (file < 0) return false;
  ::close(file);
  return true;
}

}  // namespace

LogFile::LogFile() = default;
LogFile::~LogFile() = default;

bool LogFile::OpenBelow(const std::string& root) {
  if (out_ != nullptr && root == root_) return true;
  out_.reset();
  const std::string path = root + "log/keelstone.log";
  if (!MakeParentFolders(path) || !CanBeWritten(path)) return false;
  spdlog::file_event_handlers handlers;
  // Each time the file turns over, too. What cannot be written, spdlog finds out itself.
  handlers.before_open = [](const std::string& file) { static_cast<void>(CanBeWritten(file)); };
  auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_st>(path, kFileBytes, kOldFiles,
                                                                     false, handlers);
  auto out = std::make_unique<spdlog::logger>("keelstone", std::move(sink));
  out->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%eZ %v",
                                                                 spdlog::pattern_time_type::utc));
  out->set_level(spdlog::level::trace);
  // Runs below, inside a call of out_, so under mutex_.
  bool* const broken = &broken_;
  out->set_error_handler([broken](const std::string&) { *broken = true; });
  out_ = std::move(out);
  root_ = root;
  return true;
}

void LogFile::DropWhenBroken() {
  if (!broken_) return;
  broken_ = false;
  out_.reset();
}

void LogFile::Write(std::string_view line, bool flush) {
  const std::string root = VXFileSystem::GetSystemRootFolder();
  const MutexLock lock(mutex_);
  if (!OpenBelow(root)) return;
  out_->log(spdlog::level::info, spdlog::string_view_t(line.data(), line.size()));
  if (flush) out_->flush();
  DropWhenBroken();
}

void LogFile::Flush() {
  const MutexLock lock(mutex_);
  if (out_ == nullptr) return;
  out_->flush();
  DropWhenBroken();
}

}  // namespace keelstone
