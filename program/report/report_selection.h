#ifndef KEELSTONE_PROGRAM_REPORT_REPORT_SELECTION_H
#define KEELSTONE_PROGRAM_REPORT_REPORT_SELECTION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "keelstone/object_listing.h"
#include "program/report/report_findings.h"
#include "program/stop_request.h"

namespace keelstone::host {

/// How urgent a variable is; the page's script knows the same states in the same order.
enum class ReportState { kOpen, kCleared, kFits, kCollecting, kGone };
inline constexpr std::size_t kReportStates = 5;

/// How much there is of what a page tells of, whether it shows it or not.
struct ReportTotals {
  std::uint64_t devices = 0;
  std::uint64_t variables = 0;
  std::uint64_t withRule = 0;
  std::uint64_t prescribed = 0;
  std::uint64_t episodes = 0;
  std::array<std::uint64_t, kReportStates> states{};  // variables in each state
};

/// What a stored variable of a domain is found by in a report.
ReportKey KeyOf(const std::string& domain, const StoredObject& variable);

/// The variables of a domain without their histories, many at a time.
ObjectListing ListVariables(const std::string& domain);

/// Chooses the most important variables for a page: by their state, those with alerts by
/// the time of the newest and by how many there are, the others as they are stored. Memory
/// is needed for as many as are chosen, and for the devices. One thread.
class ReportSelection {
 public:
  explicit ReportSelection(std::size_t limit) : limit_(limit) {}

  /// Once; what is stored is listed and matched with what was found. Ends early when a stop
  /// is requested. The text says why what is stored cannot be read.
  [[nodiscard]] std::string Choose(const std::vector<std::string>& domains,
                                   const ReportFindings& findings, const StopRequest& stop);

  const ReportFindings::Chosen& chosen() const noexcept { return chosen_; }
  const ReportTotals& totals() const noexcept { return totals_; }

 private:
  using FoundEntry = ReportFindings::FoundVariables::value_type;

  void ChooseAlerting(const ReportFindings& findings);
  void TakeStored(const std::string& domain, const StoredObject& stored,
                  const ReportFindings& findings);
  void ChooseRest(const ReportFindings& findings);
  bool IsFull() const noexcept { return chosen_.size() >= limit_; }
  std::uint64_t& Count(ReportState state) noexcept {
    return totals_.states[static_cast<std::size_t>(state)];
  }

  const std::size_t limit_;
  ReportFindings::Chosen chosen_;
  ReportTotals totals_;
  std::vector<Fingerprint> collecting_;  // in the order in which they are stored
  ReportFindings::Chosen stored_;        // of the variables found without an alert
  std::unordered_set<std::uint64_t> devices_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_REPORT_REPORT_SELECTION_H
