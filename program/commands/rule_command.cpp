#include "program/commands/rule_command.h"

#include <CLI/CLI.hpp>

#include "keelstone/data_manager.h"
#include "keelstone/domain_edits.h"
#include "keelstone/json_reader.h"
#include "program/command_output.h"
#include "program/commands/known_variable.h"
#include "program/commands/rule_parameter.h"
#include "program/exit_codes.h"

namespace keelstone::host {

namespace {

constexpr const char* kSetName = "rule set";
constexpr const char* kUnsetName = "rule unset";

constexpr const char* kGroupHelpEnd = R"(Examples:
  keelstone rule set --device r1 --source system --variable cpu --type intLEQ \
      --parameter '{"ruleParam":80}'
  keelstone rule unset --device r1 --source system --variable cpu

`keelstone rule COMMAND --help` says more about a command.
)";

constexpr const char* kSetHelpEnd =
    R"(The rule is fixed: it is judged from the next run on and never learned again. A history
that is stored stays; one of whole numbers becomes one of real numbers where the variable
holds those now, and so does the parameter. A rule, a parameter or a history that does not
suit the variable's values is refused.

Types: strEqual and strRegex take {"ruleParam":"TEXT"}; strNoEqual and strEnum
{"ruleParam":["TEXT",…]}; intEqual, intLEQ and intGEQ {"ruleParam":NUMBER}; intNoEqual and
intEnum {"ruleParam":[NUMBER,…]}; intRange {"minValue":NUMBER,"maxValue":NUMBER};
intConstant and intIncrease {} or {"ruleParam":NUMBER}; tableMd5 {"hashCmp":"DIGEST"}.

Examples:
  keelstone rule set --device r1 --source system --variable cpu --type intLEQ \
      --parameter '{"ruleParam":80}'
  keelstone rule set --device r1 --interface eth0 --source links --variable state \
      --type strEqual --parameter '{"ruleParam":"up"}'

Exit codes: 0 done; 2 usage, or the root or a database cannot be used; 3 not written
)";

constexpr const char* kUnsetHelpEnd =
    R"(Removes a rule, learned or fixed, and the history of the variable: it is learned anew.

Examples:
  keelstone rule unset --device r1 --source system --variable cpu --dry-run
  keelstone rule unset --device r1 --source system --variable cpu

Exit codes: 0 done, also when there was none; 2 usage, or the root or a database cannot be
used; 3 not removed
)";

StoredKey StoredKeyOf(const RuleOptions& options) {
  return {options.device, options.interface, options.source, options.param, options.variable};
}

JsonValue KeyOf(const RuleOptions& options) {
  JsonValue key(JsonType::Object);
  key["device"] = options.device;
  key["interface"] = options.interface;
  key["source"] = options.source;
  key["param"] = options.param;
  key["variable"] = options.variable;
  return key;
}

std::string NameOf(const RuleOptions& options) {
  std::string name;
  for (const std::string* part :
       {&options.device, &options.interface, &options.source, &options.param, &options.variable}) {
    if (!part->empty()) name.append(name.empty() ? "" : " ").append(*part);
  }
  return name;
}

/// Reads type and parameter; why they are no rule, or nothing.
std::string ReadRule(const RuleOptions& options, const RuleKind*& kind, JsonValue& parameter) {
  kind = FindRuleKind(options.type);
  if (kind == nullptr) {
    return "--type: there is no rule type \"" + options.type + "\"; there is " + RuleTypeNames();
  }
  JsonParseError error;
  const JsonReadOptions reading{.allowComments = false, .requireUtf8 = true};
  if (!JsonReader::Parse(options.parameter, parameter, &error, reading)) {
    return "--parameter: not JSON: " + error.message + " at byte " + std::to_string(error.offset);
  }
  const std::string fault = ParameterFault(*kind, parameter);
  return fault.empty() ? fault : "--parameter of " + options.type + ": " + fault;
}

/// The rule as it is stored, its parameter and the history made those of the variable's
/// values; why they cannot be, or nothing.
std::string MakeRule(const RuleOptions& options, const RuleKind& kind, JsonValue& parameter,
                     PrescribedRule& rule, bool& isDefined) {
  rule.type = kind.type;
  KSDataManagerSql manager;
  manager.Init(options.common.domain);
  RuleDefinitionData defined;
  isDefined = manager.GetRuleDefinitionData(defined, options.variable, options.source, "",
                                            kVariableSourceParser) < 0;
  KnownVariable variable;
  if (isDefined) variable.defined = TypeOfCode(defined.variableType);
  StoredObject stored;
  rule.key = StoredKeyOf(options);
  std::string fault = ReadStoredObject(options.common.domain, rule.key, stored);
  if (!fault.empty()) return fault;
  variable.history = std::move(stored.history);
  bool isConverted = false;
  fault = variable.Fit(kind, parameter, isConverted);
  if (!fault.empty()) return fault;
  rule.parameter = parameter.toString();
  if (isConverted) rule.history = std::move(variable.history);
  return {};
}

