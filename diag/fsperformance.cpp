#include "diag/fsperformance.h"

#include <chrono>
#include <utility>

#include "platform/logger.h"

namespace keelstone {

namespace {

std::int64_t SteadyNanoseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

}  // namespace

FSPerformance::FSPerformance(std::string classLabel, std::string functionLabel, std::string extra)
    : classLabel_(std::move(classLabel)),
      functionLabel_(std::move(functionLabel)),
      extra_(std::move(extra)),
      start_(Logger::Instance().IsOn(kLogInformation) ? SteadyNanoseconds() : -1) {}

FSPerformance::~FSPerformance() {
  if (start_ < 0 || !Logger::Instance().IsOn(kLogInformation)) return;
  const double milliseconds = static_cast<double>(SteadyNanoseconds() - start_) / 1e6;
  KS_LOG("Performance", "FSPerformance::~FSPerformance", "fsperformance", kLogInformation,
         "%s :: %s Cost %f ms. %s", classLabel_.c_str(), functionLabel_.c_str(), milliseconds,
         extra_.c_str());
}

}  // namespace keelstone
