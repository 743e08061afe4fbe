#include "keelstone/raw_json.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

namespace keelstone {

namespace {

// Buffers that one giant line has blown up are given back with the next line.
constexpr std::size_t kKeptTextBytes = 16U << 20U;
constexpr std::size_t kKeptNodes = 1U << 20U;
// Up to so many members, looking through all of them is quicker than hashing.
constexpr std::size_t kFewMembers = 16;

bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// Passes over digits; false when there is none.
bool SkipDigits(std::string_view& text) noexcept {
  const auto end = std::find_if_not(text.begin(), text.end(), IsDigit);
  const auto count = static_cast<std::size_t>(end - text.begin());
  text.remove_prefix(count);
  return count != 0;
}

}  // namespace

bool IsIntegerText(std::string_view number) noexcept {
  return std::none_of(number.begin(), number.end(),
                      [](char c) { return c == '.' || c == 'e' || c == 'E'; });
}

bool IsNumberText(std::string_view text) noexcept {
  if (text.starts_with('-')) text.remove_prefix(1);
  if (text.size() > 1 && text[0] == '0' && IsDigit(text[1])) return false;
  if (!SkipDigits(text)) return false;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    if (!SkipDigits(text)) return false;
  }
  if (text.starts_with('e') || text.starts_with('E')) {
    text.remove_prefix(1);
    if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
    if (!SkipDigits(text)) return false;
  }
  return text.empty();
}

bool RawJson::Parse(std::string_view text, JsonParseError& error) {
  nodes_.clear();
  texts_.clear();
  open_.clear();
  if (nodes_.capacity() > kKeptNodes) nodes_.shrink_to_fit();
  if (texts_.capacity() > kKeptTextBytes) texts_.shrink_to_fit();
  error = {text.size(), "too large"};  // what stands when a handler below breaks off
  const JsonReadOptions strict{.allowComments = false, .requireUtf8 = true};
  if (JsonReader::Parse(text, static_cast<JsonHandler&>(*this), &error, strict)) return true;
  nodes_.clear();
  return false;
}

RawJson::Value RawJson::root() const noexcept { return nodes_.empty() ? Value() : Value(this, 0); }

bool RawJson::Append(Kind kind, std::string_view text) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) return false;
  nodes_.push_back({kind, static_cast<std::uint32_t>(text.size()), texts_.size()});
  texts_.append(text);
  return true;
}

bool RawJson::CountChild() {
  if (open_.empty()) return true;
  Node& parent = nodes_[open_.back()];
  if (parent.kind == Kind::kObject) return true;  // its names are counted instead
  return ++parent.size != 0;
}

bool RawJson::Add(Kind kind, std::string_view text) { return CountChild() && Append(kind, text); }

bool RawJson::OnKey(std::string_view bytes) {
  return ++nodes_[open_.back()].size != 0 && Append(Kind::kString, bytes);
}

bool RawJson::Open(Kind kind) {
  if (!CountChild()) return false;
  open_.push_back(nodes_.size());
  nodes_.push_back({kind, 0, 0});
  return true;
}

bool RawJson::Close() {
  nodes_[open_.back()].position = nodes_.size();
  open_.pop_back();
  return true;
}

std::size_t RawJson::After(std::size_t index) const noexcept {
  const Node& node = nodes_[index];
  const bool container = node.kind == Kind::kArray || node.kind == Kind::kObject;
  return container ? node.position : index + 1;
}

std::string_view RawJson::Value::text() const noexcept {
  return std::string_view(document_->texts_).substr(node().position, node().size);
}

RawJson::Iterator RawJson::Value::begin() const noexcept {
  return {document_, index_ + 1, node().kind == Kind::kObject};
}

RawJson::Iterator RawJson::Value::end() const noexcept {
  return {document_, document_->After(index_), node().kind == Kind::kObject};
}

std::vector<std::pair<std::string_view, RawJson::Value>> UniqueMembers(
    const RawJson::Value& object) {
  std::vector<std::pair<std::string_view, RawJson::Value>> members;
  members.reserve(object.size());
  std::unordered_map<std::string_view, std::size_t> places;
  const bool few = object.size() <= kFewMembers;
  for (auto member = object.begin(); member != object.end(); ++member) {
    auto known = members.end();
    if (few) {
      known = std::find_if(members.begin(), members.end(),
                           [&](const auto& other) { return other.first == member.name(); });
    } else {
      const auto [place, isNew] = places.emplace(member.name(), members.size());
      if (!isNew) known = members.begin() + static_cast<std::ptrdiff_t>(place->second);
    }
    if (known == members.end()) {
      members.emplace_back(member.name(), *member);
    } else {
      known->second = *member;
    }
  }
  return members;
}

}  // namespace keelstone
