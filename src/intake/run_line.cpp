#include "keelstone/run_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>

#include "intake/json_fields.h"
#include "intake/plain_run.h"
#include "intake/table_value.h"
#include "intake/used_run.h"
#include "keelstone/text_escape.h"

namespace keelstone {

namespace {

using Kind = RawJson::Kind;

constexpr std::size_t kShownValueBytes = 60;

bool FitsInt64(std::string_view integer) noexcept {
  constexpr std::size_t kSurelyFits = 18;  // digits
  if (integer.size() <= kSurelyFits) return true;
  std::int64_t value = 0;
  return std::from_chars(integer.data(), integer.data() + integer.size(), value).ec == std::errc();
}

/// Reads an integer of T's width; what is wrong with the value, or nothing.
template <class T>
std::string ReadInteger(const RawJson::Value& value, T& out) {
  if (!value) return {};
  if (!value.Is(RawJson::Kind::kNumber) || !IsIntegerText(value.text())) {
    return "must be an integer";
  }
  const std::string_view text = value.text();
  const auto read = std::from_chars(text.data(), text.data() + text.size(), out);
  if (read.ec == std::errc()) return {};
  return "is out of range (" + std::to_string(8 * sizeof(T)) + " bits)";
}

}  // namespace

struct RunLineReader::RunFields {
  Value time, domain, device, source, param, nodeId, nodePathSchema, structureId, onDemand,
      variables;
};

struct RunLineReader::VariableFields {
  Value name, interface, interfacePath, value, type, typeCode, keys, sort, digest;
};

/// What the lines before have shown of those to come.
struct RunLineReader::Guesses {
  static constexpr std::array<JsonFields<RunFields, 10>::Name, 10> kRun = {{
      {"time", &RunFields::time},
      {"domain", &RunFields::domain},
      {"device", &RunFields::device},
      {"source", &RunFields::source},
      {"param", &RunFields::param},
      {"nodeId", &RunFields::nodeId},
      {"nodePathSchema", &RunFields::nodePathSchema},
      {"structureId", &RunFields::structureId},
      {"onDemand", &RunFields::onDemand},
      {"variables", &RunFields::variables},
  }};
  static constexpr std::array<JsonFields<VariableFields, 9>::Name, 9> kVariable = {{
      {"name", &VariableFields::name},
      {"interface", &VariableFields::interface},
      {"interfacePath", &VariableFields::interfacePath},
      {"value", &VariableFields::value},
      {"type", &VariableFields::type},
      {"typeCode", &VariableFields::typeCode},
      {"keys", &VariableFields::keys},
      {"sort", &VariableFields::sort},
      {"digest", &VariableFields::digest},
  }};

  JsonFields<RunFields, 10> run{kRun};
  JsonFields<VariableFields, 9> variable{kVariable};
  PlainRun plain;
};

/// A "type" of the input with what it means to the engine.
struct RunLineReader::TypeName {
  std::string_view name;
  EnumKSDataType dataType;
  std::int32_t typeCode;  // the parser's own code when none is given

