#ifndef KEELSTONE_BINDINGS_C_RUN_HANDLE_H
#define KEELSTONE_BINDINGS_C_RUN_HANDLE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bindings/c/domain_handle.h"
#include "bindings/c/handle_table.h"
#include "keelstone/findings.h"
#include "keelstone/run_line.h"
#include "keelstone/run_values.h"

namespace keelstone::c {

/// The item; Failure beyond their number.
template <class Item>
const Item& At(const std::vector<Item>& items, std::size_t index) {
  if (index < items.size()) return items[index];
  throw Failure(KS_ERROR_ARGUMENT, "index " + std::to_string(index) + " is beyond the " +
                                       std::to_string(items.size()) + " items that there are");
}

/// An open ks_run: first it takes values, then it is evaluated, then read and stored.
/// Everything but `busy` belongs to the thread that has entered it (RunEntry).
class RunHandle {
 public:
  static constexpr std::uintptr_t kHandleDigit = 2;
  static constexpr const char* kHandleName = "the run";

  /// `run` without variables, or with some.
  RunHandle(ParsedRun run, std::shared_ptr<DomainHandle> domain);

  // Each is a Failure when the run has been evaluated.
  void Add(RunValue value);
  void AddJson(std::string_view json);
  void Explain();
  void Evaluate();

  // Each is a Failure when it has not.
  void Store();
  void Discard();
  const Findings& Found() const;
  /// The refused value; a Failure beyond their number.
  ks_refusal Refusal(std::size_t index) const;
  const std::string& ResultJson();
  /// A Failure when explanations were not asked for.
  const std::string& ExplanationsJson();
  /// The alert's rule as texts that stay where they are.
  struct AlertTexts {
    std::int32_t ruleType = -1;
    std::string parameter;
    std::string value;
    std::string expected;
    bool hasValue = false;
    std::string parserParam;
  };
  const AlertTexts& TextsOfAlert(std::size_t index);

 private:
  friend class RunEntry;
  void RequireNotEvaluated() const;

  std::atomic<bool> busy_{false};
  ParsedRun run_;
  const std::shared_ptr<DomainHandle> domain_;
  RunOptions how_;
  RunLineReader reader_;
  bool isEvaluated_ = false;
  Findings found_;
  std::string json_;
  std::string explanationsJson_;
  std::vector<AlertTexts> alertTexts_;  // as many as there are alerts, once they are asked for
};

using RunTable = HandleTable<ks_run, RunHandle>;

/// A call's stay inside a run: Failure for a handle that is not open, and while another
/// call is inside.
class RunEntry {
 public:
  explicit RunEntry(const ks_run* handle);
  ~RunEntry() { run_->busy_.store(false, std::memory_order_release); }
  RunEntry(const RunEntry&) = delete;
  RunEntry& operator=(const RunEntry&) = delete;

  RunHandle* operator->() const noexcept { return run_.get(); }
  RunHandle& operator*() const noexcept { return *run_; }

 private:
  std::shared_ptr<RunHandle> run_;
};

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_RUN_HANDLE_H
