#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_VARIABLE_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_VARIABLE_H

#include <cstddef>
#include <string>

#include "keelstone/object_listing.h"
#include "program/report/report_findings.h"

namespace keelstone::host {

/// Bytes of table contents that a page may still take up.
struct TableBudget {
  std::size_t bytes = 48U << 20U;
};

/// A variable as a row of the page's table: what sorting, filtering and searching need.
/// `findings` may be null. JSON that is safe in a page.
std::string ReportRow(const ReportKey& key, const StoredObject& stored,
                      const VariableFindings* findings);

/// The rest of it, which the page reads when the variable is looked at: history, tables,
/// rules, golden values, alerts.
std::string ReportDetail(const StoredObject& stored, const VariableFindings* findings,
                         TableBudget& budget);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_VARIABLE_H
