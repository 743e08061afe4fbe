#include "model/ksstrregexrule.h"

#include <boost/exception/exception.hpp>
#include <boost/regex.hpp>
#include <exception>

#include "platform/logger.h"

namespace keelstone {

namespace {

using Point = KSDataPoint<std::string>;

constexpr const char* kModule = "FS_Keelstone";
constexpr const char* kFunction = "KSStrRegexRule::StrIsMatch";
constexpr const char* kSourceFile = "ksstrregexrule";

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
    return boost::regex_search(value, expression);
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
