#ifndef KEELSTONE_JSON_VALUE_H
#define KEELSTONE_JSON_VALUE_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "keelstone/export.h"

namespace keelstone {

/// A conversion or an access that a JSON value refuses (asInt of a string,
/// member access on an array). The text names the kind and what was asked of it.
class KEELSTONE_EXPORT JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a JSON value is.
enum class JsonType : std::uint8_t {
  Null,
  Int,     // signed 64-bit
  UInt,    // unsigned 64-bit, used for what Int cannot hold
  Real,    // double
  String,  // bytes; UTF-8 by convention, not by force
  Boolean,
  Array,
  Object,
  Time,    // seconds since the epoch, signed 64-bit; its text is the bare integer
  Binary,  // bytes; its text is a JSON string in base64
};

/// How a text is written from a value.
struct JsonWriteOptions {
  /// Put U+FFFD in place of each byte that is not part of valid UTF-8, so that the
  /// document is valid whatever the strings hold. Off: bytes stand as they are, and
  /// JsonReader gives the same bytes back.
  bool replaceInvalidUtf8 = false;
};

/// One JSON value: a scalar, or a shared node with a string, bytes, an array or an
/// object. Objects keep the order of insertion (a key that is set again keeps its
/// place). Copying costs a pointer: a node is shared until one of its holders writes.
///
/// Null stands for "absent": a const lookup of a member or element that is not there
/// gives Null, and Null converts to 0, 0.0, false and "" and counts as an empty array
/// and object. Conversions between kinds:
///
/// | to                                  | from                                         |
/// |-------------------------------------|----------------------------------------------|
/// | asInt, asUInt, asInt64, asUInt64,   | Int, UInt, Time and Real (cut towards zero), |
/// | asTime                              | all within range; Boolean, Null              |
/// | asDouble, asFloat                   | Int, UInt, Time, Real, Boolean, Null         |
/// | asBool                              | Boolean, Null, numbers (0 and NaN: false)    |
/// | asString                            | String, Null, Boolean, numbers by their text |
/// | asBinary                            | Binary, Null, String (base64)                |
///
/// A Real is judged by its range before it is cut: 2147483647.5 is no int.
/// Everything else throws JsonError, as does a const member lookup on what is neither
/// Null nor Object, and an element lookup on what is neither Null nor Array.
///
/// Threads: a value is used by one thread at a time; values that share a node may be
/// used by several threads at once.
///
/// References to elements and members are good until their array or object is written
/// otherwise, dropped or copied: what is written through an older reference would show
/// in the copy too. A value may be assigned to a part of itself.
class KEELSTONE_EXPORT JsonValue {
 public:
  class ConstIterator;
  struct Node;  // src/base/json/json_node.h, not for hosts

  JsonValue() noexcept : type_(JsonType::Null) { payload_.integer = 0; }
  /// The empty value of a kind: 0, false, "", [] or {}.
  explicit JsonValue(JsonType type);
  JsonValue(bool value) noexcept;
  JsonValue(int value) noexcept;
  JsonValue(unsigned value) noexcept;
  JsonValue(long value) noexcept;
  JsonValue(long long value) noexcept;
  JsonValue(unsigned long value) noexcept;
  JsonValue(unsigned long long value) noexcept;
  JsonValue(double value) noexcept;
  JsonValue(float value) noexcept : JsonValue(static_cast<double>(value)) {}
  JsonValue(const char* text);
  JsonValue(std::string text);
  JsonValue(std::string_view text);
  static JsonValue Time(std::int64_t seconds) noexcept;
  static JsonValue Binary(std::string bytes);

  JsonValue(const JsonValue& other) noexcept;
  JsonValue(JsonValue&& other) noexcept : type_(other.type_), payload_(other.payload_) {
    other.type_ = JsonType::Null;
  }
  JsonValue& operator=(const JsonValue& other);
  JsonValue& operator=(JsonValue&& other) noexcept {
    // Taken out first: `other` may be part of what this value holds.
    JsonValue taken(std::move(other));
    swap(taken);
    return *this;
  }
  ~JsonValue() {
    if (hasNode()) ReleaseNode();
  }

  void swap(JsonValue& other) noexcept {
    std::swap(type_, other.type_);
    std::swap(payload_, other.payload_);
  }

  JsonType type() const noexcept { return type_; }
  bool isNull() const noexcept { return type_ == JsonType::Null; }
  bool isBool() const noexcept { return type_ == JsonType::Boolean; }
  bool isString() const noexcept { return type_ == JsonType::String; }
  bool isArray() const noexcept { return type_ == JsonType::Array; }
  bool isObject() const noexcept { return type_ == JsonType::Object; }
  bool isTime() const noexcept { return type_ == JsonType::Time; }
  bool isBinary() const noexcept { return type_ == JsonType::Binary; }
  /// Int, UInt, Real or Time.
  bool isNumeric() const noexcept;
  /// A whole number that the type holds (a Real without fraction counts).
  bool isInt() const noexcept;
  bool isInt64() const noexcept;
  bool isUInt() const noexcept;
  bool isUInt64() const noexcept;
  /// Any number.
  bool isDouble() const noexcept { return isNumeric(); }

