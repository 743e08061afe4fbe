#include "program/commands/merge_command.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "keelstone/data_sync_manager.h"
#include "keelstone/database_files.h"
#include "keelstone/domain_files.h"
#include "program/command_output.h"
#include "program/exit_codes.h"

namespace keelstone::host {

namespace {

constexpr const char* kName = "merge";

using Merge = bool (FSKSDataSyncManager::*)(const std::string&, const std::string&,
                                            const std::string&, bool);

struct MergeType {
  const char* name;  // on the command line
  int dbType;
  Merge merge;
};

constexpr std::array<MergeType, 5> kTypes = {{
    {"global-setting", kDbGlobalSetting, &FSKSDataSyncManager::MergeGlobalSetting},
    {"variable-rule", kDbVariableRule, &FSKSDataSyncManager::MergeVariableRule},
    {"object-rule", kDbObjectRule, &FSKSDataSyncManager::MergeObjectRule},
    {"block-setting", kDbBlockSetting, &FSKSDataSyncManager::MergeBlockSetting},
    {"interface-type", kDbInterfaceType, &FSKSDataSyncManager::MergeInterfaceType},
}};

constexpr const char* kHelpEnd =
    R"(Object rules are merged row by row: a delivered rule takes the place of the domain's own of
the same object and variable, the other rules and all histories stay. Databases of the other
types take the place of the domain's own as a whole. The delivered file is only read. An
evaluation that is under way sees what was merged at its next start.

Examples:
  keelstone merge --type variable-rule /mnt/hub/KSVariableRule.db
  keelstone merge --type object-rule --domain berlin /mnt/hub/KSObjectRule.db
  keelstone merge --type block-setting --format json ./KSBlockSetting.db

Exit codes: 0 done; 2 usage, or the domain or the delivered file cannot be used, nothing
changed; 3 the domain's database or the output could not be written
)";

const MergeType& TypeNamed(std::string_view name) {
  for (const MergeType& type : kTypes) {
    if (name == type.name) return type;
  }
  return kTypes.front();  // the command line admits no other names
}

/// Why the domain cannot take the database; empty when it can. A settings database that is
/// damaged can be replaced.
std::string Fault(const std::string& domainId, const MergeType& type) {
  using Condition = DomainCheck::Condition;
  const DomainCheck check = CheckDomain(domainId, true);
  const std::string name = "domain \"" + domainId + "\"";
  if (check.condition == Condition::kAbsent) {
    return name + " has no databases: " + check.detail +
           "; `keelstone init` with this domain makes them";
  }
  if (check.condition == Condition::kUnusable && type.dbType == kDbObjectRule) {
    return name + " cannot be used: " + check.detail;
  }
  return {};
}

/// Why the delivered file cannot be taken over; empty when it can. Counts its rows.
std::string SourceFault(const std::string& from, const std::string& to, const MergeType& type,
                        std::int64_t& rows) {
  std::error_code failure;
  const auto status = std::filesystem::status(from, failure);
  if (!std::filesystem::is_regular_file(status)) {
    return failure ? failure.message() : std::string("is no file");
  }
  if (std::filesystem::equivalent(from, to, failure)) return "is the domain's own database";
  return FSKSDataSyncManager::DeliveryFault(from, to, type.dbType, &rows);
}

int Print(const MergeOptions& options, const std::string& to, std::int64_t rows) {
  CommandOutput output(options.format);
  if (output.isText()) {
    output.Line("merged " + std::to_string(rows) + (rows == 1 ? " row of " : " rows of ") +
                options.from + " into " + to);
  } else {
    JsonValue answer(JsonType::Object);
    answer["domain"] = options.common.domain;
    answer["type"] = options.type;
    answer["from"] = options.from;
    answer["to"] = to;
    answer["rows"] = rows;
    output.Json(answer);
  }
  const int code = output.End(kName);
  return code == kExitDone ? code : Fail(kName, "the rows were merged all the same", code);
}

}  // namespace

void AddMergeCommand(CLI::App& program, MergeOptions& options) {
  CLI::App& command = *program.add_subcommand(
      kName, "Take a delivered database over into the domain's own of the same type");
  AddCommonOptions(command, options.common);
  std::vector<std::string> names;
  for (const MergeType& type : kTypes) names.emplace_back(type.name);
  command.add_option("--type", options.type, "What the delivered database holds")
      ->required()
      ->check(CLI::IsMember(names));
  command.add_option("FROM", options.from, "The delivered database")->required();
  AddFormatOption(command, options.format);
  command.footer(kHelpEnd);
}

int RunMerge(const MergeOptions& options) {
  const MergeType& type = TypeNamed(options.type);
  const std::string& domainId = options.common.domain;
  if (const std::string fault = Fault(domainId, type); !fault.empty()) {
    return Fail(kName, fault, kExitUnusable);
  }
  const std::string to = DomainDatabase(type.dbType, domainId);
  std::int64_t rows = 0;
  if (const std::string fault = SourceFault(options.from, to, type, rows); !fault.empty()) {
    return Fail(kName, options.from + ": " + fault, kExitUnusable);
  }
  // Nothing of the domain is loaded in this process, so there is nothing to read anew.
  if (!(FSKSDataSyncManager::Instance()->*type.merge)(options.from, to, domainId, false)) {
    return Fail(kName,
                "taking " + options.from + " over into " + to + " failed: " + FirstFailureText(),
                kExitBrokenOff);
  }
  return Print(options, to, rows);
}

}  // namespace keelstone::host
