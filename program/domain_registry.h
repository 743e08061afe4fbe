#ifndef KEELSTONE_PROGRAM_DOMAIN_REGISTRY_H
#define KEELSTONE_PROGRAM_DOMAIN_REGISTRY_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "keelstone/domain_snapshot.h"
#include "keelstone/run_line.h"
#include "program/console.h"

namespace keelstone::host {

/// The domains that the input names, and the enrollment of what they do not define yet.
/// One thread at a time, in the order of the input; the domains live as long as the registry and
/// are read by every thread.
class DomainRegistry {
 public:
  /// With `enroll`, a domain without databases is made and NoteVariables takes effect.
  /// `writes`: whether the evaluation needs to write the domain's databases.
  DomainRegistry(Console& console, bool enroll, bool writes);

  /// The domain. One whose databases cannot be used is not `usable`, and TakeFaults says
  /// why. What else a person should know of the domain is said once.
  const DomainSnapshot* Find(const std::string& id);

  /// Takes down which variables of the run have no definition yet. The first type code
  /// of a variable that is taken down holds.
  void NoteVariables(const ParsedRun& run);
  /// Defines what was taken down; false when that cannot be written for all domains. Those
  /// are not usable from then on: find the domains of runs that are yet to come again.
  [[nodiscard]] bool DefineNoted();

  /// The domains that have been found so far.
  std::vector<std::string> Ids() const;

  bool HasFaults() const noexcept { return !faults_.empty(); }
  /// Why domains have become unusable since the last call.
  std::vector<std::string> TakeFaults() { return std::exchange(faults_, {}); }

 private:
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
      return std::hash<std::string_view>{}(text);
    }
  };
  using NameSet = std::unordered_set<std::string, TextHash, std::equal_to<>>;
  template <class Mapped>
  using TextMap = std::unordered_map<std::string, Mapped, TextHash, std::equal_to<>>;

  struct Entry {
    DomainSnapshot domain;
    std::unique_ptr<const DomainSnapshot> refused;  // takes its place from when it is not usable
    TextMap<NameSet> defined;                       // source → names known to be defined
    std::vector<RuleDefinitionData> noted;          // to be defined, in input order
  };

  bool PrepareFiles(const std::string& id, bool& isComplete);
  bool NoteFault(const std::string& id, const std::string& why);
  static void Refuse(Entry& entry);

  Console& console_;
  const bool enroll_;
  const bool writes_;
  TextMap<std::unique_ptr<Entry>> entries_;
  std::vector<Entry*> withNoted_;
  std::vector<std::string> faults_;
};

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_DOMAIN_REGISTRY_H
