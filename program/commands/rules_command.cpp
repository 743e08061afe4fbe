#include "program/commands/rules_command.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "keelstone/json_reader.h"
#include "keelstone/object_listing.h"
#include "keelstone/rule_global_setting.h"
#include "program/command_output.h"
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

/// How a rule's history stands.
struct HistoryState {
  std::size_t points = 0;
  std::optional<std::int64_t> newest;  // seconds since the epoch
};

/// Counts the points of a history text and finds the newest; what is no history has none.
HistoryState StateOf(const std::string& text) {
  JsonValue history;
  if (text.empty() || !JsonReader::Parse(text, history)) return {};
  const JsonValue* const list = history.find("dataList");
  if (list == nullptr || !list->isArray() || list->empty()) return {};
  HistoryState state{list->size(), std::nullopt};
  const JsonValue& constant = *list;
  const JsonValue* const time = constant[list->size() - 1].find("liveTime");
  if (time != nullptr && time->isInt64()) state.newest = time->asInt64();
  return state;
}

JsonValue JsonOf(const StoredObject& rule) {
  JsonValue object(JsonType::Object);
  constexpr std::array<const char*, 5> kNames = {"device", "interface", "source", "param",
                                                 "variable"};
  for (std::size_t i = 0; i < kNames.size(); ++i) object[kNames[i]] = rule.key[i];
  object["type"] = RuleTypeName(static_cast<EnumRuleType>(rule.ruleType));
  JsonValue parameter;
  const bool isDocument = JsonReader::Parse(rule.parameter, parameter) && parameter.isObject();
  object["parameter"] = isDocument ? parameter : JsonValue(rule.parameter);
  object["learned"] = rule.isLearned();
  const HistoryState history = StateOf(rule.history);
  object["points"] = static_cast<std::uint64_t>(history.points);
  object["newest"] = history.newest ? JsonValue(*history.newest) : JsonValue();
  return object;
}

std::vector<std::string> CellsOf(const StoredObject& rule) {
  std::vector<std::string> cells(rule.key.begin(), rule.key.end());
  const char* const type = RuleTypeName(static_cast<EnumRuleType>(rule.ruleType));
  const HistoryState history = StateOf(rule.history);
  cells.insert(cells.end(),
               {type, rule.isLearned() ? "learned" : "fixed", std::to_string(history.points),
                history.newest ? UtcTimeText(*history.newest) : "", rule.parameter});
  for (std::string& cell : cells) {
    if (cell.empty()) cell = "-";
  }
  return cells;
}

void Print(const std::vector<StoredObject>& page, bool isFirst, CommandOutput& output) {
  if (!output.isText()) {
    for (const StoredObject& rule : page) output.Json(JsonOf(rule));
    return;
  }
  std::vector<std::vector<std::string>> rows;
  if (isFirst && !page.empty()) {
    rows.push_back({"DEVICE", "INTERFACE", "SOURCE", "PARAM", "VARIABLE", "TYPE", "ORIGIN",
                    "POINTS", "NEWEST", "PARAMETER"});
  }
  for (const StoredObject& rule : page) rows.push_back(CellsOf(rule));
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
  ObjectListing listing(options.common.domain,
                        {.filter = {options.device, options.interface, options.source, std::nullopt,
                                    options.variable},
                         .onlyRules = true,
                         .withHistories = true});
  std::vector<StoredObject> page;
  while (!output.hasFailed()) {
    if (const std::string why = listing.NextPage(page); !why.empty()) {
      return output.BreakOff(kName, why, isFirst);
    }
    if (page.empty()) break;
    Print(page, isFirst, output);
    isFirst = false;
  }
  return output.End(kName);
}

}  // namespace keelstone::host
