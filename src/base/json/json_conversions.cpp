#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "base/json/json_node.h"
#include "base/text/base64.h"
#include "base/text/numbers.h"
#include "keelstone/json_value.h"

namespace keelstone {
namespace {

/// Whether an integer kind or a real, judged before its fraction is cut off, lies within
/// what `Integer` holds. NaN lies nowhere.
template <class Integer>
bool Fits(const JsonValue& value) noexcept {
  using Limits = std::numeric_limits<Integer>;
  switch (value.type()) {
    case JsonType::Int:
    case JsonType::Time:
      return std::in_range<Integer>(JsonNodes::Integer(value));
    case JsonType::UInt:
      return std::in_range<Integer>(JsonNodes::Unsigned(value));
    case JsonType::Real: {
      const double real = JsonNodes::Real(value);
      // Of 64-bit types the largest value is no double; the first beyond it is one.
      if constexpr (Limits::digits > 53) {
        return real >= static_cast<double>(Limits::min()) && real < std::ldexp(1.0, Limits::digits);
      } else {
        return real >= static_cast<double>(Limits::min()) &&
               real <= static_cast<double>(Limits::max());
      }
    }
    default:
      return false;
  }
}

template <class Integer>
bool IsWhole(const JsonValue& value) noexcept {
  if (!Fits<Integer>(value)) return false;
  if (value.type() != JsonType::Real) return true;
  return std::trunc(JsonNodes::Real(value)) == JsonNodes::Real(value);
}

[[noreturn]] void Refuse(const JsonValue& value, const char* wanted) {
  throw JsonError(std::string("JSON value of type ") + JsonTypeName(value.type()) +
                  (value.isNumeric() ? " is out of the range of " : " does not convert to ") +
                  wanted);
}

template <class Integer>
Integer AsInteger(const JsonValue& value, const char* name) {
  if (value.isNull()) return 0;
  if (value.isBool()) return JsonNodes::Boolean(value) ? 1 : 0;
  if (!Fits<Integer>(value)) Refuse(value, name);
  switch (value.type()) {
    case JsonType::UInt:
      return static_cast<Integer>(JsonNodes::Unsigned(value));
    case JsonType::Real:
      return static_cast<Integer>(JsonNodes::Real(value));
    default:
      return static_cast<Integer>(JsonNodes::Integer(value));
  }
}

bool IsInteger(JsonType type) noexcept {
  return type == JsonType::Int || type == JsonType::UInt || type == JsonType::Time;
}

bool SameInteger(const JsonValue& a, const JsonValue& b) noexcept {
  const bool aUnsigned = a.type() == JsonType::UInt;
  const bool bUnsigned = b.type() == JsonType::UInt;
  if (aUnsigned && bUnsigned) return JsonNodes::Unsigned(a) == JsonNodes::Unsigned(b);
  if (aUnsigned) return std::cmp_equal(JsonNodes::Unsigned(a), JsonNodes::Integer(b));
  if (bUnsigned) return std::cmp_equal(JsonNodes::Integer(a), JsonNodes::Unsigned(b));
  return JsonNodes::Integer(a) == JsonNodes::Integer(b);
}

/// Pairs of values that are still to be compared; a list in place of recursion.
using Pairs = std::vector<std::pair<const JsonValue*, const JsonValue*>>;

/// Compares two values of one kind as far as they are no containers, and puts what the
/// containers hold on the list; false when they differ.
bool CompareOne(const JsonValue& a, const JsonValue& b, Pairs& open) {
  switch (a.type()) {
    case JsonType::Null:
      return true;
    case JsonType::Boolean:
      return JsonNodes::Boolean(a) == JsonNodes::Boolean(b);
    case JsonType::Real: {
      const double x = JsonNodes::Real(a);
      const double y = JsonNodes::Real(b);
      return x == y || (std::isnan(x) && std::isnan(y));
    }
    case JsonType::String:
    case JsonType::Binary:
      return JsonNodes::Bytes(a) == JsonNodes::Bytes(b);
    case JsonType::Array:
      if (a.size() != b.size()) return false;
      for (std::size_t i = 0; i < a.size(); ++i) open.emplace_back(&a[i], &b[i]);
      return true;
    case JsonType::Object:
      if (a.size() != b.size()) return false;
      for (std::size_t i = 0; i < a.size(); ++i) {
        const JsonValue* const other = b.find(JsonNodes::Keys(a)[i]);
        if (other == nullptr) return false;
        open.emplace_back(&JsonNodes::Content(a)[i], other);
      }
      return true;
    default:
      return SameInteger(a, b);
  }
}

}  // namespace

bool JsonValue::isNumeric() const noexcept { return IsInteger(type_) || type_ == JsonType::Real; }

bool JsonValue::isInt() const noexcept { return IsWhole<int>(*this); }

bool JsonValue::isInt64() const noexcept { return IsWhole<std::int64_t>(*this); }

bool JsonValue::isUInt() const noexcept { return IsWhole<unsigned>(*this); }

bool JsonValue::isUInt64() const noexcept { return IsWhole<std::uint64_t>(*this); }

int JsonValue::asInt() const { return AsInteger<int>(*this, "int"); }

unsigned JsonValue::asUInt() const { return AsInteger<unsigned>(*this, "unsigned"); }

std::int64_t JsonValue::asInt64() const { return AsInteger<std::int64_t>(*this, "int64"); }

std::uint64_t JsonValue::asUInt64() const { return AsInteger<std::uint64_t>(*this, "uint64"); }

double JsonValue::asDouble() const {
  switch (type_) {
    case JsonType::Null:
      return 0.0;
    case JsonType::Boolean:
      return payload_.boolean ? 1.0 : 0.0;
    case JsonType::Int:
    case JsonType::Time:
      return static_cast<double>(payload_.integer);
    case JsonType::UInt:
      return static_cast<double>(payload_.unsignedInteger);
    case JsonType::Real:
      return payload_.real;
    default:
      Refuse(*this, "double");
  }
}

float JsonValue::asFloat() const { return NarrowToFloat(asDouble()); }

bool JsonValue::asBool() const {
  switch (type_) {
    case JsonType::Null:
      return false;
    case JsonType::Boolean:
      return payload_.boolean;
    case JsonType::Int:
    case JsonType::Time:
      return payload_.integer != 0;
    case JsonType::UInt:
      return payload_.unsignedInteger != 0;
    case JsonType::Real:
      return payload_.real != 0.0 && !std::isnan(payload_.real);
    default:
      Refuse(*this, "bool");
  }
}

std::string JsonValue::asString() const {
  switch (type_) {
    case JsonType::Null:
      return {};
    case JsonType::String:
      return JsonNodes::Bytes(*this);
    case JsonType::Binary:
    case JsonType::Array:
    case JsonType::Object:
      Refuse(*this, "string");
    default:
      return toString();
  }
}

std::string JsonValue::asBinary() const {
  if (isNull()) return {};
  if (isBinary()) return JsonNodes::Bytes(*this);
  if (!isString()) Refuse(*this, "binary");
  auto bytes = DecodeBase64(JsonNodes::Bytes(*this));
  if (!bytes) throw JsonError("JSON value of type String is no base64 text");
  return *std::move(bytes);
}

const std::string& JsonValue::stringRef() const {
  if (!isString()) Refuse(*this, "string");
  return JsonNodes::Bytes(*this);
}

bool operator==(const JsonValue& a, const JsonValue& b) {
  Pairs open{{&a, &b}};
  while (!open.empty()) {
    const auto [x, y] = open.back();
    open.pop_back();
    if (x->type() != y->type() && !(IsInteger(x->type()) && IsInteger(y->type()))) return false;
    if (JsonNodes::Has(*x) && JsonNodes::Of(*x) == JsonNodes::Of(*y)) continue;
    if (!CompareOne(*x, *y, open)) return false;
  }
  return true;
}

}  // namespace keelstone
