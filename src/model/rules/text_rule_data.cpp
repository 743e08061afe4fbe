#include "keelstone/text_rule_data.h"

#include <optional>
#include <utility>

#include "keelstone/json_reader.h"
#include "keelstone/json_value.h"
#include "keelstone/logger.h"
#include "model/history/own_text.h"

namespace keelstone {

namespace {

constexpr std::string_view kParamKey = "{\"ruleParam\":";

/// Runs `read` on the document of a parameter text; false when it is none or refuses.
template <class Reading>
bool ReadParam(const std::string& text, Reading read) {
  JsonValue document;
  if (text.empty() || !JsonReader::Parse(text, document)) return false;
  try {
    read(std::as_const(document));
    return true;
  } catch (const JsonError&) {
    return false;
  }
}

std::set<std::string> ReadTexts(const JsonValue& list) {
  std::set<std::string> texts;
  if (!list.isArray()) return texts;
  for (const JsonValue& text : list) texts.insert(text.asString());
  return texts;
}

JsonValue WriteTexts(const std::set<std::string>& texts) {
  JsonValue list(JsonType::Array);
  for (const std::string& text : texts) list.append(text);
  return list;
}

std::string LogGoldenFailure(const char* message) {
  KS_LOG("FS_Keelstone", "TablMd5EqualData::GetGlodenValue", "ksruledata", kLogError, "%s",
         message);
  return {};
}

}  // namespace

void StrEqualData::Clear() {
  ruleParam.clear();
  golden = KSDataPoint<std::string>(0, {});
}

bool StrEqualData::TakeOwnText(std::string_view text) {
  OwnTextReader reader(text);
  std::string_view param;
  if (!reader.Skip(kParamKey) || !reader.Read(param)) return false;
  if (!reader.Skip('}') || !reader.AtEnd()) return false;
  ruleParam = param;
  return true;
}

bool StrEqualData::ParseParam(const std::string& text) {
  if (TakeOwnText(text)) return true;
  return ReadParam(text,
                   [this](const JsonValue& param) { ruleParam = param["ruleParam"].asString(); });
}

std::string StrEqualData::ParamToString() const {
  std::string text(kParamKey);
  AppendString(text, ruleParam);
  return text += '}';
}

bool StrEqualData::IsEqual(const KSRuleDataBase* other) const {
  const auto* const same = dynamic_cast<const StrEqualData*>(other);
  return same != nullptr && ruleParam == same->ruleParam;
}

void StrEnumData::Clear() {
  values.clear();
  golden = KSDataPoint<std::string>(0, {});
}

bool StrEnumData::TakeOwnText(std::string_view text) {
  OwnTextReader reader(text);
  std::set<std::string> texts;
  std::string_view one;
  if (!reader.Skip(kParamKey) || !reader.Skip('[')) return false;
  do {
    if (!reader.Read(one)) return false;
    // In another order somebody else has written them.
    if (!texts.empty() && one <= *texts.rbegin()) return false;
    texts.emplace_hint(texts.end(), one);
  } while (reader.Skip(','));
  if (!reader.Skip("]}") || !reader.AtEnd()) return false;
  values = std::move(texts);
  return true;
}

bool StrEnumData::ParseParam(const std::string& text) {
  if (TakeOwnText(text)) return true;
  return ReadParam(text,
                   [this](const JsonValue& param) { values = ReadTexts(param["ruleParam"]); });
}

std::string StrEnumData::ParamToString() const {
  std::string text(kParamKey);
  text += '[';
  for (auto value = values.begin(); value != values.end(); ++value) {
    if (value != values.begin()) text += ',';
    AppendString(text, *value);
  }
  return text += "]}";
}

bool StrEnumData::IsEqual(const KSRuleDataBase* other) const {
  const auto* const same = dynamic_cast<const StrEnumData*>(other);
  return same != nullptr && values == same->values;
}

void TablMd5EqualData::Clear() {
  hashCmp.clear();
  hashColumns.clear();
  hashSort = false;
  golden = KSTableDataPoint(0, {});
}

bool TablMd5EqualData::ParseParam(const std::string& text) {
  return ReadParam(text, [this](const JsonValue& param) {
    std::string digest = param["hashCmp"].asString();
    const bool sorted = param["hashSort"].asBool();
    hashColumns = ReadTexts(param["hashColumns"]);
    hashCmp = std::move(digest);
    hashSort = sorted;
  });
}

std::string TablMd5EqualData::ParamToString() const {
  JsonValue param(JsonType::Object);
  param["hashCmp"] = hashCmp;
  param["hashSort"] = hashSort;
  param["hashColumns"] = WriteTexts(hashColumns);
  return param.toString();
}

std::string TablMd5EqualData::GetGlodenValue() const {
  const std::optional<std::string> text = golden.content->GetTableText();
  if (!text) return LogGoldenFailure("Uncompress table value is failure");
  JsonValue table;
  if (!JsonReader::Parse(*text, table) || !table.isObject()) {
    return LogGoldenFailure("Table value is not a JSON object");
  }
  table["hashCmp"] = golden.value;
  table["hashSort"] = golden.content->hashSort;
  table["hashColumns"] = WriteTexts(golden.content->hashColumns);
  return table.toString();
}

bool TablMd5EqualData::IsEqual(const KSRuleDataBase* other) const {
  const auto* const same = dynamic_cast<const TablMd5EqualData*>(other);
  return same != nullptr && hashCmp == same->hashCmp;
}

}  // namespace keelstone
