#ifndef KEELSTONE_PROGRAM_EVALUATE_RESULT_OUTPUT_H
#define KEELSTONE_PROGRAM_EVALUATE_RESULT_OUTPUT_H

#include <string>
#include <vector>

#include "keelstone/run_evaluation.h"
#include "program/evaluate/alert_book.h"
#include "program/evaluate/run.h"

namespace keelstone::host {

enum class OutputFormat { kJson, kText };

/// Counts what a run came to.
RunTally TallyOf(const RunOutcome& outcome);

/// One line of JSON for the run; nothing for a run without results and rejections unless
/// `all` is set. `episodes`, when given, adds the explanations and the episodes that were
/// cleared; a run that cleared one has a line then.
std::string JsonOutput(const ParsedRun& run, const RunOutcome& outcome, bool all,
                       const std::vector<EpisodeChange>* episodes = nullptr);

/// One line for each episode that was opened or cleared, each golden value and learned rule,
/// in characters that a terminal can be shown.
std::string TextOutput(const ParsedRun& run, const RunOutcome& outcome,
                       const std::vector<EpisodeChange>& episodes);

/// The line of text for an episode that is open at the end.
std::string OpenEpisodeLine(const ObjectKey& object, const Episode& episode);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_EVALUATE_RESULT_OUTPUT_H
