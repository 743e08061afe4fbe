#include "base/json/json_node.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace keelstone {
namespace {

std::vector<JsonValue>& ContentOf(JsonValue::Node& node) noexcept {
  return static_cast<JsonContainerNode&>(node).content;
}

bool Holds(JsonValue::Node& node, const JsonValue& place) noexcept {
  const std::less_equal<const void*> notAfter;
  const void* const at = &place;
  const std::vector<JsonValue>& content = ContentOf(node);
  return notAfter(content.data(), at) && !notAfter(content.data() + content.size(), at);
}

/// A node on the way down and the element looked at in it.
struct Step {
  JsonValue::Node* node;
  std::size_t next;
};

/// The way from `value` to the node that holds `place`; empty when there is none. Only
/// unshared nodes that lent out an element can lead there.
std::vector<Step> WayTo(const JsonValue& place, const JsonValue& value) {
  const auto canLead = [](const JsonValue& candidate) {
    return JsonNodes::HasContainer(candidate) && !JsonNodes::Of(candidate)->IsShared() &&
           JsonNodes::Of(candidate)->lent;
  };
  std::vector<Step> way;
  if (!canLead(value)) return way;
  way.push_back({JsonNodes::Of(value), 0});
  while (!way.empty()) {
    Step& step = way.back();
    if (step.next == 0 && Holds(*step.node, place)) return way;
    if (step.next == ContentOf(*step.node).size()) {
      way.pop_back();
      continue;
    }
    const JsonValue& child = ContentOf(*step.node)[step.next++];
    if (canLead(child)) way.push_back({JsonNodes::Of(child), 0});
  }
  return way;
}

}  // namespace

JsonKeys& JsonObjectNode::OwnKeys() {
  if (!keys) {
    keys = new JsonKeys;
  } else if (keys->IsShared()) {
    keys = new JsonKeys(*keys, keys->size());
  }
  return *keys;
}

JsonValue& JsonObjectNode::Add(std::string_view key) {
  if (content.size() == content.capacity())
    content.reserve(std::max<std::size_t>(4, 2 * content.size()));
  OwnKeys().Add(key);
  return content.emplace_back();
}

void JsonObjectNode::Erase(std::size_t position) {
  OwnKeys().Erase(position);
  content.erase(content.begin() + static_cast<std::ptrdiff_t>(position));
}

JsonValue::Node* JsonNodes::Clone(const JsonValue::Node& node) {
  switch (node.kind) {
    case JsonType::Array:
      return new JsonArrayNode(static_cast<const JsonArrayNode&>(node));
    case JsonType::Object:
      return new JsonObjectNode(static_cast<const JsonObjectNode&>(node));
    default:
      return new JsonBytesNode(static_cast<const JsonBytesNode&>(node));
  }
}

void JsonNodes::Destroy(JsonValue::Node* node) noexcept {
  if (node->kind != JsonType::Array && node->kind != JsonType::Object) {
    delete static_cast<JsonBytesNode*>(node);
    return;
  }
  // A list in place of recursion: values may be nested deeper than the stack is.
  auto* dead = static_cast<JsonContainerNode*>(node);
  while (dead != nullptr) {
    JsonContainerNode* const one = dead;
    dead = one->nextDead;
    for (JsonValue& child : one->content) {
      if (!HasContainer(child)) continue;
      auto* const inner = static_cast<JsonContainerNode*>(child.payload_.node);
      child.type_ = JsonType::Null;
      if (!inner->Drop()) continue;
      inner->nextDead = dead;
      dead = inner;
    }
    if (one->kind == JsonType::Array) {
      delete static_cast<JsonArrayNode*>(one);
    } else {
      delete static_cast<JsonObjectNode*>(one);
    }
  }
}

JsonValue JsonNodes::CopyFor(const JsonValue& place, const JsonValue& value) {
  if (!HasContainer(value)) return value;
  std::vector<Step> way = WayTo(place, value);
  if (way.empty()) return value;
  JsonValue copy;
  while (!way.empty()) {
    JsonValue outer;
    outer.payload_.node = Clone(*way.back().node);
    outer.type_ = outer.payload_.node->kind;
    // All but the innermost node have the step below them at `next - 1`.
    if (!copy.isNull()) ContentOf(*outer.payload_.node)[way.back().next - 1].swap(copy);
    copy.swap(outer);
    way.pop_back();
  }
  return copy;
}

const char* JsonTypeName(JsonType type) noexcept {
  static constexpr const char* kNames[] = {"Null",    "Int",   "UInt",   "Real", "String",
                                           "Boolean", "Array", "Object", "Time", "Binary"};
  return kNames[static_cast<std::size_t>(type)];
}

}  // namespace keelstone
