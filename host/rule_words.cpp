#include "host/rule_words.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "calc/ksruleglobalsetting.h"
#include "platform/json_reader.h"
#include "platform/json_value.h"
#include "platform/text_escape.h"

namespace keelstone::host {

namespace {

constexpr std::size_t kShownBytes = 120;
constexpr std::size_t kShownElements = 12;

/// How each kind of rule is told: `withParameter` before its "ruleParam", `without` when
/// it has none (a counter that is learned carries no bound).
struct Wording {
  std::string_view withParameter;
  std::string_view without;
};

constexpr std::array<Wording, kRuleTypeCount> kWordings = {{
    {"always ", "always the same"},                // strEqual
    {"none of ", ""},                              // strNoEqual
    {"one of ", ""},                               // strEnum
    {"matching ", ""},                             // strRegex
    {"always ", "always the same"},                // intEqual
    {"none of ", ""},                              // intNoEqual
    {"one of ", ""},                               // intEnum
    {"between ", ""},                              // intRange
    {"constant at ", "constant"},                  // intConstant
    {"rising from ", "rising"},                    // intIncrease
    {"at most ", ""},                              // intLEQ
    {"at least ", ""},                             // intGEQ
    {"the table with digest ", "the same table"},  // tableMd5
}};

std::string ValueText(const JsonValue& value) {
  if (!value.isArray()) {
    return Printable(value.isString() ? '"' + value.stringRef() + '"' : value.toString(),
                     kShownBytes);
  }
  std::string text;
  for (auto element = value.begin(); element != value.end(); ++element) {
    if (!text.empty()) text += ", ";
    if (element.index() == kShownElements) return text + "…";
    text += ValueText(*element);
  }
  return text.empty() ? "nothing" : text;
}

}  // namespace

std::string RuleInWords(EnumRuleType type, const std::string& parameter) {
  // The value at which a first rule is learned is judged by it already.
  if (type == kRuleTypeNone) return "what was learned just now";
  JsonValue document;
  const bool isKnown = type >= 0 && type < kRuleTypeCount;
  if (isKnown && JsonReader::Parse(parameter, document) && document.isObject()) {
    const Wording& wording = kWordings[static_cast<std::size_t>(type)];
    const JsonValue* value = document.find(type == kTableMd5 ? "hashCmp" : "ruleParam");
    const JsonValue* least = document.find("minValue");
    const JsonValue* most = document.find("maxValue");
    if (type == kIntRange && least != nullptr && most != nullptr) {
      return "between " + ValueText(*least) + " and " + ValueText(*most);
    }
    if (type != kIntRange && value != nullptr) {
      return std::string(wording.withParameter) + ValueText(*value);
    }
    if (document.empty() && !wording.without.empty()) return std::string(wording.without);
  } else if (isKnown && parameter.empty()) {
    const std::string_view words = kWordings[static_cast<std::size_t>(type)].without;
    if (!words.empty()) return std::string(words);
  }
  const std::string_view name = RuleTypeName(type);
  return std::string(name.empty() ? "no rule" : name) + " " + Printable(parameter, kShownBytes);
}

}  // namespace keelstone::host
