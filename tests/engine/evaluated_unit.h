#ifndef KEELSTONE_TESTS_ENGINE_EVALUATED_UNIT_H
#define KEELSTONE_TESTS_ENGINE_EVALUATED_UNIT_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "keelstone/rule_instance.h"
#include "keelstone/write_behind.h"

namespace keelstone::testing {

inline VarInfo Value(const std::string& name, int dataType, const std::string& text,
                     const std::string& interfaceValue = {}, int typeCode = 1) {
  VarInfo variable;
  variable.variableName = name;
  variable.dataType = dataType;
  variable.variableType = typeCode;
  variable.interfaceValue = interfaceValue;
  variable.interfacePath = interfaceValue.empty() ? "" : "path of " + interfaceValue;
  variable.valueText = text;
  return variable;
}

/// The parser "src" with the param "prm" on the device "r1".
struct Unit {
  std::string domainId;

  /// An instance that has loaded rules and histories.
  std::unique_ptr<KSRuleInstance> Start(std::int32_t time, bool onDemand = false) const {
    auto instance = std::make_unique<KSRuleInstance>("src", "node", "r1", "schema", "structure",
                                                     "prm", domainId, "", time, onDemand);
    instance->InitCacheData();
    instance->InitHistoryData();
    return instance;
  }

  /// Ends a run: what it changed is on disk afterwards.
  void Finish(KSRuleInstance& instance) const {
    instance.SerializeLocalDB();
    DBWriteWrapper::Instance()->WriteDomain(domainId);
  }

  ObjectDefine Object(const std::string& interfaceValue = {}) const {
    ObjectDefine object;
    object.deviceName = "r1";
    object.nodePathSchema = "schema";
    object.interfaceValue = interfaceValue;
    return object;
  }
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_ENGINE_EVALUATED_UNIT_H
