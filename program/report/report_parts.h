#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_PARTS_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_PARTS_H

#include <string_view>

namespace keelstone::host {

/// The files of program/report/page/ as the build takes them in. The template holds the marks
/// {{policy}}, {{style}}, {{alerts}}, {{data}} and {{script}} in this order.
extern const std::string_view kReportTemplate;
extern const std::string_view kReportStyle;
extern const std::string_view kReportScript;

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_PARTS_H
