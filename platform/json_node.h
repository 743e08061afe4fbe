#ifndef KEELSTONE_PLATFORM_JSON_NODE_H
#define KEELSTONE_PLATFORM_JSON_NODE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/json_value.h"

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

  std::string bytes;
};

struct JsonContainerNode : JsonValue::Node {
  using Node::Node;
  JsonContainerNode* nextDead = nullptr;  // list of nodes to destroy
};

struct JsonArrayNode final : JsonContainerNode {
  JsonArrayNode() noexcept : JsonContainerNode(JsonType::Array) {}

  std::vector<JsonValue> elements;
};

struct JsonMember {
  std::string key;
  JsonValue value;
};

/// Members in the order of insertion; from a certain number on an index finds them.
struct JsonObjectNode final : JsonContainerNode {
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

  JsonObjectNode() noexcept : JsonContainerNode(JsonType::Object) {}

  std::size_t Find(std::string_view key) const noexcept;
  /// Adds a member whose key is not there yet.
  JsonValue& Add(std::string key, JsonValue value);
  void Erase(std::size_t position) noexcept;
  void Reserve(std::size_t count);

  std::vector<JsonMember> members;

 private:
  static constexpr std::size_t kUnindexed = 16;

  void ReserveIndex(std::size_t count);
  static void Enter(std::vector<std::uint32_t>& slots, std::string_view key,
                    std::size_t position) noexcept;

  // Open addressing: position + 1 of a member, 0 for an empty slot; a power of two of
  // slots, at most half of them taken. Empty while there are few members.
  std::vector<std::uint32_t> slots_;
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
  static const std::vector<JsonValue>& Elements(const JsonValue& value) noexcept {
    return static_cast<const JsonArrayNode*>(value.payload_.node)->elements;
  }
  static const std::vector<JsonMember>& Members(const JsonValue& value) noexcept {
    return static_cast<const JsonObjectNode*>(value.payload_.node)->members;
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

#endif  // KEELSTONE_PLATFORM_JSON_NODE_H
