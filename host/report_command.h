#ifndef KEELSTONE_HOST_REPORT_COMMAND_H
#define KEELSTONE_HOST_REPORT_COMMAND_H

#include <string>
#include <vector>

#include "host/command_options.h"

namespace keelstone::host {

struct ReportOptions {
  CommonOptions common;
  bool allDomains = true;  // unless --domain is given
  std::string output;
  std::vector<std::string> results;
};

void AddReportCommand(CLI::App& program, ReportOptions& options);

/// Writes the page; the exit code.
int RunReport(const ReportOptions& options);

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_REPORT_COMMAND_H
