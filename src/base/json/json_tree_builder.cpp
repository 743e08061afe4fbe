#include "base/json/json_tree_builder.h"

#include <iterator>
#include <memory>
#include <new>

#include "base/json/json_node.h"
#include "base/threads/thread_owned.h"

namespace keelstone {
namespace {

// Of most texts neither stack has to grow.
constexpr std::size_t kUsualValues = 32;
constexpr std::size_t kUsualDepth = 8;

}  // namespace

JsonModels* JsonModels::OfThread() noexcept {
  try {
    return &ThreadOwned<JsonModels>::Get();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

JsonTreeBuilder::JsonTreeBuilder()
    : ownModels_(JsonModels::OfThread() == nullptr ? std::make_unique<JsonModels>() : nullptr),
      models_(ownModels_ ? *ownModels_ : *JsonModels::OfThread()) {
  values_.reserve(kUsualValues);
  open_.reserve(kUsualDepth);
}

JsonTreeBuilder::~JsonTreeBuilder() {
  for (JsonModels::Model* const model : used_) model->object = JsonValue();
}

bool JsonTreeBuilder::ObjectBegin() {
  open_.emplace_back();
  return true;
}

bool JsonTreeBuilder::Key(std::string_view bytes) {
  OpenObject& open = open_.back();
  const std::size_t mark = JsonModels::MarkOf(bytes);
  if (open.count == 0) {
    open.model = &models_.At(lastMark_, mark);
    open.keys = open.model->keys;
  }
  lastMark_ = mark;
  if (open.isOwn || !open.keys || open.count == open.keys->size() ||
      (*open.keys)[open.count] != bytes) {
    likely_ = nullptr;
    AddOwnKey(open, bytes);
    return true;
  }
  // Another object may have taken the model's place meanwhile.
  const bool hasObject = open.model->keys == open.keys && open.model->object.isObject();
  likely_ = hasObject ? &JsonNodes::Content(open.model->object)[open.count] : nullptr;
  ++open.count;
  return true;
}

bool JsonTreeBuilder::String(std::string_view bytes) {
  if (likely_ != nullptr && likely_->isString() && JsonNodes::Bytes(*likely_) == bytes) {
    return Push(*likely_);
  }
  return Push(bytes);
}

void JsonTreeBuilder::AddOwnKey(OpenObject& open, std::string_view bytes) {
  if (!open.isOwn) {
    open.keys = open.count == 0 ? new JsonKeys : new JsonKeys(*open.keys, open.count);
    open.isOwn = true;
  }
  const std::size_t position = open.keys->Find(bytes);
  if (position == JsonKeys::kNowhere) {
    open.keys->Add(bytes);
  } else {
    repeated_.push_back({open_.size(), open.count, position});
  }
  ++open.count;
}

bool JsonTreeBuilder::ArrayEnd(std::size_t count) {
  auto node = std::make_unique<JsonArrayNode>();
  MoveLast(count, node->content);
  return Push(JsonNodes::Value(std::move(node)));
}

bool JsonTreeBuilder::ObjectEnd(std::size_t count) {
  likely_ = nullptr;
  OpenObject open = std::move(open_.back());
  if (!repeated_.empty() && repeated_.back().depth == open_.size()) {
    PutRepeatedInPlace(count);
    count = open.keys->size();
  }
  open_.pop_back();
  auto node = std::make_unique<JsonObjectNode>();
  MoveLast(count, node->content);
  if (count == 0) return Push(JsonNodes::Value(std::move(node)));
  if (open.keys->size() > count) open.keys = new JsonKeys(*open.keys, count);
  node->keys = open.keys;
  Push(JsonNodes::Value(std::move(node)));
  KeepAsModel(*open.model, std::move(open.keys));
  return true;
}

void JsonTreeBuilder::KeepAsModel(JsonModels::Model& model, JsonKeysPointer keys) {
  if (model.keys != keys) {
    if (!keys->IsSmall()) return;
    model.keys = std::move(keys);
  }
  if (model.object.isNull()) used_.push_back(&model);
  model.object = values_.back();
}

void JsonTreeBuilder::PutRepeatedInPlace(std::size_t count) {
  const auto first = values_.end() - static_cast<std::ptrdiff_t>(count);
  auto repeated = repeated_.end();
  while (repeated != repeated_.begin() && std::prev(repeated)->depth == open_.size()) --repeated;
  const auto firstRepeated = repeated;
  auto end = first;
  for (std::size_t i = 0; i < count; ++i) {
    JsonValue& value = first[static_cast<std::ptrdiff_t>(i)];
    if (repeated != repeated_.end() && repeated->value == i) {
      first[static_cast<std::ptrdiff_t>(repeated++->position)] = std::move(value);
    } else {
      *end++ = std::move(value);
    }
  }
  repeated_.erase(firstRepeated, repeated_.end());
  values_.erase(end, values_.end());
}

void JsonTreeBuilder::MoveLast(std::size_t count, std::vector<JsonValue>& content) {
  const auto first = values_.end() - static_cast<std::ptrdiff_t>(count);
  content.assign(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
  values_.erase(first, values_.end());
}

}  // namespace keelstone
