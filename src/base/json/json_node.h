#ifndef KEELSTONE_BASE_JSON_JSON_NODE_H
#define KEELSTONE_BASE_JSON_JSON_NODE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/json/json_keys.h"
#include "keelstone/json_value.h"

namespace keelstone {

/// What values share: a counted block with bytes, elements or members. A node with one
/// holder belongs to that holder's thread; one with more is only read.
struct JsonValue::Node {
  explicit Node(JsonType type) noexcept : kind(type) {}
  Node(const Node& other) noexcept : kind(other.kind) {}

  void Retain() noexcept { holders.fetch_add(1, std::memory_order_relaxed); }
  /// True when the caller was the last holder and has to destroy the node.
  bool Drop() noexcept {
    // A last holder needs no locked instruction: nobody else can take hold any more.
    return holders.load(std::memory_order_acquire) == 1 ||
           holders.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }
  bool IsShared() const noexcept { return holders.load(std::memory_order_acquire) != 1; }

  std::atomic<std::uint32_t> holders{1};
  const JsonType kind;
  /// A reference to an element was handed out for writing, so that an assignment may
  /// be about to put this very node into its own content.
  bool lent = false;
};

struct JsonBytesNode final : JsonValue::Node {
  JsonBytesNode(JsonType type, std::string content) noexcept
      : Node(type), bytes(std::move(content)) {}
  JsonBytesNode(JsonType type, std::string_view content) : Node(type), bytes(content) {}

  std::string bytes;
};

struct JsonContainerNode : JsonValue::Node {
  using Node::Node;

  std::vector<JsonValue> content;         // elements, or the members' values
  JsonContainerNode* nextDead = nullptr;  // list of nodes to destroy
};

struct JsonArrayNode final : JsonContainerNode {
  JsonArrayNode() noexcept : JsonContainerNode(JsonType::Array) {}
};

/// Members in the order of insertion.
struct JsonObjectNode final : JsonContainerNode {
  static constexpr std::size_t kNowhere = JsonKeys::kNowhere;

  JsonObjectNode() noexcept : JsonContainerNode(JsonType::Object) {}

  std::size_t Find(std::string_view key) const noexcept {
    return keys ? keys->Find(key) : kNowhere;
  }
  /// Adds a member whose key is not there yet; no change when it throws.
  JsonValue& Add(std::string_view key);
  void Erase(std::size_t position);

  JsonKeysPointer keys;  // one for each value of the content; may be null when there is none

 private:
  JsonKeys& OwnKeys();  // not shared
};

/// Values and their nodes, for the files that implement them.
class JsonNodes {
 public:
  static JsonValue::Node* Of(const JsonValue& value) noexcept { return value.payload_.node; }
  static bool Has(const JsonValue& value) noexcept { return value.hasNode(); }
  static bool HasContainer(const JsonValue& value) noexcept {
    return value.isArray() || value.isObject();
  }
  static const std::string& Bytes(const JsonValue& value) noexcept {
    return static_cast<const JsonBytesNode*>(value.payload_.node)->bytes;
  }
  /// Of an array or object.
  static const std::vector<JsonValue>& Content(const JsonValue& value) noexcept {
    return static_cast<const JsonContainerNode*>(value.payload_.node)->content;
  }
  /// Of an object that is not empty.
  static const JsonKeys& Keys(const JsonValue& value) noexcept {
    return *static_cast<const JsonObjectNode*>(value.payload_.node)->keys;
  }
  static std::int64_t Integer(const JsonValue& value) noexcept { return value.payload_.integer; }
  static std::uint64_t Unsigned(const JsonValue& value) noexcept {
    return value.payload_.unsignedInteger;
  }
  static double Real(const JsonValue& value) noexcept { return value.payload_.real; }
  static bool Boolean(const JsonValue& value) noexcept { return value.payload_.boolean; }

  /// The value that holds a new node.
  template <class AnyNode>
  static JsonValue Value(std::unique_ptr<AnyNode> node) noexcept {
    JsonValue value;
    value.type_ = node->kind;
    value.payload_.node = node.release();
    return value;
  }
  /// A node of one's own with the same content; what the content holds is shared.
  static JsonValue::Node* Clone(const JsonValue::Node& node);
  /// Gives up one hold on a node.
  static void Release(JsonValue::Node* node) noexcept {
    if (node->Drop()) Destroy(node);
  }
  /// `value` as it is now, to be put into `place`: when `place` is part of its content,
  /// a copy of every node on the way there, so that no node comes to hold itself.
  static JsonValue CopyFor(const JsonValue& place, const JsonValue& value);

 private:
  static void Destroy(JsonValue::Node* node) noexcept;
};

/// Text for messages: "Int", "String", …
const char* JsonTypeName(JsonType type) noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_BASE_JSON_JSON_NODE_H
