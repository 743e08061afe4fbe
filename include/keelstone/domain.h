#ifndef KEELSTONE_DOMAIN_H
#define KEELSTONE_DOMAIN_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "keelstone/domain_fault.h"
#include "keelstone/export.h"
#include "keelstone/findings.h"
#include "keelstone/intake_stages.h"
#include "keelstone/run_line.h"
#include "keelstone/run_values.h"

namespace keelstone {

class DomainSession;

/// How a domain is opened.
struct DomainOptions {
  /// The folder below which configuration, data and log lie, one for the whole process; "" for
  /// VXFileSystem's: KEELSTONE_ROOT, else ./keelstone-root.
  std::string root{};
  std::string id{"default"};
  bool create = true;      // make what is missing of its databases
  std::string settings{};  // for what is made: a JSON object, laid over the default settings
  bool enroll = true;  // define variables as they come; else those without a definition are refused
  IntakeStages stages{};
  std::optional<std::size_t> memory{};  // as Domain::SetMemory
};

/// How one run is evaluated.
struct RunOptions {
  bool store = true;             // keep what is learned at once, not with Findings::Store
  bool explain = true;           // alerts are explained
  std::optional<bool> enroll{};  // in place of the domain's, like what follows
  std::optional<IntakeStages> stages{};
};

/// A domain: what is learned of one set of devices. Opens it, evaluates runs, writes what was
/// learned.
///
///   keelstone::Domain domain;
///   if (const auto fault = domain.Open({.root = "/var/lib/keelstone"})) return Complain(fault);
///   const auto found = domain.Evaluate({.device = "r1", .source = "bgp", .time = now},
///                                      {{"prefixes", "10.0.12.2", 12}});
///   for (const auto& alert : found.explanations()) std::cout << alert.Sentence() << '\n';
///   if (const auto fault = domain.Close()) return Complain(fault);
///
/// Any thread may evaluate, any number at once. The runs of one unit (device, source and
/// parameter) are evaluated one after the other, in the order of the calls, each on what those
/// before it have stored; runs of different units go side by side. A thread that would wait for
/// a run that it has evaluated and not stored, itself or by way of others, is answered with
/// kState. A run counts as that of the thread that has evaluated it.
///
/// What is learned stays in memory and is written by a flush: Flush, Close, and without a host's
/// doing every "CacheTime" seconds. What could not be written stays in memory and is tried again;
/// calls that flush say so. All domains of a process, also several objects of one, share one
/// memory (SetMemory) and one root; a domain stays below its root as long as the process lives.
///
/// No call throws. fork() waits until no thread is at work in a call. In the child an object of
/// the parent answers kForked; the child opens its own.
class KEELSTONE_EXPORT Domain {
 public:
  Domain() noexcept;  // closed
  Domain(Domain&&) noexcept;
  Domain& operator=(Domain&&) noexcept;
  /// Closes. What cannot be written is logged and counted (GetFailedWriteCount): a host that
  /// must know calls Close.
  ~Domain();

  /// Opens the domain; kState when this object has one. One thread, like moves.
  DomainFault Open(const DomainOptions& options = {}) noexcept;
  /// The domain's id; "" while none is open.
  const std::string& id() const noexcept;

  /// Whether runs define variables, and what is done to values before they are judged, from the
  /// next run on.
  void SetEnroll(bool on) noexcept;
  void SetStages(const IntakeStages& stages) noexcept;
  bool enrolls() const noexcept;
  IntakeStages stages() const noexcept;

  /// Defines a variable of a source, for all devices; one that is defined stays as it is.
  /// `typeCode`: the host's own, which never changes; 0: the usual one of the type.
  DomainFault Define(const std::string& source, const std::string& name, EnumKSDataType type,
                     std::int32_t typeCode = 0) noexcept;

  /// Evaluates one run. kInput: a value is none, nothing is evaluated.
  [[nodiscard]] Findings Evaluate(const RunSubject& subject, std::span<const RunValue> values,
                                  const RunOptions& how = {}) noexcept;
  [[nodiscard]] Findings Evaluate(const RunSubject& subject, std::initializer_list<RunValue> values,
                                  const RunOptions& how = {}) noexcept;
  /// A line of the input of `keelstone evaluate`. kInput: it is no run, or of another domain.
  [[nodiscard]] Findings EvaluateLine(std::string_view line, const RunOptions& how = {}) noexcept;
  /// A run that was read already; kInput where it is another domain's.
  [[nodiscard]] Findings Evaluate(const ParsedRun& run, const RunOptions& how = {}) noexcept;

  /// Returns when all that was stored is on disk. kWrite: a write failed meanwhile, of this or
  /// another domain, or rows were lost since this object's last flush.
  DomainFault Flush() noexcept;
  /// Reads settings, variable definitions and block periods anew, after another process has
  /// changed them, and forgets what was judged.
  DomainFault Reload() noexcept;
  /// Flushes and closes; a second time it does nothing. After kWrite the domain is still open.
  /// Runs that are under way on other threads come to their end and are written. The last domain
  /// of a process that is closed gives the memory of the units back.
  DomainFault Close() noexcept;
  /// Closes without writing: what is unwritten is still written within "CacheTime" seconds.
  void Release() noexcept;

  /// How many bytes (about) the units that stay in memory may take, of all domains of the
  /// process; 256 MiB at first. Those that were not used for longest leave, written first. 0:
  /// none stays, every run reads its unit and what the run before it has left is written first.
  static void SetMemory(std::size_t bytes) noexcept;

 private:
  template <class Read>
  [[nodiscard]] Findings EvaluateRead(const Read& read, const RunOptions& how) noexcept;

  std::shared_ptr<DomainSession> session_;  // closed ones stay until the next Open
};

}  // namespace keelstone

#endif  // KEELSTONE_DOMAIN_H
