#ifndef KEELSTONE_PROGRAM_EVALUATE_EVALUATE_COMMAND_H
#define KEELSTONE_PROGRAM_EVALUATE_EVALUATE_COMMAND_H

#include <string>
#include <vector>

#include "keelstone/intake_stages.h"
#include "program/command_options.h"
#include "program/evaluate/line_reader.h"

namespace keelstone::host {

/// A quarter of the machine's memory, at least 64 MiB.
std::size_t DefaultMemory();

struct EvaluateOptions {
  CommonOptions common;
  std::vector<std::string> files;  // "-" is standard input; none: standard input
  std::string format;              // "json" or "text"; empty: by what standard output is
  unsigned threads = 0;            // 0: the cores
  std::size_t maxLine = LineReader::kMaxLine;
  std::size_t memory = DefaultMemory();  // bytes for units that stay in memory; 0: none stay
  bool explain = false;
  bool all = false;
  bool enroll = false;
  bool onDemand = false;
  bool failOnAlert = false;
  bool strict = false;
  bool quiet = false;
  IntakeStages stages;
};

void AddEvaluateCommand(CLI::App& program, EvaluateOptions& options);

/// Evaluates the inputs; the exit code.
int RunEvaluate(const EvaluateOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_EVALUATE_COMMAND_H
