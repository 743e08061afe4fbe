#include "keelstone/json_reader.h"

#include <boost/json/basic_parser_impl.hpp>
#include <cstdint>
#include <limits>
#include <utility>

#include "base/json/json_plain_text.h"
#include "base/json/json_tree_builder.h"
#include "base/text/utf8.h"

namespace keelstone {

JsonHandler::~JsonHandler() = default;

namespace {

/// Hands on to a JsonHandler.
class HandlerSink {
 public:
  explicit HandlerSink(JsonHandler& handler) : handler_(handler) {}

  bool Null() { return handler_.OnNull(); }
  bool Bool(bool value) { return handler_.OnBool(value); }
  template <class Integral>
  bool Integer(Integral, std::string_view text) {
    return handler_.OnNumber(text);
  }
  bool Real(std::string_view text) { return handler_.OnNumber(text); }
  bool String(std::string_view bytes) { return handler_.OnString(bytes); }
  bool Key(std::string_view bytes) { return handler_.OnKey(bytes); }
  bool ArrayBegin() { return handler_.OnArrayBegin(); }
  bool ArrayEnd(std::size_t) { return handler_.OnArrayEnd(); }
  bool ObjectBegin() { return handler_.OnObjectBegin(); }
  bool ObjectEnd(std::size_t) { return handler_.OnObjectEnd(); }

 private:
  JsonHandler& handler_;
};

/// The parser's handler: puts strings together that come in parts, restores the text of
/// numbers and passes over what an earlier run has delivered.
template <class Sink>
class Events {
 public:
  using string_view = boost::json::string_view;
  using error_code = boost::json::error_code;

  static constexpr std::size_t max_array_size = std::numeric_limits<std::size_t>::max();
  static constexpr std::size_t max_object_size = max_array_size;
  static constexpr std::size_t max_string_size = max_array_size;
  static constexpr std::size_t max_key_size = max_array_size;

  /// `parsed` is what the parser reads, `text` the same with nothing made plain.
  Events(Sink& sink, std::string_view parsed, std::string_view text, std::size_t delivered)
      : sink_(sink), parsed_(parsed), text_(text), delivered_(delivered) {}

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_null(error_code& failure) {
    return Deliver(failure, [&] { return sink_.Null(); });
  }
  bool on_bool(bool value, error_code& failure) {
    return Deliver(failure, [&] { return sink_.Bool(value); });
  }

  // Parts of a number come only where it breaks off with the text, which is an error.
  bool on_number_part(string_view, error_code&) { return true; }
  bool on_int64(std::int64_t value, string_view number, error_code& failure) {
    return Deliver(failure, [&] { return sink_.Integer(value, TextOf(number)); });
  }
  bool on_uint64(std::uint64_t value, string_view number, error_code& failure) {
    return Deliver(failure, [&] { return sink_.Integer(value, TextOf(number)); });
  }
  // The parser's double is not the nearest one.
  bool on_double(double, string_view number, error_code& failure) {
    return Deliver(failure, [&] {
      const std::string_view real = TextOf(number);
      if (sink_.Real(real)) return true;
      refusedNumber_ = static_cast<std::size_t>(real.data() - text_.data());
      return false;
    });
  }

  bool on_string_part(string_view part, std::size_t, error_code&) { return KeepPart(part); }
  bool on_key_part(string_view part, std::size_t, error_code&) { return KeepPart(part); }
  bool on_string(string_view last, std::size_t, error_code& failure) {
    if (parts_.empty()) {
      return Deliver(failure, [&] { return sink_.String(std::string_view(last)); });
    }
    parts_.append(last.data(), last.size());
    const bool goOn = Deliver(failure, [&] { return sink_.String(std::string_view(parts_)); });
    parts_.clear();
    return goOn;
  }
  bool on_key(string_view last, std::size_t, error_code& failure) {
    if (parts_.empty()) {
      return Deliver(failure, [&] { return sink_.Key(std::string_view(last)); });
    }
    parts_.append(last.data(), last.size());
    const bool goOn = Deliver(failure, [&] { return sink_.Key(std::string_view(parts_)); });
    parts_.clear();
    return goOn;
  }

