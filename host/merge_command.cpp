#include "host/merge_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/console.h"
#include "host/exit_codes.h"
#include "platform/cppsqlite3.h"
#include "platform/filesystem.h"
#include "platform/text_escape.h"
#include "storage/domain_files.h"
#include "storage/fs_ksdatasyncmanager.h"

namespace keelstone::host {

namespace {

using Merge = bool (FSKSDataSyncManager::*)(const std::string&, const std::string&,
                                            const std::string&, bool);

struct MergeType {
  const char* name;  // on the command line
  const char* table;
  int dbType;
  Merge merge;
};

constexpr std::array<MergeType, 5> kTypes = {{
    {"global-setting", "KSGlobalSetting", kDbGlobalSetting,
     &FSKSDataSyncManager::MergeGlobalSetting},
    {"variable-rule", "KSVariableRule", kDbVariableRule, &FSKSDataSyncManager::MergeVariableRule},
    {"object-rule", "KSObjectRule", kDbObjectRule, &FSKSDataSyncManager::MergeObjectRule},
    {"block-setting", "KSBlockSetting", kDbBlockSetting, &FSKSDataSyncManager::MergeBlockSetting},
    {"interface-type", "KSInterfaceType", kDbInterfaceType,
     &FSKSDataSyncManager::MergeInterfaceType},
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
changed; 3 the domain's database could not be written
)";

const MergeType& TypeNamed(std::string_view name) {
  for (const MergeType& type : kTypes) {
    if (name == type.name) return type;
  }
  return kTypes.front();  // the command line admits no other names
}

int Fail(const std::string& why, ExitCode code) {
  Console(false).Say("keelstone merge: " + why);
  return code;
}

/// Why the domain cannot take the database; empty when it can. A settings database that is
/// damaged can be replaced.
std::string DomainFault(const std::string& domainId, const MergeType& type) {
  using Condition = DomainCheck::Condition;
  const DomainCheck check = CheckDomain(domainId, true);
  const std::string name = "domain \"" + Printable(domainId) + "\"";
  if (check.condition == Condition::kAbsent) {
    return name + " has no databases: " + Printable(check.detail) +
           "; `keelstone init` with this domain makes them";
  }
  if (check.condition == Condition::kUnusable && type.dbType == kDbObjectRule) {
    return name + " cannot be used: " + Printable(check.detail);
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
  std::string fault = FSKSDataSyncManager::DeliveryFault(from, to, type.dbType);
  if (!fault.empty()) return fault;
  try {
    CppSQLite3DB db;
    db.open(from, CppSQLite3DB::Mode::kReadOnly);
    CppSQLite3Statement count =
        db.compileStatement(std::string("select count(*) from ") + type.table);
    rows = count.execQuery().getInt64Field(0);
  } catch (const CppSQLite3Exception& error) {
    return error.errorMessage();
  }
  return {};
}

std::string ResultText(const MergeOptions& options, const std::string& to, std::int64_t rows) {
  return "merged " + std::to_string(rows) + (rows == 1 ? " row of " : " rows of ") +
         Printable(options.from) + " into " + Printable(to) + "\n";
}

std::string ResultJson(const MergeOptions& options, const std::string& to, std::int64_t rows) {
  std::string out = "{\"domain\":";
  AppendJsonString(out, options.common.domain);
  out += ",\"type\":\"" + options.type + "\",\"from\":";
  AppendJsonString(out, options.from);
  out += ",\"to\":";
  AppendJsonString(out, to);
  return out + ",\"rows\":" + std::to_string(rows) + "}\n";
}

}  // namespace

void AddMergeCommand(CLI::App& program, MergeOptions& options) {
  CLI::App& command = *program.add_subcommand(
      "merge", "Take a delivered database over into the domain's own of the same type");
  AddCommonOptions(command, options.common);
  std::vector<std::string> names;
  for (const MergeType& type : kTypes) names.emplace_back(type.name);
  command.add_option("--type", options.type, "What the delivered database holds")
      ->required()
      ->check(CLI::IsMember(names));
  command.add_option("FROM", options.from, "The delivered database")->required();
  command
      .add_option("--format", options.format,
                  "How to say what was done (default: text on a terminal, else json)")
      ->check(CLI::IsMember({"json", "text"}));
  command.footer(kHelpEnd);
}

int RunMerge(const MergeOptions& options) {
  const MergeType& type = TypeNamed(options.type);
  const std::string& domainId = options.common.domain;
  if (const std::string fault = DomainFault(domainId, type); !fault.empty()) {
    return Fail(fault, kExitUnusable);
  }
  const std::string to = DomainDatabase(type.dbType, domainId);
  std::int64_t rows = 0;
  if (const std::string fault = SourceFault(options.from, to, type, rows); !fault.empty()) {
    return Fail(Printable(options.from) + ": " + Printable(fault), kExitUnusable);
  }
  // Nothing of the domain is loaded in this process, so there is nothing to read anew.
  if (!(FSKSDataSyncManager::Instance()->*type.merge)(options.from, to, domainId, false)) {
    return Fail("taking " + Printable(options.from) + " over into " + Printable(to) + " failed; " +
                    Printable(VXFileSystem::GetSystemRootFolder()) + "log/keelstone.log says why",
                kExitBrokenOff);
  }
  const bool isText =
      options.format.empty() ? ::isatty(STDOUT_FILENO) == 1 : options.format == "text";
  std::cout << (isText ? ResultText(options, to, rows) : ResultJson(options, to, rows));
  return std::cout.flush() ? kExitDone : kExitBrokenOff;
}

}  // namespace keelstone::host
