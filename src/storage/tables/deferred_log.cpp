#include "storage/tables/deferred_log.h"

#include <exception>
#include <iterator>
#include <utility>

#include "keelstone/logger.h"

namespace keelstone {

thread_local DeferredLog* DeferredLog::innermost_ = nullptr;

DeferredLog::DeferredLog(const char* function, const char* source) noexcept
    : function_(function), source_(source), enclosing_(innermost_) {
  innermost_ = this;
}

DeferredLog::~DeferredLog() {
  innermost_ = enclosing_;
  try {
    if (enclosing_ != nullptr) {
      enclosing_->lines_.insert(enclosing_->lines_.end(), std::make_move_iterator(lines_.begin()),
                                std::make_move_iterator(lines_.end()));
      return;
    }
    for (const Line& line : lines_) {
      Logger::Instance().Log("FS_Keelstone", "", line.function, line.source, line.line, line.level,
                             "%s", line.message.c_str());
    }
  } catch (const std::exception&) {
    return;  // no memory for the lines: the work itself is done
  }
}

void DeferredLog::Add(int level, int line,
                      std::initializer_list<std::string_view> pieces) noexcept {
  if (!Logger::Instance().IsOn(level)) return;
  try {
    std::string message;
    for (const std::string_view piece : pieces) message += piece;
    lines_.push_back({function_, source_, line, level, std::move(message)});
  } catch (const std::exception&) {
    return;
  }
}

}  // namespace keelstone
