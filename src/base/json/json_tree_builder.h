#ifndef KEELSTONE_BASE_JSON_JSON_TREE_BUILDER_H
#define KEELSTONE_BASE_JSON_JSON_TREE_BUILDER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "base/json/json_keys.h"
#include "base/text/numbers.h"
#include "keelstone/json_value.h"

namespace keelstone {

/// Objects that were read before: most are built like one that stood in such a place before,
/// in this text or in an earlier one, and often hold the same strings as the last one of
/// their text. Each thread has its own.
class JsonModels {
 public:
  struct Model {
    JsonKeysPointer keys;  // none yet: null
    JsonValue object;      // the last one with these names in the text being read, or Null
  };

  /// The thread's, or nullptr when there is no memory for them.
  static JsonModels* OfThread() noexcept;

  /// A number for a name; other names may have it as well.
  static std::size_t MarkOf(std::string_view name) noexcept {
    if (name.empty()) return 0;
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(name[i]); };
    return name.size() + 5U * byte(0) + 3U * byte(name.size() / 2) + byte(name.size() - 1);
  }
  /// The model of an object by its first name and the name before that in the text.
  Model& At(std::size_t markBefore, std::size_t markOfFirst) noexcept {
    return models_[(7 * markBefore + markOfFirst) % models_.size()];
  }

 private:
  std::array<Model, 128> models_;
};

/// Builds the value that a text holds from its parts in their order: finished values wait
/// on a stack until the end of their array or object says how many belong to it. Every
/// operation answers whether to go on.
class JsonTreeBuilder {
 public:
  JsonTreeBuilder();
  ~JsonTreeBuilder();
  JsonTreeBuilder(const JsonTreeBuilder&) = delete;
  JsonTreeBuilder& operator=(const JsonTreeBuilder&) = delete;

  /// The value, once all of it was handed in.
  JsonValue Take() { return std::move(values_.back()); }

  bool Null() { return Push(); }
  bool Bool(bool value) { return Push(value); }
  bool Integer(std::int64_t value, std::string_view) { return Push(value); }
  bool Integer(std::uint64_t value, std::string_view) { return Push(value); }
  /// False for what no double holds.
  bool Real(std::string_view text) {
    const auto value = LeadingDouble(text);
    return value.has_value() && Push(*value);
  }
  bool String(std::string_view bytes);
  bool Key(std::string_view bytes);
  bool ArrayBegin() {
    likely_ = nullptr;
    return true;
  }
  bool ArrayEnd(std::size_t count);
  bool ObjectBegin();
  bool ObjectEnd(std::size_t count);

 private:
  /// An object whose end has not come.
  struct OpenObject {
    JsonModels::Model* model = nullptr;
    JsonKeysPointer keys;   // the model's as long as they agree, then its own
    std::size_t count = 0;  // names so far, repeated ones as well
    bool isOwn = false;
  };
  /// A value whose name was there before in its object.
  struct Repeated {
    std::size_t depth;     // objects that were open
    std::size_t value;     // which one it is of its object's
    std::size_t position;  // of the name
  };

  template <class... Content>
  bool Push(Content&&... content) {
    values_.emplace_back(std::forward<Content>(content)...);
    return true;
  }
  void AddOwnKey(OpenObject& open, std::string_view bytes);
  void PutRepeatedInPlace(std::size_t count);
  void KeepAsModel(JsonModels::Model& model, JsonKeysPointer keys);
  // Takes the last `count` values off the stack.
  void MoveLast(std::size_t count, std::vector<JsonValue>& content);

  std::vector<JsonValue> values_;
  std::vector<OpenObject> open_;
  std::vector<Repeated> repeated_;
  std::unique_ptr<JsonModels> ownModels_;  // when the thread's are gone
  JsonModels& models_;
  std::vector<JsonModels::Model*> used_;  // those whose object is to be dropped
  std::size_t lastMark_ = 0;              // of the last name
  const JsonValue* likely_ = nullptr;     // the next value's counterpart in its object's model
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_JSON_JSON_TREE_BUILDER_H
