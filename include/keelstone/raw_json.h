#ifndef KEELSTONE_RAW_JSON_H
#define KEELSTONE_RAW_JSON_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_reader.h"

namespace keelstone {

/// Whether a JSON number is an integer: written without '.', 'e' and 'E'.
KEELSTONE_EXPORT bool IsIntegerText(std::string_view number) noexcept;
/// Whether the whole text is a number in JSON's grammar.
KEELSTONE_EXPORT bool IsNumberText(std::string_view text) noexcept;

/// One JSON text, read flat into two buffers, in which every number keeps its text and
/// every object all its members. The buffers are used again by the next text. One thread.
class KEELSTONE_EXPORT RawJson final : private JsonHandler {
 public:
  /// What a value is.
  enum class Kind : std::uint8_t { kNull, kFalse, kTrue, kNumber, kString, kArray, kObject };
  class Value;
  class Iterator;

  /// Reads strictly: no comments, UTF-8 only. On failure `error` says what and where, and
  /// there is no root.
  [[nodiscard]] bool Parse(std::string_view text, JsonParseError& error);
  /// The value of the last text; valid until the next Parse.
  Value root() const noexcept;

 private:
  // A scalar's text lies in texts_ at `position`; a container's last node is before
  // `position`. An object's nodes are names and values in turn.
  struct Node {
    Kind kind;
    std::uint32_t size;  // bytes of text, elements or members
    std::size_t position;
  };

  bool OnNull() override { return Add(Kind::kNull, {}); }
  bool OnBool(bool value) override { return Add(value ? Kind::kTrue : Kind::kFalse, {}); }
  bool OnNumber(std::string_view text) override { return Add(Kind::kNumber, text); }
  bool OnString(std::string_view bytes) override { return Add(Kind::kString, bytes); }
  bool OnKey(std::string_view bytes) override;
  bool OnArrayBegin() override { return Open(Kind::kArray); }
  bool OnArrayEnd() override { return Close(); }
  bool OnObjectBegin() override { return Open(Kind::kObject); }
  bool OnObjectEnd() override { return Close(); }

  bool Append(Kind kind, std::string_view text);
  bool Add(Kind kind, std::string_view text);
  bool Open(Kind kind);
  bool Close();
  bool CountChild();
  std::size_t After(std::size_t index) const noexcept;

  std::vector<Node> nodes_;
  std::string texts_;
  std::vector<std::size_t> open_;  // the containers that are being read, outermost first
};

/// One value of a RawJson, by reference; the default one is "absent".
class KEELSTONE_EXPORT RawJson::Value {
 public:
  Value() = default;

  explicit operator bool() const noexcept { return document_ != nullptr; }
  Kind kind() const noexcept { return node().kind; }
  bool Is(Kind kind) const noexcept { return document_ != nullptr && node().kind == kind; }
  bool IsBool() const noexcept { return Is(Kind::kTrue) || Is(Kind::kFalse); }
  /// Of a string its bytes, of a number its digits.
  std::string_view text() const noexcept;
  /// Elements of an array, members of an object (one name twice counts twice).
  std::size_t size() const noexcept { return node().size; }
  /// Elements or members in order.
  Iterator begin() const noexcept;
  Iterator end() const noexcept;

 private:
  friend class RawJson;
  friend class Iterator;
  Value(const RawJson* document, std::size_t index) noexcept : document_(document), index_(index) {}
  const Node& node() const noexcept { return document_->nodes_[index_]; }

  const RawJson* document_ = nullptr;
  std::size_t index_ = 0;
};

/// Walks elements or members.
class KEELSTONE_EXPORT RawJson::Iterator {
 public:
  Value operator*() const noexcept { return {document_, named_ ? index_ + 1 : index_}; }
  /// The member's name; nothing in an array.
  std::string_view name() const noexcept {
    return named_ ? Value(document_, index_).text() : std::string_view();
  }
  Iterator& operator++() noexcept {
    index_ = document_->After(named_ ? index_ + 1 : index_);
    return *this;
  }
  friend bool operator==(const Iterator& a, const Iterator& b) noexcept {
    return a.index_ == b.index_;
  }

 private:
  friend class Value;
  Iterator(const RawJson* document, std::size_t index, bool named) noexcept
      : document_(document), index_(index), named_(named) {}

  const RawJson* document_;
  std::size_t index_;
  bool named_;
};

/// The members of an object with each name once: in the order of first appearance, with
/// the value that stands last.
KEELSTONE_EXPORT std::vector<std::pair<std::string_view, RawJson::Value>> UniqueMembers(
    const RawJson::Value& object);

}  // namespace keelstone

#endif  // KEELSTONE_RAW_JSON_H
