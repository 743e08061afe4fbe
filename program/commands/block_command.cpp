#include "program/commands/block_command.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <set>

#include "keelstone/block_periods.h"
#include "keelstone/clock.h"
#include "keelstone/json_value.h"
#include "program/command_output.h"
#include "program/exit_codes.h"
#include "program/time_text.h"

namespace keelstone::host {

namespace {

constexpr const char* kListName = "block list";
constexpr const char* kAddName = "block add";
constexpr const char* kRemoveName = "block remove";

constexpr const char* kGroupHelpEnd = R"(Examples:
  keelstone block add --device r1 --from now --to "2026-11-21 10:30 +01:00"
  keelstone block list
  keelstone block remove 3

`keelstone block COMMAND --help` says more about a command.
)";

constexpr const char* kListHelpEnd = R"(Examples:
  keelstone block list
  keelstone block list --format json | jq 'select(.active) | .devices[]'

Exit codes: 0 done; 2 usage, or the root or a database cannot be used; 3 the output could
not be written
)";

constexpr const char* kAddHelpEnd =
    R"(Nothing is learned of a device while one of its periods lasts; both ends belong to it.
Times are seconds since the epoch, local times with their zone, or now. A running
evaluation sees the period when it is started next.

Examples:
  keelstone block add --device r1 r2 --from "2026-11-21 08:00 +01:00" --to "2026-11-21 10:30 +01:00"
  keelstone block add --device r3 --from 2026-11-21T08:00:00Z --to 2026-11-21T09:00:00Z
  keelstone block add --device r4 --from now --to "2026-11-21 10:30 +01:00"
  keelstone block add --device r5 --from 1700000000 --to 1700003600

Exit codes: 0 done; 2 usage, or the root or a database cannot be used; 3 not written
)";

constexpr const char* kRemoveHelpEnd =
    R"(Removes all of the periods, or, when there is none with one of the ids, nothing.

Examples:
  keelstone block remove 3 --dry-run
  keelstone block remove 3 4

Exit codes: 0 done; 2 usage, no such period, or the root or a database cannot be used; 3
not removed
)";

std::string Joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all.append(all.empty() ? "" : ", ").append(text);
  return all;
}

bool IsActive(const BlockPeriod& period) {
  const std::int64_t now = Clock::NowSeconds();
  return period.from <= now && now <= period.to;
}

JsonValue JsonOf(const BlockPeriod& period) {
  JsonValue object(JsonType::Object);
  object["id"] = period.id;
  JsonValue& devices = object["devices"] = JsonValue(JsonType::Array);
  for (const std::string& device : period.devices) devices.append(device);
  object["from"] = period.from;
  object["to"] = period.to;
  object["active"] = IsActive(period);
  return object;
}

void Print(const std::vector<BlockPeriod>& periods, CommandOutput& output) {
  std::vector<std::vector<std::string>> rows;
  if (!periods.empty()) rows.push_back({"ID", "FROM", "TO", "NOW", "DEVICES"});
  for (const BlockPeriod& period : periods) {
    if (!output.isText()) output.Json(JsonOf(period));
    rows.push_back({std::to_string(period.id), UtcTimeText(period.from), UtcTimeText(period.to),
                    IsActive(period) ? "active" : "-", Joined(period.devices)});
  }
  if (output.isText()) output.Rows(rows);
}

/// Reads the options of `add`; what is wrong with them, or nothing.
std::string ReadNewPeriod(const BlockOptions& options, BlockPeriod& period) {
  std::string fault;
  const std::optional<std::int64_t> from = ParseTime(options.from, fault);
  if (!from) return "--from: \"" + options.from + "\" " + fault;
  const std::optional<std::int64_t> to = ParseTime(options.to, fault);
  if (!to) return "--to: \"" + options.to + "\" " + fault;
  if (*from > *to) return "--to lies before --from";
  period.from = *from;
  period.to = *to;
  const std::set<std::string> devices(options.devices.begin(), options.devices.end());
  period.devices.assign(devices.begin(), devices.end());
  if (devices.contains("")) return "--device: a device has a name";
  return {};
}

CLI::App& AddCommand(CLI::App& group, const char* name, const char* what, BlockOptions& options) {
  CLI::App& command = *group.add_subcommand(name, what);
  AddCommonOptions(command, options.common);
  AddFormatOption(command, options.format);
  return command;
}

}  // namespace

void AddBlockCommand(CLI::App& program, BlockOptions& options) {
  CLI::App& group =
      *program.add_subcommand("block", "Periods in which nothing is learned of devices");
  group.require_subcommand(1);
  group.footer(kGroupHelpEnd);
  AddCommand(group, "list", "List the periods", options).footer(kListHelpEnd);
  CLI::App& add = AddCommand(group, "add", "Add a period", options);
  add.add_option("--device", options.devices, "Devices")->type_name("NAME…")->required();
  add.add_option("--from", options.from, "Start")->type_name("TIME")->required();
  add.add_option("--to", options.to, "End")->type_name("TIME")->required();
  add.footer(kAddHelpEnd);
  CLI::App& remove = AddCommand(group, "remove", "Remove periods", options);
  remove.add_option("ID", options.ids, "Ids as `block list` shows them")->required();
  remove.add_flag("--dry-run", options.dryRun, "Only say what would be removed");
  remove.footer(kRemoveHelpEnd);
}

int RunBlockList(const BlockOptions& options) {
  const std::string fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kListName, fault, kExitUnusable);
  std::vector<BlockPeriod> periods;
  if (const std::string why = ReadBlockPeriods(options.common.domain, periods); !why.empty()) {
    return Fail(kListName, why, kExitUnusable);
  }
  CommandOutput output(options.format);
  Print(periods, output);
  return output.End(kListName);
}

int RunBlockAdd(const BlockOptions& options) {
  BlockPeriod period;
  std::string fault = ReadNewPeriod(options, period);
  if (fault.empty()) fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kAddName, fault, kExitUnusable);
  fault = AddBlockPeriod(options.common.domain, period);
  if (!fault.empty()) return Fail(kAddName, fault, kExitBrokenOff);
  CommandOutput output(options.format);
  Print({period}, output);
  return output.End(kAddName);
}

int RunBlockRemove(const BlockOptions& options) {
  const std::string fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kRemoveName, fault, kExitUnusable);
  std::vector<BlockPeriod> periods;
  const EditOutcome outcome = RemoveBlockPeriods(
      options.common.domain, {options.ids.begin(), options.ids.end()}, options.dryRun, periods);
  if (outcome.kind != EditOutcome::Kind::kDone) return Fail(kRemoveName, outcome);
  CommandOutput output(options.format);
  if (output.isText()) output.Line(options.dryRun ? "would remove:" : "removed:");
  Print(periods, output);
  return output.End(kRemoveName);
}

}  // namespace keelstone::host
