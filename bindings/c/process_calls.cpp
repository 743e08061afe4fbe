#include <algorithm>
#include <string>

#include "bindings/c/call.h"
#include "bindings/c/log_sink.h"
#include "host/root_use.h"
#include "keelstone/domain.h"
#include "keelstone/filesystem.h"
#include "keelstone/ini_reader.h"
#include "keelstone/logger.h"
#include "keelstone/table_base.h"
#include "keelstone/text_escape.h"

using namespace keelstone;
using namespace keelstone::c;

int32_t ks_api_version(void) { return KS_API_VERSION; }

const char* ks_version(void) { return KEELSTONE_VERSION; }

const char* ks_status_text(ks_status status) {
  switch (status) {
    case KS_OK:
      return "done";
    case KS_ERROR_ARGUMENT:
      return "an argument that cannot be";
    case KS_ERROR_HANDLE:
      return "no open handle";
    case KS_ERROR_STATE:
      return "wrong order of calls";
    case KS_ERROR_BUSY:
      return "in use by another thread";
    case KS_ERROR_INPUT:
      return "ill-formed input";
    case KS_ERROR_DATABASE:
      return "a database that cannot be used";
    case KS_ERROR_WRITE:
      return "not all could be written";
    case KS_ERROR_MEMORY:
      return "out of memory";
    case KS_ERROR_INTERNAL:
      return "a fault of the library";
    case KS_USAGE:
      return "a handle from before fork()";
    default:
      return "no status";
  }
}

const char* ks_last_error(void) { return RememberedFailure(); }

ks_status ks_set_root(const char* folder) {
  return Call([&] {
    const std::string root(RequiredText(folder, "folder"));
    if (root.empty()) throw Failure(KS_ERROR_ARGUMENT, "folder is empty");
    SetRoot(root);
  });
}

ks_status ks_set_interval_time(int32_t seconds) {
  return Call([&] {
    if (seconds < 0) throw Failure(KS_ERROR_ARGUMENT, "seconds is negative");
    if (!IniReader::SetInt("Keelstone", "IntervalTime", seconds, "fix_frontserver.ini")) {
      throw Failure(KS_ERROR_WRITE, "IntervalTime cannot be written to " +
                                        Printable(VXFileSystem::GetSystemRootFolder()) +
                                        "conf/fix_frontserver.ini; the log says why");
    }
  });
}

ks_status ks_set_memory(uint64_t bytes) {
  return Call([&] { Domain::SetMemory(std::min<uint64_t>(bytes, SIZE_MAX)); });
}

ks_status ks_set_logger(ks_log_callback callback, void* user) {
  return Call([&] { SetLogSink(callback, user); });
}

ks_status ks_set_log_level(int32_t level) {
  return Call([&] {
    if (level < KS_LOG_PROGRESS || level > KS_LOG_NONE) {
      throw Failure(KS_ERROR_ARGUMENT, "level is none of 0 to 4");
    }
    Logger::Instance().SetLevel(level);
  });
}

uint64_t ks_failed_writes(void) { return GetFailedWriteCount(); }

uint64_t ks_failed_reads(void) { return GetFailedReadCount(); }
