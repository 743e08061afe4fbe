#include "keelstone/json_value.h"

#include <limits>
#include <memory>
#include <utility>

#include "base/json/json_node.h"

namespace keelstone {
namespace {

const JsonValue& NullValue() noexcept {
  static const JsonValue kNull;
  return kNull;
}

[[noreturn]] void Refuse(JsonType type, const char* what) {
  throw JsonError(std::string("JSON value of type ") + JsonTypeName(type) + ": " + what);
}

template <class Bytes>
JsonValue MakeBytes(JsonType type, Bytes&& bytes) {
  return JsonNodes::Value(std::make_unique<JsonBytesNode>(type, std::forward<Bytes>(bytes)));
}

std::size_t CheckedIndex(int index) {
  if (index < 0) throw JsonError("JSON array: negative index");
  return static_cast<std::size_t>(index);
}

}  // namespace

JsonValue::JsonValue(JsonType type) : JsonValue() {
  switch (type) {
    case JsonType::Real:
      payload_.real = 0.0;
      break;
    case JsonType::Boolean:
      payload_.boolean = false;
      break;
    case JsonType::String:
    case JsonType::Binary:
      payload_.node = new JsonBytesNode(type, std::string());
      break;
    case JsonType::Array:
      payload_.node = new JsonArrayNode;
      break;
    case JsonType::Object:
      payload_.node = new JsonObjectNode;
      break;
    default:
      break;
  }
  type_ = type;
}

JsonValue::JsonValue(bool value) noexcept : type_(JsonType::Boolean) { payload_.boolean = value; }

JsonValue::JsonValue(int value) noexcept : JsonValue(static_cast<long long>(value)) {}

JsonValue::JsonValue(unsigned value) noexcept : JsonValue(static_cast<long long>(value)) {}

JsonValue::JsonValue(long value) noexcept : JsonValue(static_cast<long long>(value)) {}

JsonValue::JsonValue(long long value) noexcept : type_(JsonType::Int) { payload_.integer = value; }

JsonValue::JsonValue(unsigned long value) noexcept
    : JsonValue(static_cast<unsigned long long>(value)) {}

JsonValue::JsonValue(unsigned long long value) noexcept
    : type_(value <= std::uint64_t{std::numeric_limits<std::int64_t>::max()} ? JsonType::Int
                                                                             : JsonType::UInt) {
  if (type_ == JsonType::Int) {
    payload_.integer = static_cast<std::int64_t>(value);
  } else {
    payload_.unsignedInteger = value;
  }
}

JsonValue::JsonValue(double value) noexcept : type_(JsonType::Real) { payload_.real = value; }

JsonValue::JsonValue(const char* text) : JsonValue(std::string_view(text)) {}

JsonValue::JsonValue(std::string text) : JsonValue(MakeBytes(JsonType::String, std::move(text))) {}

JsonValue::JsonValue(std::string_view text) : JsonValue(MakeBytes(JsonType::String, text)) {}

JsonValue JsonValue::Time(std::int64_t seconds) noexcept {
  JsonValue value;
  value.type_ = JsonType::Time;
  value.payload_.integer = seconds;
  return value;
}

JsonValue JsonValue::Binary(std::string bytes) {
  return MakeBytes(JsonType::Binary, std::move(bytes));
}

JsonValue::JsonValue(const JsonValue& other) noexcept
    : type_(other.type_), payload_(other.payload_) {
  if (hasNode()) payload_.node->Retain();
}

JsonValue& JsonValue::operator=(const JsonValue& other) {
  JsonValue copy = JsonNodes::CopyFor(*this, other);
  swap(copy);
  return *this;
}

void JsonValue::ReleaseNode() noexcept { JsonNodes::Release(payload_.node); }

JsonValue::Node& JsonValue::ownNode(JsonValue& before) {
  if (payload_.node->IsShared()) {
    Node* const own = JsonNodes::Clone(*payload_.node);
    before.type_ = type_;
    before.payload_.node = payload_.node;
    payload_.node = own;
  }
  return *payload_.node;
}

std::size_t JsonValue::size() const noexcept {
  return JsonNodes::HasContainer(*this) ? JsonNodes::Content(*this).size() : 0;
}

bool JsonValue::empty() const noexcept {
  return isNull() || ((isArray() || isObject()) && size() == 0);
}

void JsonValue::clear() {
  if (isNull()) return;
  if (!isArray() && !isObject()) Refuse(type_, "only arrays and objects are emptied");
  *this = JsonValue(type_);
}

const JsonValue& JsonValue::operator[](std::size_t index) const {
  if (isNull()) return NullValue();
  if (!isArray()) Refuse(type_, "asked for an element");
  const auto& elements = JsonNodes::Content(*this);
  return index < elements.size() ? elements[index] : NullValue();
}

const JsonValue& JsonValue::operator[](int index) const { return (*this)[CheckedIndex(index)]; }

JsonValue& JsonValue::operator[](std::size_t index) {
  if (isNull()) {
    JsonValue array(JsonType::Array);
    JsonValue& element = array[index];
    swap(array);
    return element;
  }
  if (!isArray()) Refuse(type_, "asked for an element");
  JsonValue before;
  auto& node = static_cast<JsonArrayNode&>(ownNode(before));
  if (index >= node.content.size()) {
    if (index >= node.content.max_size()) throw JsonError("JSON array: index too large");
    node.content.resize(index + 1);
  }
  node.lent = true;
  return node.content[index];
}

JsonValue& JsonValue::operator[](int index) { return (*this)[CheckedIndex(index)]; }

JsonValue& JsonValue::append(JsonValue value) {
  if (isNull()) {
    JsonValue array(JsonType::Array);
    JsonValue& element = array.append(std::move(value));
    swap(array);
    return element;
  }
  if (!isArray()) Refuse(type_, "asked to append");
  JsonValue before;
  auto& node = static_cast<JsonArrayNode&>(ownNode(before));
  node.content.push_back(std::move(value));
  node.lent = true;
  return node.content.back();
}

const JsonValue& JsonValue::operator[](std::string_view key) const {
  if (!isNull() && !isObject()) Refuse(type_, "asked for a member");
  const JsonValue* const member = find(key);
  return member != nullptr ? *member : NullValue();
}

JsonValue& JsonValue::operator[](std::string_view key) {
  if (isNull()) {
    JsonValue object(JsonType::Object);
    JsonValue& member = object[key];
    swap(object);
    return member;
  }
  if (!isObject()) Refuse(type_, "asked for a member");
  JsonValue before;  // `key` may point into it
  auto& node = static_cast<JsonObjectNode&>(ownNode(before));
  node.lent = true;
  const std::size_t position = node.Find(key);
  if (position != JsonObjectNode::kNowhere) return node.content[position];
  return node.Add(key);
}

const JsonValue* JsonValue::find(std::string_view key) const noexcept {
  if (!isObject()) return nullptr;
  const auto* const node = static_cast<const JsonObjectNode*>(payload_.node);
  const std::size_t position = node->Find(key);
  return position != JsonObjectNode::kNowhere ? &node->content[position] : nullptr;
}

JsonValue JsonValue::get(std::string_view key, const JsonValue& otherwise) const {
  if (!isNull() && !isObject()) Refuse(type_, "asked for a member");
  const JsonValue* const member = find(key);
  return member != nullptr ? *member : otherwise;
}

bool JsonValue::isMember(std::string_view key) const {
  if (!isNull() && !isObject()) Refuse(type_, "asked for a member");
  return find(key) != nullptr;
}

bool JsonValue::removeMember(std::string_view key) {
  if (!isMember(key)) return false;
  JsonValue before;  // `key` may point into it
  auto& node = static_cast<JsonObjectNode&>(ownNode(before));
  node.Erase(node.Find(key));
  return true;
}

std::vector<std::string> JsonValue::getMemberNames() const {
  std::vector<std::string> names;
  if (isNull()) return names;
  if (!isObject()) Refuse(type_, "asked for member names");
  names.reserve(size());
  for (std::size_t i = 0; i < size(); ++i) names.push_back(JsonNodes::Keys(*this)[i]);
  return names;
}

JsonValue::ConstIterator JsonValue::begin() const noexcept {
  return {isArray() || isObject() ? payload_.node : nullptr, 0};
}

JsonValue::ConstIterator JsonValue::end() const noexcept {
  return {isArray() || isObject() ? payload_.node : nullptr, size()};
}

const JsonValue& JsonValue::ConstIterator::operator*() const noexcept {
  return static_cast<const JsonContainerNode*>(node_)->content[index_];
}

const std::string& JsonValue::ConstIterator::name() const noexcept {
  static const std::string kNone;
  if (node_ == nullptr || node_->kind != JsonType::Object) return kNone;
  return (*static_cast<const JsonObjectNode*>(node_)->keys)[index_];
}

}  // namespace keelstone
