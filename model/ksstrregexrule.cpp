#include "model/ksstrregexrule.h"

// States of one search, beyond which Boost gives it up; its own bound leaves seconds.
#define BOOST_REGEX_MAX_STATE_COUNT 30000000

#include <boost/exception/exception.hpp>
#include <boost/regex.hpp>
#include <cstddef>
#include <cstdint>
#include <exception>

#include "model/counted_text.h"
#include "platform/logger.h"

namespace keelstone {

namespace {

using Point = KSDataPoint<std::string>;

constexpr const char* kModule = "FS_Keelstone";
constexpr const char* kFunction = "KSStrRegexRule::StrIsMatch";
constexpr const char* kSourceFile = "ksstrregexrule";

// The time to compile a pattern grows with the square of its length.
constexpr std::size_t kLongestPattern = std::size_t{256} * 1024;

// Boost bounds the states of a search by the squares of the text's and of the pattern's
// length too, which for long ones leaves hours. What exceeds these is searched step by
// counted step, and there Boost's bound is a constant.
constexpr std::size_t kLongText = 16 * 1024;
constexpr double kManyStates = BOOST_REGEX_MAX_STATE_COUNT;
constexpr std::int64_t kMostSteps = 50'000'000;
constexpr std::int64_t kStepsPerByte = 4;

/// Whether the verb stands in the pattern: in a group that repeats it has Boost go round
/// for ever, where nothing counts.
bool HoldsAccept(const std::string& pattern) {
  for (std::size_t at = pattern.find("(*A"); at != std::string::npos;
       at = pattern.find("(*A", at + 1)) {
    std::size_t escapes = 0;
    while (escapes < at && pattern[at - escapes - 1] == '\\') ++escapes;
    if (escapes % 2 == 0) return true;
  }
  return false;
}

bool Search(const std::string& value, const boost::regex& expression) {
  const auto length = static_cast<double>(expression.size());
  const double states = static_cast<double>(value.size()) * length * length;
  if (value.size() <= kLongText && states <= kManyStates) {
    return boost::regex_search(value, expression);
  }
  CountedText text(value, kMostSteps + kStepsPerByte * static_cast<std::int64_t>(value.size()));
  return boost::regex_search(text.begin(), text.end(), expression);
}

}  // namespace

void KSStrRegexRule::LogRefusedHistory(const std::string& text) const {
  KS_LOG(kModule, "KSStrRegexRule::Init", kSourceFile, kLogError, "Failed to load history data: %s",
         text.c_str());
}

bool KSStrRegexRule::StrIsMatch(const std::string& value, const std::string& pattern) {
  if (pattern.size() > kLongestPattern) {
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "regex pattern of %zu bytes is too long",
           pattern.size());
    return false;
  }
  if (HoldsAccept(pattern)) {
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "regex pattern holds the verb (*ACCEPT)");
    return false;
  }
  try {
    const boost::regex expression(
        pattern, boost::regex::perl | boost::regex::icase | boost::regex::no_except);
    if (expression.status() != 0) {
      KS_LOG(kModule, kFunction, kSourceFile, kLogError, "boost::regex initial catch exception: %d",
             static_cast<int>(expression.status()));
      return false;
    }
    return Search(value, expression);
  } catch (const boost::exception&) {
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "regex catch boost exception");
  } catch (const std::exception& error) {
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "regex catch std exception: %s",
           error.what());
  } catch (...) {
    KS_LOG(kModule, kFunction, kSourceFile, kLogError, "regex catch exception");
  }
  return false;
}

bool KSStrRegexRule::CheckGoldenValue(const std::shared_ptr<KSDataBase>& point) {
  return TakeGoldenIf<Point>(point, [](const StrEqualData& data, const Point& text) {
    return StrIsMatch(text.value, data.ruleParam);
  });
}

bool KSStrRegexRule::CheckAlert(const std::shared_ptr<KSDataBase>& point) {
  return AlertIf<Point>(point, [](const StrEqualData& data, const Point& text) {
    return !StrIsMatch(text.value, data.ruleParam);
  });
}

}  // namespace keelstone