  int asInt() const;
  unsigned asUInt() const;
  std::int64_t asInt64() const;
  std::uint64_t asUInt64() const;
  double asDouble() const;
  /// The double value in single precision; beyond its range an infinity.
  float asFloat() const;
  bool asBool() const;
  std::string asString() const;
  std::int64_t asTime() const { return asInt64(); }
  std::string asBinary() const;
  /// The bytes of a String without a copy; JsonError for every other kind.
  /// Valid until the value is written or dropped.
  const std::string& stringRef() const;

  /// Number of elements or members; 0 for every scalar.
  std::size_t size() const noexcept;
  /// True for Null and for an array or object without content.
  bool empty() const noexcept;
  /// Makes an array or object empty; Null stays Null.
  void clear();

  // Arrays.
  const JsonValue& operator[](std::size_t index) const;
  const JsonValue& operator[](int index) const;
  /// The element, made (with all before it) when it is not there.
  JsonValue& operator[](std::size_t index);
  JsonValue& operator[](int index);
  /// Appends to an array (Null becomes one) and answers the new element.
  JsonValue& append(JsonValue value);

  // Objects.
  const JsonValue& operator[](std::string_view key) const;
  const JsonValue& operator[](const char* key) const { return (*this)[std::string_view(key)]; }
  const JsonValue& operator[](const std::string& key) const {
    return (*this)[std::string_view(key)];
  }
  /// The member, made as Null when it is not there (Null becomes an object).
  JsonValue& operator[](std::string_view key);
  JsonValue& operator[](const char* key) { return (*this)[std::string_view(key)]; }
  JsonValue& operator[](const std::string& key) { return (*this)[std::string_view(key)]; }
  /// The member, or nullptr; also for what is no object.
  const JsonValue* find(std::string_view key) const noexcept;
  JsonValue get(std::string_view key, const JsonValue& otherwise) const;
  bool isMember(std::string_view key) const;
  /// Removes a member; true when it was there.
  bool removeMember(std::string_view key);
  std::vector<std::string> getMemberNames() const;

  /// Elements of an array or members of an object, in order; nothing for scalars.
  ConstIterator begin() const noexcept;
  ConstIterator end() const noexcept;

  /// Compact JSON text. Numbers: integers in decimal; reals with the fewest digits
  /// that read back the same, plainly from 0.0001 up to below 1e16 and with at least
  /// one decimal (15.0), else with an exponent of at least two digits (1e-07, 1e+16).
  /// NaN and the infinities are written as null.
  std::string toString(const JsonWriteOptions& options = {}) const;
  void appendTo(std::string& text, const JsonWriteOptions& options = {}) const;

  /// Same kind (Int, UInt and Time count as one, by value) and same content; members
  /// of objects in any order.
  friend KEELSTONE_EXPORT bool operator==(const JsonValue& a, const JsonValue& b);

 private:
  friend class JsonNodes;  // the way from values to nodes, for what reads and writes texts

  union Payload {
    std::int64_t integer;
    std::uint64_t unsignedInteger;
    double real;
    bool boolean;
    Node* node;
  };

  bool hasNode() const noexcept {
    return type_ == JsonType::String || type_ == JsonType::Object || type_ == JsonType::Array ||
           type_ == JsonType::Binary;
  }
  void ReleaseNode() noexcept;
  // The node for writing, not shared; `before` keeps the shared one that it came from.
  Node& ownNode(JsonValue& before);

  JsonType type_;
  Payload payload_;
};

/// Walks the elements of an array or the members of an object.
class KEELSTONE_EXPORT JsonValue::ConstIterator {
 public:
  ConstIterator(const Node* node, std::size_t index) noexcept : node_(node), index_(index) {}
  const JsonValue& operator*() const noexcept;
  const JsonValue* operator->() const noexcept { return &**this; }
  ConstIterator& operator++() noexcept {
    ++index_;
    return *this;
  }
  /// The member's name; "" in an array.
  const std::string& name() const noexcept;
  std::size_t index() const noexcept { return index_; }
  friend bool operator==(const ConstIterator& a, const ConstIterator& b) noexcept {
    return a.index_ == b.index_ && a.node_ == b.node_;
  }

 private:
  const Node* node_;
  std::size_t index_;
};

}  // namespace keelstone

#endif  // KEELSTONE_JSON_VALUE_H
