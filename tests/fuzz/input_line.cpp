// One line of the input of `evaluate`: read, evaluated without definitions of its own, and
// written as output.
#include <memory>
#include <utility>

#include "keelstone/database_files.h"
#include "keelstone/run_evaluation.h"
#include "keelstone/run_line.h"
#include "program/evaluate/result_output.h"
#include "tests/fuzz/fuzz_home.h"

namespace keelstone::fuzz {
namespace {

std::unique_ptr<UnitData> DefinitionsOf(const ParsedRun& run) {
  auto data = std::make_unique<UnitData>();
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
  static const DomainSnapshot domain{
      .id = "fuzz", .data = home.manager(), .tableRowLimit = 5000, .stringLineLimit = 100};
  RunLineReader reader("fuzz");
  ParsedRun run;
  if (!reader.Read(line, run)) {
    KS_PROMISE(!reader.fault().empty());
    KS_PROMISE(IsStrictJson(JsonValue(reader.fault()).toString()));  // valid UTF-8
    return;
  }
  ExpectSafeFolder(run.domain);
  run.domain = home.domainId();
  static JudgedValues judged;
  RunRequest request;
  request.onDemand = run.onDemand;
  request.stages = IntakeStages();
  request.judged = judged.Of(run);
  RunOutcome outcome = EvaluateRun(run, domain, request, DefinitionsOf(run));
  KS_PROMISE(outcome.variables <= run.variables.size());
  KS_PROMISE(outcome.rejected.size() <= run.variables.size());
  const std::string output = host::JsonOutput(run, outcome, true);
  KS_PROMISE(IsStrictJson(output));
  KS_PROMISE(output.find('\n') + 1 >= output.size());
  host::TextOutput(run, outcome, {});
  outcome.Store();
  if (outcome.mayHavePending) home.Forget();
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::ReadLine({reinterpret_cast<const char*>(data), size});
  return 0;
}
