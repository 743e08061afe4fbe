#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_LISTING_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_LISTING_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "keelstone/cppsqlite3.h"
#include "program/report/report_findings.h"

namespace keelstone::host {

/// One variable as a domain has it stored: its rule, its history, or both.
struct StoredVariable {
  using Key = std::array<std::string, 5>;  // device, interface, source, param, variable

  Key key;
  bool hasRule = false;
  bool isLearned = false;
  int type = -1;  // EnumRuleType
  std::string parameter;
  std::string history;  // history text; empty when there is none, or it was not read yet
};

/// What a stored variable of a domain is found by in a report.
ReportKey KeyOf(const std::string& domain, const StoredVariable& variable);

/// The variables of a domain in order of their keys, a page at a time. Between two pages no
/// lock is held; what another process changes meanwhile may or may not be seen. Database
/// errors throw CppSQLite3Exception. One thread.
class ReportListing {
 public:
  explicit ReportListing(const std::string& domainId);

  /// The next variables, without their histories; none at the end.
  std::vector<StoredVariable> NextPage();
  /// Reads the history of one.
  void ReadHistory(StoredVariable& variable);

 private:
  CppSQLite3DB db_;
  std::optional<StoredVariable::Key> last_;
  std::optional<CppSQLite3Statement> history_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_LISTING_H
