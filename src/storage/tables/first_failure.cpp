#include "keelstone/first_failure.h"

#include <new>

#include "keelstone/mutex.h"
#include "storage/tables/note_failure.h"

namespace keelstone {

namespace {

struct Kept {
  Mutex mutex;  // guards text; innermost
  std::string text KS_GUARDED_BY(mutex);
};

/// Never destroyed: threads may still fail while the process ends.
Kept& TheFirst() {
  static Kept* const kept = new Kept;
  return *kept;
}

}  // namespace

std::string FirstFailure() {
  Kept& first = TheFirst();
  const MutexLock lock(first.mutex);
  return first.text;
}

void NoteFailure(std::string_view file, std::string_view operation,
                 std::string_view words) noexcept {
  try {
    Kept& first = TheFirst();
    const MutexLock lock(first.mutex);
    if (!first.text.empty()) return;
    std::string text;
    for (const std::string_view part : {file, operation, words}) {
      if (!part.empty()) text.append(text.empty() ? "" : ": ").append(part);
    }
    first.text = std::move(text);
  } catch (const std::bad_alloc&) {
    return;  // the next one is told
  }
}

}  // namespace keelstone
