#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_COMMAND_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_COMMAND_H

#include <cstddef>
#include <string>
#include <vector>

#include "program/command_options.h"
#include "program/evaluate/line_reader.h"

namespace keelstone::host {

struct ReportOptions {
  CommonOptions common;
  bool allDomains = true;  // unless --domain is given
  std::string output;
  std::vector<std::string> results;
  std::size_t maxVariables = 10000;
  std::size_t maxLine = LineReader::kMaxLine;
};

void AddReportCommand(CLI::App& program, ReportOptions& options);

/// Writes the page; the exit code.
int RunReport(const ReportOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_COMMAND_H
