#include "program/commands/known_variable.h"

#include <cmath>
#include <limits>
#include <memory>
#include <type_traits>

#include "keelstone/algorithm_manager.h"
#include "keelstone/history_data.h"
#include "keelstone/run_line.h"

namespace keelstone::host {

namespace {

bool IsNumber(EnumKSDataType type) {
  return type == KSDataInt64 || type == KSDataFloat || type == KSDataDouble;
}

const char* WordsOf(EnumKSDataType type) {
  switch (type) {
    case KSDataInt64:
      return "whole numbers";
    case KSDataFloat:
      return "single-precision numbers";
    case KSDataDouble:
      return "real numbers";
    case KSDataString:
      return "texts";
    default:
      return "tables";
  }
}

/// Whether a rule of the kind can judge values of the type.
bool Judges(const RuleKind& rule, EnumKSDataType values) {
  return values != KSDataUnknown && AlgTypeOf(values) == rule.family;
}

/// Makes a number one of the type; false when it is none.
bool FitNumber(EnumKSDataType type, JsonValue& number) {
  const double real = number.asDouble();
  if (type == KSDataInt64) {
    if (number.type() == JsonType::Int) return true;
    constexpr double kBound = 9223372036854775808.0;
    if (std::floor(real) != real || real < -kBound || real >= kBound) return false;
    number = static_cast<std::int64_t>(real);
    return true;
  }
  const bool isWithin = type == KSDataFloat ? std::isfinite(number.asFloat()) : std::isfinite(real);
  if (isWithin && number.type() != JsonType::Real) number = real;
  return isWithin;
}

std::string FitNumbers(EnumKSDataType type, JsonValue& value) {
  if (value.isNumeric()) {
    const std::string text = value.toString();
    return FitNumber(type, value)
               ? ""
               : "the variable holds " + std::string(WordsOf(type)) + ", and " + text + " is none";
  }
  if (value.isArray()) {
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (std::string fault = FitNumbers(type, value[i]); !fault.empty()) return fault;
    }
  } else if (value.isObject()) {
    for (const std::string& name : value.getMemberNames()) {
      if (std::string fault = FitNumbers(type, value[name]); !fault.empty()) return fault;
    }
  }
  return {};
}

template <class T>
using HistoryOf = std::conditional_t<
    std::is_same_v<T, std::int64_t>, IntHistoryData,
    std::conditional_t<std::is_same_v<T, float>, FloatHistoryData, DoubleHistoryData>>;

template <class From, class To>
std::string Converted(const std::string& text) {
  HistoryOf<From> from;
  HistoryOf<To> to;
  from.FromString(text);
  for (const auto& point : from.points()) {
    to.AddData(std::make_shared<KSDataPoint<To>>(point.time, static_cast<To>(point.value)),
               std::numeric_limits<std::int32_t>::max());
  }
  return to.ToString();
}

bool HoldsReal(const JsonValue& value) {
  if (value.type() == JsonType::Real) return true;
  if (!value.isArray() && !value.isObject()) return false;
  for (const JsonValue& element : value) {
    if (HoldsReal(element)) return true;
  }
  return false;
}

}  // namespace

EnumKSDataType TypeOfHistory(const std::string& history) {
  for (int type = KSDataInt64; type <= KSDataTable && !history.empty(); ++type) {
    const auto dataType = static_cast<EnumKSDataType>(type);
    if (MakeHistory(dataType)->FromString(history)) return dataType;
  }
  return KSDataUnknown;
}

EnumKSDataType TypeOfCode(std::int32_t typeCode) {
  for (int type = KSDataInt64; type <= KSDataTable; ++type) {
    const auto dataType = static_cast<EnumKSDataType>(type);
    if (RunLineReader::DefaultTypeCode(dataType) == typeCode) return dataType;
  }
  return KSDataUnknown;
}

EnumKSDataType TypeOfParameter(const RuleKind& rule, const JsonValue& parameter) {
  if (rule.family == KSAlgTable) return KSDataTable;
  if (rule.family == KSAlgString) return KSDataString;
  return HoldsReal(parameter) ? KSDataDouble : KSDataInt64;
}

std::string KnownVariable::Fit(const RuleKind& rule, JsonValue& parameter, bool& isConverted) {
  const EnumKSDataType stored = TypeOfHistory(history);
  const EnumKSDataType values = defined != KSDataUnknown ? defined : stored;
  isConverted = false;
  if (values == KSDataUnknown) return {};
  if (!Judges(rule, values)) {
    return std::string("the variable holds ") + WordsOf(values) + ", and the rule judges " +
           WordsOf(TypeOfParameter(rule, parameter));
  }
  if (!IsNumber(values)) return {};  // a text or table begins a new history where it must
  if (std::string fault = FitNumbers(values, parameter); !fault.empty()) return fault;
  if (history.empty() || stored == values) return {};
  constexpr const char* kRemedy =
      "; `keelstone rule unset` removes it, and the rule can be set then";
  if (stored == KSDataUnknown) return std::string("the stored history cannot be read") + kRemedy;
  if (stored == KSDataInt64 && values == KSDataDouble) {
    history = Converted<std::int64_t, double>(history);
  } else if (stored == KSDataInt64 && values == KSDataFloat) {
    history = Converted<std::int64_t, float>(history);
  } else if (stored == KSDataFloat && values == KSDataDouble) {
    history = Converted<float, double>(history);
  } else {
    return std::string("the stored history is one of ") + WordsOf(stored) +
           ", and the variable is defined to hold " + WordsOf(values) + kRemedy;
  }
  isConverted = true;
  return {};
}

}  // namespace keelstone::host
