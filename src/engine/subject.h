#ifndef KEELSTONE_ENGINE_SUBJECT_H
#define KEELSTONE_ENGINE_SUBJECT_H

#include <cstdint>
#include <string>

#include "keelstone/rule_records.h"

namespace keelstone {

/// Whose values an evaluation judges, and when: one run of one parser on one device, as the
/// constructor of a rule instance takes it. It does not change; any thread.
struct Subject {
  std::string variableSource;
  std::string nodeId;
  std::string deviceName;
  std::string nodePathSchema;
  std::string structureId;
  std::string variableParam;
  std::string domainId;
  std::string reserved;
  std::int64_t time;  // of every value, seconds since the epoch

  /// The device, or one interface of it, as storage names it.
  ObjectDefine Object(const std::string& interfaceValue) const {
    ObjectDefine object;
    object.nodeId = nodeId;
    object.nodePathSchema = nodePathSchema;
    object.deviceName = deviceName;
    object.interfaceValue = interfaceValue;
    return object;
  }
};

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_SUBJECT_H
