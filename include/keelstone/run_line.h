#ifndef KEELSTONE_RUN_LINE_H
#define KEELSTONE_RUN_LINE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/raw_json.h"
#include "keelstone/rule_records.h"

namespace keelstone {

/// One parser run on one device, as a line of the input gives it.
struct KEELSTONE_EXPORT ParsedRun {
  std::int64_t time = 0;  // seconds since the epoch
  std::string domain;
  std::string device;
  std::string source;
  std::string param;
  std::string nodeId;
  std::string nodePathSchema;
  std::string structureId;
  bool onDemand = false;
  std::vector<VarInfo> variables;  // without those that were not read
  // The places of those that were not read, in the order of the input.
  std::vector<std::size_t> unread;

  /// Where in the input's "variables" the value stands, counted from 0.
  std::size_t PlaceOf(std::size_t variable) const noexcept;
};

/// Makes `key` a text that no two units (domain, device, source, param) share, whatever
/// their names hold.
KEELSTONE_EXPORT void AssignUnitKey(std::string& key, const ParsedRun& run);

/// Reads lines of the input. Unknown members are passed over; of two with one name the
/// last counts. One thread.
class KEELSTONE_EXPORT RunLineReader {
 public:
  /// Runs that name no domain belong to `defaultDomain`.
  explicit RunLineReader(std::string defaultDomain);
  ~RunLineReader();

  /// Reads one line; false when it is no run, and fault() then says in which field of
  /// which variable (counted from 0) what is wrong, in printable characters. A run that was used
  /// before lends its memory: its texts take the places of the old ones.
  [[nodiscard]] bool Read(std::string_view line, ParsedRun& run);
  /// Reads variables alone, an array of them or a single one, and appends them to the run.
  /// On failure the run is as it was.
  [[nodiscard]] bool ReadVariables(std::string_view json, ParsedRun& run);
  /// The type code of a variable for which none is given; 0 for what is no type of a value.
  static std::int32_t DefaultTypeCode(EnumKSDataType dataType) noexcept;
  const std::string& fault() const noexcept { return fault_; }

 private:
  using Value = RawJson::Value;
  struct RunFields;
  struct VariableFields;
  struct TypeName;
  struct Guesses;

  bool Fail(std::string_view field, std::string_view what);
  bool ReadRun(const RunFields& fields, ParsedRun& run);
  bool ParseJson(std::string_view text);
  bool ReadVariables(const Value& list, ParsedRun& run);
  bool ReadVariable(const Value& object, ParsedRun& run);
  bool ReadValue(const VariableFields& fields, VarInfo& variable);
  bool ReadScalar(const Value& value, const TypeName& type, VarInfo& variable);
  bool ReadNumber(std::string_view text, const TypeName& type, VarInfo& variable);
  bool ReadTableValue(const VariableFields& fields, VarInfo& variable);
  bool CheckTableFields(const VariableFields& fields);
  bool ChooseType(const VariableFields& fields, const TypeName*& type);

  bool Require(std::string_view field, const Value& value);
  bool TakeString(std::string_view field, const Value& value, std::string& out);
  bool TakeBool(std::string_view field, const Value& value, bool& out);
  bool TakeInteger(std::string_view field, const Value& value, std::int64_t& out);
  bool TakeInteger(std::string_view field, const Value& value, std::int32_t& out);

  std::string defaultDomain_;
  RawJson json_;
  const std::unique_ptr<Guesses> guesses_;
  std::size_t count_ = 0;  // variables of the run that were read
  std::string fault_;
  std::optional<std::size_t> variable_;  // the one that is read; a fault names it
};

}  // namespace keelstone

#endif  // KEELSTONE_RUN_LINE_H
