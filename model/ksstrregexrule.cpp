#include "model/ksstrregexrule.h"

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

// Boost bounds the states of a search by the squares of the text's and of the pattern's
// length, which for long ones leaves hours. What exceeds these is searched step by counted
// step, and there Boost's bound is a constant.
constexpr std::size_t kLongText = 16 * 1024;
constexpr double kManyStates = 1e8;
constexpr std::int64_t kMostSteps = 200'000'000;

bool Search(const std::string& value, const boost::regex& expression) {
  const auto length = static_cast<double>(expression.size());
  const double states = static_cast<double>(value.size()) * length * length;
  if (value.size() <= kLongText && states <= kManyStates) {
    return boost::regex_search(value, expression);
  }
  CountedText text(value, kMostSteps);
  return boost::regex_search(text.begin(), text.end(), expression);
}

}  // namespace

void KSStrRegexRule::LogRefusedHistory(const std::string& text) const {
  KS_LOG(kModule, "KSStrRegexRule::Init", kSourceFile, kLogError, "Failed to load history data: %s",
         text.c_str());
}

bool KSStrRegexRule::StrIsMatch(const std::string& value, const std::string& pattern) {
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