  static const std::array<TypeName, 5> kAll;
  static const TypeName* Of(EnumKSDataType dataType) {
    return std::find_if(kAll.begin(), kAll.end(),
                        [&](const TypeName& type) { return type.dataType == dataType; });
  }
};

const std::array<RunLineReader::TypeName, 5> RunLineReader::TypeName::kAll = {{
    {"int64", KSDataInt64, 1},
    {"float", KSDataFloat, 25},
    {"double", KSDataDouble, 2},
    {"string", KSDataString, 3},
    {"table", KSDataTable, 11},
}};

void AssignUnitKey(std::string& key, const ParsedRun& run) {
  key.clear();
  for (const std::string* part : {&run.domain, &run.device, &run.source, &run.param}) {
    key.append(std::to_string(part->size())).append(":").append(*part);
  }
}

std::size_t ParsedRun::PlaceOf(std::size_t variable) const noexcept {
  std::size_t place = variable;
  for (const std::size_t passed : unread) {
    if (passed > place) break;
    ++place;
  }
  return place;
}

std::int32_t RunLineReader::DefaultTypeCode(EnumKSDataType dataType) noexcept {
  const TypeName* const type = TypeName::Of(dataType);
  return type != TypeName::kAll.end() ? type->typeCode : 0;
}

RunLineReader::RunLineReader(std::string defaultDomain)
    : defaultDomain_(std::move(defaultDomain)), guesses_(std::make_unique<Guesses>()) {}

RunLineReader::~RunLineReader() = default;

bool RunLineReader::Fail(std::string_view field, std::string_view what) {
  fault_.clear();
  if (variable_) fault_.append("variables[").append(std::to_string(*variable_)).append("]");
  if (variable_ && !field.empty()) fault_ += '.';
  fault_.append(field).append(": ").append(what);
  return false;
}

bool RunLineReader::Require(std::string_view field, const Value& value) {
  return value || Fail(field, "is missing");
}

bool RunLineReader::TakeString(std::string_view field, const Value& value, std::string& out) {
  if (!value) return true;
  if (!value.Is(Kind::kString)) return Fail(field, "must be a string");
  out = value.text();
  return true;
}

bool RunLineReader::TakeBool(std::string_view field, const Value& value, bool& out) {
  if (!value) return true;
  if (!value.IsBool()) return Fail(field, "must be true or false");
  out = value.Is(Kind::kTrue);
  return true;
}

bool RunLineReader::TakeInteger(std::string_view field, const Value& value, std::int64_t& out) {
  const std::string fault = ReadInteger(value, out);
  return fault.empty() || Fail(field, fault);
}

bool RunLineReader::TakeInteger(std::string_view field, const Value& value, std::int32_t& out) {
  const std::string fault = ReadInteger(value, out);
  return fault.empty() || Fail(field, fault);
}

bool RunLineReader::ParseJson(std::string_view text) {
  variable_.reset();
  JsonParseError error;
  if (json_.Parse(text, error)) return true;
  fault_ = "not JSON: " + Printable(error.message) + " at byte " + std::to_string(error.offset + 1);
  return false;
}

bool RunLineReader::Read(std::string_view line, ParsedRun& run) {
  if (guesses_->plain.Read(line, defaultDomain_, run)) return true;
  if (!ParseJson(line)) return false;
  if (!json_.root().Is(Kind::kObject)) {
    fault_ = "a run must be a JSON object";
    return false;
  }
  Renew(run);
  count_ = 0;
  const bool isRead = ReadRun(guesses_->run.Take(json_.root()), run);
  run.variables.resize(count_);
  return isRead;
}

bool RunLineReader::ReadRun(const RunFields& fields, ParsedRun& run) {
  run.domain = defaultDomain_;
  return Require("time", fields.time) && TakeInteger("time", fields.time, run.time) &&
         TakeString("domain", fields.domain, run.domain) && Require("device", fields.device) &&
         TakeString("device", fields.device, run.device) && Require("source", fields.source) &&
         TakeString("source", fields.source, run.source) &&
         TakeString("param", fields.param, run.param) &&
         TakeString("nodeId", fields.nodeId, run.nodeId) &&
         TakeString("nodePathSchema", fields.nodePathSchema, run.nodePathSchema) &&
         TakeString("structureId", fields.structureId, run.structureId) &&
         TakeBool("onDemand", fields.onDemand, run.onDemand) &&
         Require("variables", fields.variables) && ReadVariables(fields.variables, run);
}

bool RunLineReader::ReadVariables(std::string_view json, ParsedRun& run) {
  if (!ParseJson(json)) return false;
  ParsedRun read;
  count_ = 0;
  const bool isRead = json_.root().Is(Kind::kObject) ? ReadVariable(json_.root(), read)
                                                     : ReadVariables(json_.root(), read);
  if (!isRead) return false;
  read.variables.resize(count_);
  const std::size_t before = run.variables.size() + run.unread.size();
  for (const std::size_t place : read.unread) run.unread.push_back(before + place);
  run.variables.insert(run.variables.end(), std::make_move_iterator(read.variables.begin()),
                       std::make_move_iterator(read.variables.end()));
  return true;
}

bool RunLineReader::ReadVariables(const Value& list, ParsedRun& run) {
  if (!list.Is(Kind::kArray)) return Fail("variables", "must be an array");
  run.variables.reserve(list.size());
  std::size_t index = 0;
  for (const Value variable : list) {
    variable_ = index++;
    if (!variable.Is(Kind::kObject)) return Fail("", "must be an object");
    if (!ReadVariable(variable, run)) return false;
  }
  return true;
}

bool RunLineReader::ReadVariable(const Value& object, ParsedRun& run) {
  const VariableFields fields = guesses_->variable.Take(object);
  VarInfo& variable = PlaceFor(run, count_);
  const TypeName* type = nullptr;
  if (!Require("name", fields.name) || !TakeString("name", fields.name, variable.variableName) ||
      !TakeString("interface", fields.interface, variable.interfaceValue) ||
      !TakeString("interfacePath", fields.interfacePath, variable.interfacePath) ||
      !Require("value", fields.value) || !CheckTableFields(fields) || !ChooseType(fields, type)) {
    return false;
  }
  if (type != nullptr) variable.variableType = type->typeCode;
  if (!TakeInteger("typeCode", fields.typeCode, variable.variableType)) return false;
  if (fields.value.Is(Kind::kNull)) {  // not read: it is no part of the run
    run.unread.push_back(count_ + run.unread.size());
    return true;
  }
  variable.dataType = type->dataType;
  const bool done = type->dataType == KSDataTable ? ReadTableValue(fields, variable)
                                                  : ReadScalar(fields.value, *type, variable);
  if (done) ++count_;
  return done;
}

/// The type that is named, else the one that follows from the value; none for null.
bool RunLineReader::ChooseType(const VariableFields& fields, const TypeName*& type) {
  if (fields.type) {
    if (!fields.type.Is(Kind::kString)) return Fail("type", "must be a string");
    type = std::find_if(TypeName::kAll.begin(), TypeName::kAll.end(),
                        [&](const TypeName& known) { return known.name == fields.type.text(); });
    if (type != TypeName::kAll.end()) return true;
    return Fail("type", '"' + Printable(fields.type.text(), kShownValueBytes) +
                            "\" is none of int64, float, double, string, table");
  }
  switch (fields.value.kind()) {
    case Kind::kNull:
      type = nullptr;
      break;
    case Kind::kNumber: {
      const std::string_view text = fields.value.text();
      const bool whole = IsIntegerText(text) && FitsInt64(text);
      type = TypeName::Of(whole ? KSDataInt64 : KSDataDouble);
      break;
    }
    case Kind::kFalse:
    case Kind::kTrue:
    case Kind::kString:
      type = TypeName::Of(KSDataString);
      break;
    case Kind::kArray:
    case Kind::kObject:
      type = TypeName::Of(KSDataTable);
      break;
  }
  return true;
}

bool RunLineReader::ReadScalar(const Value& value, const TypeName& type, VarInfo& variable) {
  const bool numeric = type.dataType != KSDataString;
  switch (value.kind()) {
    case Kind::kNumber:
      return ReadNumber(value.text(), type, variable);
    case Kind::kFalse:
      variable.valueText = numeric ? "0" : "false";
      return true;
    case Kind::kTrue:
      variable.valueText = numeric ? "1" : "true";
      return true;
    case Kind::kString:
      if (!numeric) {
        variable.valueText = value.text();
        return true;
      }
      if (IsNumberText(value.text())) return ReadNumber(value.text(), type, variable);
      return Fail("value", '"' + Printable(value.text(), kShownValueBytes) + "\" is no number");
    default:
      return Fail("value", "a table is no " + std::string(type.name));
  }
}

bool RunLineReader::ReadNumber(std::string_view text, const TypeName& type, VarInfo& variable) {
  if (type.dataType == KSDataInt64 && IsIntegerText(text) && !FitsInt64(text)) {
    return Fail("value", Printable(text, kShownValueBytes) + " is beyond 64 bits");
  }
  variable.valueText = text;
  return true;
}

bool RunLineReader::CheckTableFields(const VariableFields& fields) {
  bool ignoredBool = false;
  std::string ignoredText;
  if (!TakeBool("sort", fields.sort, ignoredBool)) return false;
  if (!TakeString("digest", fields.digest, ignoredText)) return false;
  if (!fields.keys) return true;
  if (!fields.keys.Is(Kind::kArray)) return Fail("keys", "must be an array of column names");
  for (const Value key : fields.keys) {
    if (!key.Is(Kind::kString)) return Fail("keys", "must be an array of column names");
  }
  return true;
}

bool RunLineReader::ReadTableValue(const VariableFields& fields, VarInfo& variable) {
  const Value& value = fields.value;
  if (!value.Is(Kind::kArray) && !value.Is(Kind::kObject)) {
    return Fail("value", "must be a table: an object with columns and rows or an array of objects");
  }
  TableDigestOptions options;
  if (fields.keys) {
    auto& keys = options.keys.emplace();
    for (const Value key : fields.keys) keys.emplace_back(key.text());
  }
  if (fields.sort) options.sort = fields.sort.Is(Kind::kTrue);
  if (fields.digest) options.digest.emplace(fields.digest.text());
  const auto fault = ReadTable(value, options, variable);
  return !fault || Fail(fault->field, fault->text);
}

}  // namespace keelstone
