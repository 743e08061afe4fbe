#include "program/commands/rules_command.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "keelstone/domain_files.h"
#include "keelstone/json_reader.h"
#include "keelstone/rule_global_setting.h"
#include "program/command_output.h"
#include "program/commands/rule_listing.h"
#include "program/exit_codes.h"
#include "program/time_text.h"

namespace keelstone::host {

namespace {

constexpr const char* kName = "rules";

constexpr const char* kHelpEnd =
    R"(A rule is shown with its key, its kind and parameter, whether it was learned or is fixed,
and how many values its history holds, up to when. A variable that has no rule yet is not
listed.

Examples:
  keelstone rules --device r1 --format text
  keelstone rules --source bgp | jq -r 'select(.learned | not) | .variable'

Exit codes: 0 done; 2 usage, or the root or a database cannot be used; 3 broken off, or
the output could not be written
)";

JsonValue JsonOf(const ListedRule& rule) {
  JsonValue object(JsonType::Object);
  constexpr std::array<const char*, 5> kNames = {"device", "interface", "source", "param",
                                                 "variable"};
  for (std::size_t i = 0; i < kNames.size(); ++i) object[kNames[i]] = rule.key[i];
  object["type"] = RuleTypeName(static_cast<EnumRuleType>(rule.type));
  JsonValue parameter;
  const bool isDocument = JsonReader::Parse(rule.parameter, parameter) && parameter.isObject();
  object["parameter"] = isDocument ? parameter : JsonValue(rule.parameter);
  object["learned"] = rule.learned;
  object["points"] = static_cast<std::uint64_t>(rule.points);
  object["newest"] = rule.newest ? JsonValue(*rule.newest) : JsonValue();
  return object;
}

std::vector<std::string> CellsOf(const ListedRule& rule) {
  std::vector<std::string> cells(rule.key.begin(), rule.key.end());
  const char* const type = RuleTypeName(static_cast<EnumRuleType>(rule.type));
  cells.insert(cells.end(), {type, rule.learned ? "learned" : "fixed", std::to_string(rule.points),
                             rule.newest ? UtcTimeText(*rule.newest) : "", rule.parameter});
  for (std::string& cell : cells) {
    if (cell.empty()) cell = "-";
  }
  return cells;
}

void Print(const std::vector<ListedRule>& page, bool isFirst, CommandOutput& output) {
  if (!output.isText()) {
    for (const ListedRule& rule : page) output.Json(JsonOf(rule));
    return;
  }
  std::vector<std::vector<std::string>> rows;
  if (isFirst && !page.empty()) {
    rows.push_back({"DEVICE", "INTERFACE", "SOURCE", "PARAM", "VARIABLE", "TYPE", "ORIGIN",
                    "POINTS", "NEWEST", "PARAMETER"});
  }
  for (const ListedRule& rule : page) rows.push_back(CellsOf(rule));
  output.Rows(rows);
}

}  // namespace

void AddRulesCommand(CLI::App& program, RulesOptions& options) {
  CLI::App& command = *program.add_subcommand(kName, "List rules and how they stand");
  AddCommonOptions(command, options.common);
  AddFormatOption(command, options.format);
  command.add_option("--device", options.device, "Only this device")->type_name("NAME");
  command.add_option("--interface", options.interface, "Only this interface")->type_name("VALUE");
  command.add_option("--source", options.source, "Only this source")->type_name("NAME");
  command.add_option("--variable", options.variable, "Only this variable")->type_name("NAME");
  command.footer(kHelpEnd);
}

int RunRules(const RulesOptions& options) {
  const std::string fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  CommandOutput output(options.format);
  bool isFirst = true;
  try {
    RuleListing listing(options.common.domain, {options.device, options.interface, options.source,
                                                std::nullopt, options.variable});
    while (!output.hasFailed()) {
      const std::vector<ListedRule> page = listing.NextPage();
      if (page.empty()) break;
      Print(page, isFirst, output);
      isFirst = false;
    }
  } catch (const CppSQLite3Exception& error) {
    const int written = output.End(kName);
    return Fail(kName, FaultOf(error),
                isFirst && written == kExitDone ? kExitUnusable : kExitBrokenOff);
  }
  return output.End(kName);
}

}  // namespace keelstone::host
