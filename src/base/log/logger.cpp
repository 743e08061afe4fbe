#include "keelstone/logger.h"

#include <locale.h>
#include <algorithm>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <utility>

#include "base/log/log_file.h"
#include "base/threads/fork_gate.h"
#include "keelstone/mutex.h"
#include "keelstone/text_escape.h"

namespace keelstone {

namespace {

/// The C locale for the calling thread: a host's decimal comma stays out of the log.
class CLocaleScope {
 public:
  CLocaleScope() : previous_(::uselocale(C())) {}
  ~CLocaleScope() { ::uselocale(previous_); }
  CLocaleScope(const CLocaleScope&) = delete;
  CLocaleScope& operator=(const CLocaleScope&) = delete;

 private:
  static locale_t C() {
    static const locale_t c = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return c;
  }

  locale_t previous_;
};

/// Appends what printf would print; the format itself when it cannot be applied.
__attribute__((format(printf, 2, 0))) void AppendPrintf(std::string& text, const char* format,
                                                        va_list arguments) {
  const CLocaleScope cLocale;
  va_list again;
  va_copy(again, arguments);
  char buffer[1024];
  const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  if (length < 0) {
    text += format;
  } else if (static_cast<std::size_t>(length) < sizeof buffer) {
    text.append(buffer, static_cast<std::size_t>(length));
  } else {
    const std::size_t start = text.size();
    const std::size_t size = static_cast<std::size_t>(length);
    text.resize(start + size + 1);
    std::vsnprintf(text.data() + start, size + 1, format, again);
    text.resize(start + size);
  }
  va_end(again);
}

bool IsPlain(char c) { return c >= 0x20 && c < 0x7F; }

/// `text` with what could end its line, or show it in another order, escaped.
std::string Escaped(std::string_view text) {
  if (std::all_of(text.begin(), text.end(), IsPlain)) return std::string(text);
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string escaped;
  escaped.reserve(text.size() + 16);
  while (!text.empty()) {
    const std::size_t unsafe = UnsafeLength(text);
    const std::size_t length = std::max<std::size_t>(unsafe, 1);
    if (unsafe == 0) {
      escaped += text[0];
    } else if (text[0] == '\n') {
      escaped += "\\n";
    } else if (text[0] == '\t') {
      escaped += "\\t";
    } else if (text[0] == '\r') {
      escaped += "\\r";
    } else {
      for (const char c : text.substr(0, length)) {
        const auto byte = static_cast<unsigned char>(c);
        escaped += {'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
      }
    }
    text.remove_prefix(length);
  }
  return escaped;
}

std::string LevelName(int level) {
  switch (level) {
    case kLogProgress:
      return "progress";
    case kLogInformation:
      return "info";
    case kLogNotice:
      return "notice";
    case kLogError:
      return "error";
    default:
      return std::to_string(level);
  }
}

/// "error FS_Keelstone KSRuleInstance::ProcessVariable ksruleinstance:12 message".
std::string FileText(const LogLine& line) {
  std::string text;
  text.reserve(line.module.size() + line.function.size() + line.source.size() +
               line.message.size() + 32);  // level, line number and what joins them
  text.append(LevelName(line.level));
  text.append(" ").append(line.module).append(" ").append(line.function);
  text.append(" ").append(line.source).append(":").append(std::to_string(line.line));
  return text.append(" ").append(line.message);
}

std::string_view OrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

struct Logger::State {
  using SharedCallback = std::shared_ptr<const Callback>;

  SharedCallback CurrentCallback() {
    const MutexLock lock(mutex);
    return callback;
  }

  Mutex mutex;                                   // guards callback; innermost
  SharedCallback callback KS_GUARDED_BY(mutex);  // shared with the calls that run it
  LogFile file;
};

Logger::Logger() : level_(kLogInformation), state_(new State) {}

Logger& Logger::Instance() {
  static Logger* const instance = [] {
    auto* const made = new Logger;
    // Lines that are still in a buffer would be written by a forked child, too.
    ForkGate::Before([](void* logger) { static_cast<Logger*>(logger)->Flush(); }, made);
    return made;
  }();
  return *instance;
}

void Logger::SetCallback(Callback callback) {
  State::SharedCallback next;
  if (callback) next = std::make_shared<const Callback>(std::move(callback));
  const MutexLock lock(state_->mutex);
  // The old one dies with `next`, which is declared before the lock and so after it.
  state_->callback.swap(next);
}

void Logger::Log(const char* module, const char* second, const char* function, const char* source,
                 int line, int level, const char* format, ...) {
  if (!IsOn(level)) return;
  const int savedErrno = errno;
  va_list arguments;
  va_start(arguments, format);
  try {
    std::string message;
    if (second != nullptr && *second != '\0') message.append(second).append(": ");
    if (format != nullptr) AppendPrintf(message, format, arguments);
    const std::string escaped = Escaped(message);
    const LogLine logLine{OrEmpty(module), OrEmpty(function), OrEmpty(source), line, level,
                          escaped};
    if (const State::SharedCallback callback = state_->CurrentCallback()) {
      const ForkGate::Outside outside;
      (*callback)(logLine);
    } else {
      state_->file.Write(FileText(logLine), level >= kLogError);
    }
  } catch (...) {
    // Out of memory, or a host's callback failed: the line is lost, its caller is not.
  }
  va_end(arguments);
  errno = savedErrno;
}

void Logger::Flush() {
  try {
    state_->file.Flush();
  } catch (...) {
    // As above.
  }
}

}  // namespace keelstone
