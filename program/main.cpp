#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <new>

#include "keelstone/memory_faults.h"
#include "program/commands/block_command.h"
#include "program/commands/clean_command.h"
#include "program/commands/init_command.h"
#include "program/commands/merge_command.h"
#include "program/commands/rule_command.h"
#include "program/commands/rules_command.h"
#include "program/commands/settings_command.h"
#include "program/commands/show_command.h"
#include "program/evaluate/evaluate_command.h"
#include "program/evaluate/output_writer.h"
#include "program/exit_codes.h"
#include "program/report/fingerprint.h"
#include "program/report/report_command.h"

namespace keelstone::host {
namespace {

constexpr const char* kExamples = R"(Examples:
  keelstone init --root ./demo
  keelstone evaluate --root ./demo --enroll runs.jsonl
  keelstone rules --root ./demo --device r1

`keelstone COMMAND --help` says more about a command.
)";

int RunProgram(int argc, char** argv) {
  CLI::App program(
      "Learns what is normal for every value of a network device and says at once "
      "when a value breaks it.",
      "keelstone");
  program.set_version_flag("--version", "keelstone " KEELSTONE_VERSION);
  program.require_subcommand(1);
  program.footer(kExamples);
  InitOptions init;
  AddInitCommand(program, init);
  EvaluateOptions evaluate;
  AddEvaluateCommand(program, evaluate);
  RulesOptions rules;
  AddRulesCommand(program, rules);
  ShowOptions show;
  AddShowCommand(program, show);
  RuleOptions rule;
  AddRuleCommand(program, rule);
  BlockOptions block;
  AddBlockCommand(program, block);
  SettingsOptions settings;
  AddSettingsCommand(program, settings);
  MergeOptions merge;
  AddMergeCommand(program, merge);
  CleanOptions clean;
  AddCleanCommand(program, clean);
  ReportOptions report;
  AddReportCommand(program, report);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? kExitDone : kExitUnusable;
  }
  if (program.got_subcommand("init")) {
    Apply(init.common);
    return RunInit(init);
  }
  if (program.got_subcommand("rules")) {
    Apply(rules.common);
    return RunRules(rules);
  }
  if (program.got_subcommand("show")) {
    Apply(show.common);
    return RunShow(show);
  }
  if (const CLI::App* group = program.get_subcommand("rule"); group->parsed()) {
    Apply(rule.common);
    return group->got_subcommand("set") ? RunRuleSet(rule) : RunRuleUnset(rule);
  }
  if (const CLI::App* group = program.get_subcommand("block"); group->parsed()) {
    Apply(block.common);
    if (group->got_subcommand("list")) return RunBlockList(block);
    return group->got_subcommand("add") ? RunBlockAdd(block) : RunBlockRemove(block);
  }
  if (const CLI::App* group = program.get_subcommand("settings"); group->parsed()) {
    Apply(settings.common);
    return group->got_subcommand("get") ? RunSettingsGet(settings) : RunSettingsSet(settings);
  }
  if (program.got_subcommand("merge")) {
    Apply(merge.common);
    return RunMerge(merge);
  }
  if (program.got_subcommand("clean")) {
    Apply(clean.common);
    return RunClean(clean);
  }
  if (program.got_subcommand("report")) {
    Apply(report.common);
    return RunReport(report);
  }
  Apply(evaluate.common);
  return RunEvaluate(evaluate);
}

}  // namespace
}  // namespace keelstone::host

int main(int argc, char** argv) {
  keelstone::host::PrepareDigests();
  // However well it is dealt with where it happens: no exit code hides a want of memory.
  std::set_new_handler([] {
    keelstone::CountMemoryFault();
    throw std::bad_alloc();
  });
  keelstone::host::GuardStandardDescriptors();
  try {
    return keelstone::host::RunProgram(argc, argv);
  } catch (const std::bad_alloc&) {
    std::cerr << "keelstone: out of memory\n";
    return keelstone::host::kExitBrokenOff;
  } catch (const std::exception& error) {
    std::cerr << "keelstone: " << error.what() << '\n';
    return keelstone::host::kExitBrokenOff;
  }
}
