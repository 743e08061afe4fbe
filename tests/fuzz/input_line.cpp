// One line of the input of `evaluate`: read, evaluated without definitions of its own, and
// written as output.
#include <memory>
#include <utility>

#include "host/result_output.h"
#include "host/run_evaluation.h"
#include "host/run_line.h"
#include "platform/filesystem.h"
#include "tests/fuzz/fuzz_home.h"

namespace keelstone::fuzz {
namespace {

std::unique_ptr<host::UnitData> DefinitionsOf(const host::ParsedRun& run) {
  auto data = std::make_unique<host::UnitData>();
  for (const VarInfo& variable : run.variables) {
    auto definition = std::make_shared<RuleDefinitionData>();
    definition->variableName = variable.variableName;
    definition->variableType = variable.variableType;
    definition->enableFlag = true;
    data->rules[variable.interfaceValue][variable.variableName] = std::move(definition);
  }
  return data;
}

void ExpectSafeFolder(const std::string& domainId) {
  const std::string name = DomainFolderName(domainId);
  KS_PROMISE(!name.empty() && name != "." && name != "..");
  KS_PROMISE(name.find('/') == std::string::npos && name.find('\0') == std::string::npos);
}

void ReadLine(std::string_view line) {
  static Home home;
  static const host::Domain domain{
      .id = "fuzz", .data = home.manager(), .tableRowLimit = 5000, .stringLineLimit = 100};
  host::RunLineReader reader("fuzz");
  host::ParsedRun run;
  if (!reader.Read(line, run)) {
    KS_PROMISE(!reader.fault().empty());
    KS_PROMISE(IsStrictJson(JsonValue(reader.fault()).toString()));  // valid UTF-8
    return;
  }
  ExpectSafeFolder(run.domain);
  run.domain = home.domainId();
  const bool onDemand = run.onDemand;
  const host::RunOutcome outcome = host::EvaluateRun(run, domain, onDemand, DefinitionsOf(run));
  KS_PROMISE(outcome.variables <= run.variables.size());
  KS_PROMISE(outcome.rejected.size() <= run.variables.size());
  const std::string output = host::JsonOutput(run, outcome, true);
  KS_PROMISE(IsStrictJson(output));
  KS_PROMISE(output.find('\n') + 1 >= output.size());
  host::TextOutput(run, outcome);
  if (outcome.mayHavePending) home.Forget();
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::ReadLine({reinterpret_cast<const char*>(data), size});
  return 0;
}
