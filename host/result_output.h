#ifndef KEELSTONE_HOST_RESULT_OUTPUT_H
#define KEELSTONE_HOST_RESULT_OUTPUT_H

#include <string>

#include "host/run.h"
#include "runs/run_evaluation.h"

namespace keelstone::host {

enum class OutputFormat { kJson, kText };

/// Counts what a run came to.
RunTally TallyOf(const RunOutcome& outcome);

/// One line of JSON for the run; nothing for a run without results and rejections unless
/// `all` is set.
std::string JsonOutput(const ParsedRun& run, const RunOutcome& outcome, bool all);

/// One line for each alert, golden value and learned rule, in characters that a terminal
/// can be shown.
std::string TextOutput(const ParsedRun& run, const RunOutcome& outcome);

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_RESULT_OUTPUT_H
