#ifndef KEELSTONE_HOST_REPORT_LISTING_H
#define KEELSTONE_HOST_REPORT_LISTING_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "platform/cppsqlite3.h"

namespace keelstone::host {

/// One variable as a domain has it stored: its rule, its history, or both.
struct StoredVariable {
  std::array<std::string, 5> key;  // device, interface, source, param, variable
  bool hasRule = false;
  bool isLearned = false;
  int type = -1;  // EnumRuleType
  std::string parameter;
  std::string history;  // history text; empty when there is none
};

/// The variables of a domain in order of their keys, a page at a time. Between two pages no
/// lock is held; what another process changes meanwhile may or may not be seen. Database
/// errors throw CppSQLite3Exception. One thread.
class ReportListing {
 public:
  explicit ReportListing(const std::string& domainId);

  /// The next variables; none at the end.
  std::vector<StoredVariable> NextPage();

 private:
  CppSQLite3DB db_;
  std::optional<std::array<std::string, 5>> last_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_REPORT_LISTING_H
