#include "program/report/report_selection.h"

#include <algorithm>
#include <tuple>

namespace keelstone::host {

namespace {

constexpr int kPageVariables = 1000;

/// Whether one variable with alerts comes before another.
bool IsBefore(const FoundVariable& a, const FoundVariable& b) {
  return std::tuple(b.isOpen, b.lastAlert, b.alerts, a.order) <
         std::tuple(a.isOpen, a.lastAlert, a.alerts, b.order);
}

}  // namespace

ReportKey KeyOf(const std::string& domain, const StoredObject& variable) {
  ReportKey key = {domain};
  std::copy(variable.key.begin(), variable.key.end(), key.begin() + 1);
  return key;
}

ObjectListing ListVariables(const std::string& domain) {
  return ObjectListing(domain, {.filter = {}, .pageSize = kPageVariables});
}

std::string ReportSelection::Choose(const std::vector<std::string>& domains,
                                    const ReportFindings& findings, const StopRequest& stop) {
  ChooseAlerting(findings);
  std::vector<StoredObject> page;
  for (const std::string& domain : domains) {
    ObjectListing listing = ListVariables(domain);
    do {
      std::string fault = listing.NextPage(page);
      if (!fault.empty() || stop.Requested()) return fault;
      for (const StoredObject& stored : page) TakeStored(domain, stored, findings);
    } while (!page.empty());
  }
  ChooseRest(findings);
  totals_.devices = devices_.size();
  return {};
}

void ReportSelection::ChooseAlerting(const ReportFindings& findings) {
  std::vector<const FoundEntry*> alerting;
  for (const FoundEntry& entry : findings.found()) {
    const FoundVariable& variable = entry.second;
    if (variable.alerts == 0) continue;
    alerting.push_back(&entry);
    ++totals_.variables;
    totals_.episodes += variable.episodes;
    ++Count(variable.isOpen ? ReportState::kOpen : ReportState::kCleared);
    devices_.insert(variable.device);
  }
  if (alerting.size() > limit_) {
    const auto end = alerting.begin() + static_cast<std::ptrdiff_t>(limit_);
    std::nth_element(
        alerting.begin(), end, alerting.end(),
        [](const FoundEntry* a, const FoundEntry* b) { return IsBefore(a->second, b->second); });
    alerting.erase(end, alerting.end());
  }
  for (const FoundEntry* entry : alerting) chosen_.insert(entry->first);
}

void ReportSelection::TakeStored(const std::string& domain, const StoredObject& stored,
                                 const ReportFindings& findings) {
  devices_.insert(DeviceHash(domain, stored.key.front()));
  totals_.withRule += stored.hasRule ? 1U : 0U;
  totals_.prescribed += stored.hasRule && !stored.isLearned() ? 1U : 0U;
  const Fingerprint print = FingerprintOf(KeyOf(domain, stored));
  const auto found = findings.found().find(print);
  if (found != findings.found().end()) {
    if (found->second.alerts > 0) return;
    stored_.insert(print);
  }
  ++totals_.variables;
  ++Count(stored.hasRule ? ReportState::kFits : ReportState::kCollecting);
  if (IsFull()) return;
  if (stored.hasRule) {
    chosen_.insert(print);
  } else if (collecting_.size() < limit_) {
    collecting_.push_back(print);
  }
}

/// Those that have no rule yet, and those that are found only, in the order of the results.
void ReportSelection::ChooseRest(const ReportFindings& findings) {
  for (const Fingerprint& print : collecting_) {
    if (IsFull()) break;
    chosen_.insert(print);
  }
  std::vector<const FoundEntry*> gone;
  for (const FoundEntry& entry : findings.found()) {
    if (entry.second.alerts > 0 || stored_.contains(entry.first)) continue;
    ++totals_.variables;
    ++Count(ReportState::kGone);
    devices_.insert(entry.second.device);
    gone.push_back(&entry);
  }
  std::sort(gone.begin(), gone.end(), [](const FoundEntry* a, const FoundEntry* b) {
    return a->second.order < b->second.order;
  });
  for (const FoundEntry* entry : gone) {
    if (IsFull()) break;
    chosen_.insert(entry->first);
  }
}

}  // namespace keelstone::host