  bool on_array_begin(error_code& failure) {
    return Deliver(failure, [&] { return sink_.ArrayBegin(); });
  }
  bool on_array_end(std::size_t count, error_code& failure) {
    return Deliver(failure, [&] { return sink_.ArrayEnd(count); });
  }
  bool on_object_begin(error_code& failure) {
    return Deliver(failure, [&] { return sink_.ObjectBegin(); });
  }
  bool on_object_end(std::size_t count, error_code& failure) {
    return Deliver(failure, [&] { return sink_.ObjectEnd(count); });
  }

  bool on_comment_part(string_view, error_code&) { return true; }
  bool on_comment(string_view, error_code&) { return true; }

  bool BrokeOff() const { return brokeOff_; }
  std::size_t Delivered() const { return count_; }
  std::size_t RefusedNumber() const { return refusedNumber_; }

 private:
  template <class Event>
  bool Deliver(error_code& failure, Event event) {
    if (count_ < delivered_ || event()) {
      ++count_;
      return true;
    }
    brokeOff_ = true;
    failure = boost::json::error::exception;
    return false;
  }

  bool KeepPart(string_view part) {
    parts_.append(part.data(), part.size());
    return true;
  }

  std::string_view TextOf(string_view number) const {
    return text_.substr(static_cast<std::size_t>(number.data() - parsed_.data()), number.size());
  }

  Sink& sink_;
  const std::string_view parsed_;
  const std::string_view text_;
  const std::size_t delivered_;  // by an earlier run
  std::size_t count_ = 0;
  std::size_t refusedNumber_ = 0;
  bool brokeOff_ = false;
  std::string parts_;
};

/// How one run of the parser over a text ended.
struct Outcome {
  bool done = false;
  bool brokeOff = false;      // by the sink
  bool longExponent = false;  // the parser's own limit, not JSON's
  std::size_t delivered = 0;
  std::size_t refusedNumber = 0;
  JsonParseError error;
};

template <class Sink>
Outcome RunParser(std::string_view parsed, std::string_view text, Sink& sink,
                  std::size_t delivered) {
  boost::json::parse_options options;
  options.max_depth = JsonReader::kMaxDepth;
  options.allow_invalid_utf8 = true;  // judged before where it matters
  boost::json::basic_parser<Events<Sink>> parser(options, sink, parsed, text, delivered);
  boost::json::error_code failure;
  const std::size_t used = parser.write_some(false, parsed.data(), parsed.size(), failure);
  Outcome outcome;
  outcome.brokeOff = parser.handler().BrokeOff();
  outcome.delivered = parser.handler().Delivered();
  outcome.refusedNumber = parser.handler().RefusedNumber();
  outcome.longExponent = failure == boost::json::error::exponent_overflow;
  outcome.done = !failure && used == parsed.size();
  if (outcome.done || outcome.brokeOff) return outcome;
  outcome.error = {used, failure ? failure.message() : "more after the value"};
  return outcome;
}

template <class Sink>
Outcome Read(std::string_view text, Sink& sink, const JsonReadOptions& options) {
  // The parser counts digits in int.
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return {.error = {0, "text too large"}};
  }
  if (options.requireUtf8) {
    const std::size_t invalid = FirstInvalidUtf8(text);
    if (invalid != text.size()) return {.error = {invalid, "invalid UTF-8"}};
  }
  if (options.allowComments && MayHoldJsonComment(text)) {
    return RunParser(PlainJsonText(text, true), text, sink, 0);
  }
  Outcome outcome = RunParser(text, text, sink, 0);
  if (!outcome.longExponent) return outcome;
  return RunParser(PlainJsonText(text, options.allowComments), text, sink, outcome.delivered);
}

}  // namespace

bool JsonReader::Parse(std::string_view text, JsonValue& value, JsonParseError* error,
                       const JsonReadOptions& options) {
  JsonTreeBuilder builder;
  Outcome outcome = Read(text, builder, options);
  if (outcome.done) {
    value = builder.Take();
    return true;
  }
  value = JsonValue();
  if (outcome.brokeOff) {
    outcome.error = {outcome.refusedNumber, "number beyond the range of a double"};
  }
  if (error != nullptr) *error = std::move(outcome.error);
  return false;
}

bool JsonReader::Parse(std::string_view text, JsonHandler& handler, JsonParseError* error,
                       const JsonReadOptions& options) {
  HandlerSink sink(handler);
  Outcome outcome = Read(text, sink, options);
  if (outcome.done) return true;
  if (!outcome.brokeOff && error != nullptr) *error = std::move(outcome.error);
  return false;
}

}  // namespace keelstone
