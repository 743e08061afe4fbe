#include "model/rules/regex_rule.h"

#include <boost/exception/exception.hpp>
#include <cstddef>
#include <exception>
#include <optional>

#include "base/threads/thread_owned.h"
#include "keelstone/logger.h"
#include "model/rules/bounded_regex.h"

namespace keelstone {

namespace {

constexpr const char* kModule = "FS_Keelstone";
constexpr const char* kFunction = "KSStrRegexRule::StrIsMatch";

constexpr std::size_t kLongestKept = std::size_t{1} << 20U;  // bytes of a value

/// The last search of a thread. Values of one rule mostly come one after the other, and each
/// is searched twice: for the golden value and for the alert.
struct LastSearch {
  std::optional<BoundedRegex> expression;
  std::string pattern;
  std::string value;
  std::string failure;  // why the value could not be searched
  bool isSearched = false;
  bool isMatch = false;
};

void Search(const std::string& value, LastSearch& last) {
  last.isMatch = false;
  last.failure = last.expression->fault();
  if (!last.failure.empty()) return;
  try {
    last.isMatch = last.expression->IsIn(value);
  } catch (const boost::exception&) {
    last.failure = "regex catch boost exception";
  } catch (const std::exception& error) {
    last.failure = std::string("regex catch std exception: ") + error.what();
  }
}

/// Fills `last`, unless it holds the search of this very value for this very pattern. After an
/// exception it searches again.
void SearchOnce(const std::string& value, const std::string& pattern, LastSearch& last) {
  if (!last.expression || last.pattern != pattern) {
    last = LastSearch();
    last.pattern = pattern;
    last.expression.emplace(pattern);
  }
  if (last.isSearched && last.value == value) return;
  last.isSearched = false;
  Search(value, last);
  if (value.size() > kLongestKept) {
    last.value = std::string();
  } else {
    last.value = value;
    last.isSearched = true;
  }
}

}  // namespace

bool KSStrRegexRule::StrIsMatch(const std::string& value, const std::string& pattern) {
  try {
    LastSearch& last = ThreadOwned<LastSearch>::Get();
    SearchOnce(value, pattern, last);
    if (last.failure.empty()) return last.isMatch;
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "%s", last.failure.c_str());
  } catch (const std::exception& error) {
    // Only for want of memory.
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "regex catch std exception: %s",
           error.what());
  }
  return false;
}

}  // namespace keelstone
