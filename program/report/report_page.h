#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_PAGE_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_PAGE_H

#include <cstdint>
#include <string>
#include <vector>

#include "program/output_file.h"
#include "program/report/report_findings.h"
#include "program/report/report_selection.h"
#include "program/report/report_variable.h"

namespace keelstone::host {

/// What the page as a whole tells of itself.
struct ReportHead {
  std::int64_t created = 0;  // seconds since the epoch
  std::vector<std::string> domains;
  bool hasResults = false;
  std::uint64_t skippedLines = 0;
  ReportTotals totals;
};

/// Writes the page from its beginning to its end: only what the page's table needs of each
/// variable stays in memory. One thread.
class ReportPage {
 public:
  /// Writes all that comes before the variables. What is handed over must outlive the page.
  ReportPage(OutputFile& output, const ReportHead& head, const ReportFindings& findings);

  void Add(const ReportKey& key, const StoredObject& stored, const VariableFindings* findings);
  /// Writes the rest.
  void End();

  std::uint64_t variables() const noexcept { return variables_; }

 private:
  std::string_view TemplateUpTo(std::string_view mark);
  void WriteAlertList();
  void WriteChunk();
  std::string Summary() const;

  OutputFile& output_;
  const ReportHead& head_;
  const ReportFindings& findings_;
  std::string_view template_;  // what is not yet written
  TableBudget budget_;
  std::string rows_;
  std::string chunk_;
  std::uint64_t variables_ = 0;
  std::uint64_t inChunk_ = 0;
  std::string chunkStarts_;  // first variable of each, separated by commas
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_PAGE_H