CLI::App& AddCommand(CLI::App& group, const char* name, const char* what, RuleOptions& options) {
  CLI::App& command = *group.add_subcommand(name, what);
  AddCommonOptions(command, options.common);
  AddFormatOption(command, options.format);
  command.add_option("--device", options.device, "Device")->type_name("NAME")->required();
  command.add_option("--interface", options.interface, "Interface (default: none)")
      ->type_name("VALUE");
  command.add_option("--source", options.source, "Source: the parser")
      ->type_name("NAME")
      ->required();
  command.add_option("--param", options.param, "The parser's parameter (default: none)")
      ->type_name("TEXT");
  command.add_option("--variable", options.variable, "Variable")->type_name("NAME")->required();
  return command;
}

}  // namespace

void AddRuleCommand(CLI::App& program, RuleOptions& options) {
  CLI::App& group = *program.add_subcommand("rule", "Prescribe or drop the rule of one variable");
  group.require_subcommand(1);
  group.footer(kGroupHelpEnd);
  CLI::App& set = AddCommand(group, "set", "Prescribe a fixed rule", options);
  set.add_option("--type", options.type, "Kind of the rule, such as intLEQ")
      ->type_name("TYPE")
      ->required();
  set.add_option("--parameter", options.parameter, "Its parameter")->type_name("JSON")->required();
  set.footer(kSetHelpEnd);
  CLI::App& unset = AddCommand(group, "unset", "Remove a rule and its history", options);
  unset.add_flag("--dry-run", options.dryRun, "Only say what would be removed");
  unset.footer(kUnsetHelpEnd);
}

int RunRuleSet(const RuleOptions& options) {
  PrescribedRule rule;
  JsonValue parameter;
  bool isDefined = false;
  const RuleKind* kind = nullptr;
  std::string fault = ReadRule(options, kind, parameter);
  if (fault.empty()) fault = DomainFault(options.common.domain, true);
  if (fault.empty()) fault = MakeRule(options, *kind, parameter, rule, isDefined);
  if (!fault.empty()) return Fail(kSetName, fault, kExitUnusable);
  fault = PrescribeRule(options.common.domain, rule);
  if (!fault.empty()) return Fail(kSetName, fault, kExitBrokenOff);
  if (!isDefined) {
    Fail(kSetName,
         "note: no variable \"" + options.variable + "\" of source \"" + options.source +
             "\" is defined yet; `keelstone evaluate --enroll` does so",
         kExitDone);
  }
  CommandOutput output(options.format);
  JsonValue answer = KeyOf(options);
  answer["type"] = options.type;
  answer["parameter"] = parameter;
  if (output.isText()) {
    output.Line("fixed: " + NameOf(options) + " " + options.type + " " + parameter.toString());
  } else {
    output.Json(answer);
  }
  return output.End(kSetName);
}

int RunRuleUnset(const RuleOptions& options) {
  const StoredKey key = StoredKeyOf(options);
  StoredObject stored;
  std::string fault = DomainFault(options.common.domain, !options.dryRun);
  if (fault.empty()) fault = ReadStoredObject(options.common.domain, key, stored);
  if (!fault.empty()) return Fail(kUnsetName, fault, kExitUnusable);
  const bool hasRule = stored.hasRule;
  const bool hasHistory = stored.hasHistory;
  if (!options.dryRun && (hasRule || hasHistory)) {
    fault = RemoveRule(options.common.domain, key);
    if (!fault.empty()) return Fail(kUnsetName, fault, kExitBrokenOff);
  }
  CommandOutput output(options.format);
  if (output.isText()) {
    const std::string what = hasRule && hasHistory ? "rule and history"
                             : hasRule             ? "rule, without a history"
                             : hasHistory          ? "history, without a rule"
                                                   : "nothing was there";
    output.Line((options.dryRun ? "would remove: " : "removed: ") + what + ": " + NameOf(options));
  } else {
    JsonValue answer = KeyOf(options);
    answer["rule"] = hasRule;
    answer["history"] = hasHistory;
    answer["dryRun"] = options.dryRun;
    output.Json(answer);
  }
  return output.End(kUnsetName);
}

}  // namespace keelstone::host
