#ifndef KEELSTONE_TEST_API_H
#define KEELSTONE_TEST_API_H

#include <cstdint>
#include <string>

#include "keelstone/export.h"

namespace keelstone {

/// Entry points for test tools: one piece of the evaluation on values given by hand,
/// without a parser process. They work on the domain's real databases, and may run beside
/// a live evaluation. Times are seconds since the epoch, narrowed to 32 bits. Any thread.
class KEELSTONE_EXPORT KeelstoneTestAPI {
 public:
  /// Evaluates one value of a device and stores what was learned. `typeCode` is the
  /// parser's (1 int64, 25 float, 2 and 23 double, 3 to 8 and 24 string, 11 table; a
  /// value of any other is refused). Inside a block period it checks but learns nothing.
  /// What keeps it from evaluating is printed to standard output.
  static void TestDynamicRule(const std::string& domain, const std::string& deviceName,
                              const std::string& variableName, const std::string& valueText,
                              std::int32_t typeCode, std::int64_t time, bool onDemand,
                              const std::string& variableSource);
  /// Whether the device is in a block period now (by the clock; `time` is that of a run).
  static bool TestBlockTime(const std::string& domain, const std::string& deviceName,
                            std::int64_t time, const std::string& variableSource);
  /// Makes an instance as the others do and lets it go; false. The third text is not read.
  static bool TestIntervalTime(const std::string& domain, const std::string& deviceName,
                               const std::string& unread, std::int64_t time,
                               const std::string& variableSource);
};

}  // namespace keelstone

#endif  // KEELSTONE_TEST_API_H
