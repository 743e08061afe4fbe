// A text is read as JSON: what is taken comes back from its own text, and what is taken
// is what boost::json takes.
#include <boost/json/parse.hpp>

#include "tests/fuzz/fuzz_target.h"

namespace keelstone::fuzz {
namespace {

class CountingHandler final : public JsonHandler {
 public:
  bool OnNull() override { return Count(); }
  bool OnBool(bool) override { return Count(); }
  bool OnNumber(std::string_view text) override { return !text.empty() && Count(); }
  bool OnString(std::string_view) override { return Count(); }
  bool OnKey(std::string_view) override { return true; }
  bool OnArrayBegin() override { return ++open_ != 0 && Count(); }
  bool OnArrayEnd() override { return open_-- != 0; }
  bool OnObjectBegin() override { return ++open_ != 0 && Count(); }
  bool OnObjectEnd() override { return open_-- != 0; }

  std::size_t values() const { return values_; }
  std::size_t open() const { return open_; }

 private:
  bool Count() { return ++values_ != 0; }

  std::size_t values_ = 0;
  std::size_t open_ = 0;
};

std::size_t CountValues(const JsonValue& value) {
  std::size_t count = 1;
  for (const JsonValue& part : value) count += CountValues(part);
  return count;
}

void ExpectStable(const JsonValue& value) {
  const std::string text = value.toString();
  JsonValue again;
  KS_PROMISE(JsonReader::Parse(text, again));
  KS_PROMISE(again == value);
  KS_PROMISE(again.toString() == text);
  KS_PROMISE(IsStrictJson(value.toString({.replaceInvalidUtf8 = true})));
  // A copy that is written leaves what it was copied from.
  JsonValue copy = value;
  if (copy.isArray()) copy.append(1);
  if (copy.isObject()) copy["one more"] = copy;
  KS_PROMISE(value.toString() == text);
}

bool IsTakenByBoost(const std::string& text, bool& isOwnLimit) {
  boost::json::parse_options options;
  options.max_depth = JsonReader::kMaxDepth;
  options.allow_invalid_utf8 = true;
  boost::json::error_code failure;
  boost::json::parse(text, failure, {}, options);
  isOwnLimit = failure == boost::json::error::exponent_overflow;
  return !failure;
}

void ReadJson(const std::string& text) {
  JsonValue value;
  JsonParseError error{text.size(), {}};
  const bool isTaken =
      JsonReader::Parse(text, value, &error, {.allowComments = false, .requireUtf8 = false});
  KS_PROMISE(error.offset <= text.size());
  KS_PROMISE(isTaken || value.isNull());
  CountingHandler handler;
  const bool isHanded =
      JsonReader::Parse(text, handler, nullptr, {.allowComments = false, .requireUtf8 = false});
  KS_PROMISE(isHanded || !isTaken);
  bool isOwnLimit = false;
  const bool isTakenByBoost = IsTakenByBoost(text, isOwnLimit);
  KS_PROMISE(isOwnLimit || isHanded == isTakenByBoost);

  JsonValue commented;
  const bool isTakenCommented = JsonReader::Parse(text, commented);
  KS_PROMISE(isTakenCommented || !isTaken);
  if (isTakenCommented) ExpectStable(commented);
  if (isTaken) {
    KS_PROMISE(handler.open() == 0);
    KS_PROMISE(handler.values() >= CountValues(value));
    KS_PROMISE(commented == value);
    ExpectStable(value);
  }
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::ReadJson(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
