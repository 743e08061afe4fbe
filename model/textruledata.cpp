#include "model/textruledata.h"

#include <optional>
#include <utility>

#include "platform/json_reader.h"
#include "platform/json_value.h"
#include "platform/logger.h"

namespace keelstone {

namespace {

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

bool StrEqualData::ParseParam(const std::string& text) {
  return ReadParam(text,
                   [this](const JsonValue& param) { ruleParam = param["ruleParam"].asString(); });
}

std::string StrEqualData::ParamToString() const {
  JsonValue param(JsonType::Object);
  param["ruleParam"] = ruleParam;
  return param.toString();
}

bool StrEqualData::IsEqual(const KSRuleDataBase* other) const {
  const auto* const same = dynamic_cast<const StrEqualData*>(other);
  return same != nullptr && ruleParam == same->ruleParam;
}

void StrEnumData::Clear() {
  values.clear();
  golden = KSDataPoint<std::string>(0, {});
}

bool StrEnumData::ParseParam(const std::string& text) {
  return ReadParam(text,
                   [this](const JsonValue& param) { values = ReadTexts(param["ruleParam"]); });
}

std::string StrEnumData::ParamToString() const {
  JsonValue param(JsonType::Object);
  param["ruleParam"] = WriteTexts(values);
  return param.toString();
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
