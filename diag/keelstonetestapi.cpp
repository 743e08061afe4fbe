#include "diag/keelstonetestapi.h"

#include <cstdio>

#include "engine/ksruleinstance.h"
#include "engine/ksrulerecords.h"

namespace keelstone {

namespace {

/// The instance of a run that has nothing but a device and a source.
class TestRun : public KSRuleInstance {
 public:
  TestRun(const std::string& domain, const std::string& deviceName, std::int64_t time,
          bool onDemand, const std::string& variableSource)
      : KSRuleInstance(variableSource, {}, deviceName, {}, {}, {}, domain, {}, EvaluationTime{time},
                       onDemand) {}
};

EnumKSDataType DataTypeOf(std::int32_t typeCode) {
  if (typeCode >= 3 && typeCode <= 8) return KSDataString;
  switch (typeCode) {
    case 1:
      return KSDataInt64;
    case 25:
      return KSDataFloat;
    case 2:
    case 23:
      return KSDataDouble;
    case 24:
      return KSDataString;
    case 11:
      return KSDataTable;
    default:
      return KSDataUnknown;
  }
}

// Prints what keeps the run from evaluating; false when something does.
bool IsReady(KSRuleInstance& run) {
  const char* reason = nullptr;
  if (!run.IsDefineRule()) {
    reason = "IsDefineRule = False";
  } else if (!run.InitCacheData()) {
    reason = "InitCacheData = False";
  } else if (!run.InitHistoryData()) {
    reason = "load history data from db is failed.";
  }
  if (reason != nullptr) std::puts(reason);
  return reason == nullptr;
}

}  // namespace

void KeelstoneTestAPI::TestDynamicRule(const std::string& domain, const std::string& deviceName,
                                       const std::string& variableName,
                                       const std::string& valueText, std::int32_t typeCode,
                                       std::int64_t time, bool onDemand,
                                       const std::string& variableSource) {
  TestRun run(domain, deviceName, time, onDemand, variableSource);
  if (!onDemand && run.IsInBlockTime()) {
    run.SetOnlyUpdateKSValue();
    std::puts("device is in block time, just update golden value.");
  }
  if (!IsReady(run)) return;
  VarInfo variable;
  variable.variableName = variableName;
  variable.variableType = typeCode;
  variable.valueText = valueText;
  variable.dataType = DataTypeOf(typeCode);
  run.ProcessVariable(variable);
  run.SerializeLocalDB();
}

bool KeelstoneTestAPI::TestBlockTime(const std::string& domain, const std::string& deviceName,
                                     std::int64_t time, const std::string& variableSource) {
  return TestRun(domain, deviceName, time, false, variableSource).IsInBlockTime();
}

bool KeelstoneTestAPI::TestIntervalTime(const std::string& domain, const std::string& deviceName,
                                        const std::string& /*unread*/, std::int64_t time,
                                        const std::string& variableSource) {
  const TestRun run(domain, deviceName, time, false, variableSource);
  return false;
}

}  // namespace keelstone
