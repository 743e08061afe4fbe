#include "platform/json_node.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <stdexcept>
#include <utility>

namespace keelstone {
namespace {

bool Holds(const JsonValue::Node& node, const JsonValue& place) noexcept {
  const std::less_equal<const void*> notAfter;
  const void* const at = &place;
  if (node.kind == JsonType::Array) {
    const auto& elements = static_cast<const JsonArrayNode&>(node).elements;
    return notAfter(elements.data(), at) && !notAfter(elements.data() + elements.size(), at);
  }
  const auto& members = static_cast<const JsonObjectNode&>(node).members;
  return notAfter(members.data(), at) && !notAfter(members.data() + members.size(), at);
}

std::size_t ContentSize(const JsonValue::Node& node) noexcept {
  return node.kind == JsonType::Array ? static_cast<const JsonArrayNode&>(node).elements.size()
                                      : static_cast<const JsonObjectNode&>(node).members.size();
}

JsonValue& Content(JsonValue::Node& node, std::size_t i) noexcept {
  return node.kind == JsonType::Array ? static_cast<JsonArrayNode&>(node).elements[i]
                                      : static_cast<JsonObjectNode&>(node).members[i].value;
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
    if (step.next == ContentSize(*step.node)) {
      way.pop_back();
      continue;
    }
    const JsonValue& child = Content(*step.node, step.next++);
    if (canLead(child)) way.push_back({JsonNodes::Of(child), 0});
  }
  return way;
}

}  // namespace

std::size_t JsonObjectNode::Find(std::string_view key) const noexcept {
  if (slots_.empty()) {
    for (std::size_t i = 0; i < members.size(); ++i) {
      if (members[i].key == key) return i;
    }
    return kNowhere;
  }
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = std::hash<std::string_view>{}(key)&mask;; slot = (slot + 1) & mask) {
    if (slots_[slot] == 0) return kNowhere;
    const std::size_t position = slots_[slot] - 1;
    if (members[position].key == key) return position;
  }
}

JsonValue& JsonObjectNode::Add(std::string key, JsonValue value) {
  ReserveIndex(members.size() + 1);
  members.push_back({std::move(key), std::move(value)});
  if (!slots_.empty()) Enter(slots_, members.back().key, members.size() - 1);
  return members.back().value;
}

void JsonObjectNode::Erase(std::size_t position) noexcept {
  members.erase(members.begin() + static_cast<std::ptrdiff_t>(position));
  std::fill(slots_.begin(), slots_.end(), 0);
  if (slots_.empty()) return;
  for (std::size_t i = 0; i < members.size(); ++i) Enter(slots_, members[i].key, i);
}

void JsonObjectNode::Reserve(std::size_t count) {
  members.reserve(count);
  ReserveIndex(count);
}

void JsonObjectNode::ReserveIndex(std::size_t count) {
  if (count <= kUnindexed || count * 2 <= slots_.size()) return;
  if (count >= std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("too many members in a JSON object");
  }
  std::size_t size = kUnindexed * 4;
  while (size < count * 2) size *= 2;
  std::vector<std::uint32_t> slots(size, 0);
  for (std::size_t i = 0; i < members.size(); ++i) Enter(slots, members[i].key, i);
  slots_ = std::move(slots);
}

void JsonObjectNode::Enter(std::vector<std::uint32_t>& slots, std::string_view key,
                           std::size_t position) noexcept {
  const std::size_t mask = slots.size() - 1;
  std::size_t slot = std::hash<std::string_view>{}(key)&mask;
  while (slots[slot] != 0) slot = (slot + 1) & mask;
  slots[slot] = static_cast<std::uint32_t>(position + 1);
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
    const std::size_t size = ContentSize(*one);
    for (std::size_t i = 0; i < size; ++i) {
      JsonValue& child = Content(*one, i);
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
    if (!copy.isNull()) Content(*outer.payload_.node, way.back().next - 1).swap(copy);
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
