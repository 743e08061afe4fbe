#include "program/report/report_variable.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "keelstone/compressor.h"
#include "keelstone/expectation.h"
#include "keelstone/json_reader.h"
#include "program/report/script_json.h"

namespace keelstone::host {

namespace {

constexpr std::size_t kTableBytes = 256U << 10U;       // of one content
constexpr std::size_t kVariableTables = 1024U << 10U;  // of all contents of a variable

/// Members and elements separated by commas.
class Listed {
 public:
  explicit Listed(std::string& out) : out_(out) {}
  std::string& Next() {
    if (!isFirst_) out_.push_back(',');
    isFirst_ = false;
    return out_;
  }

 private:
  std::string& out_;
  bool isFirst_ = true;
};

void AppendNumber(std::string& out, std::int64_t number) { out.append(std::to_string(number)); }

void AppendCount(std::string& out, std::uint64_t number) { out.append(std::to_string(number)); }

struct HistoryPoint {
  std::int64_t time;
  const JsonValue* element;
  const JsonValue* value;
};

/// The points of a history's "dataList"; nothing when it holds anything else.
std::vector<HistoryPoint> PointsOf(const JsonValue& history, bool isText) {
  std::vector<HistoryPoint> points;
  const JsonValue* const list = history.isObject() ? history.find("dataList") : nullptr;
  if (list == nullptr || !list->isArray()) return {};
  for (const JsonValue& element : *list) {
    const JsonValue* const time = element.isObject() ? element.find("liveTime") : nullptr;
    const JsonValue* const value = element.isObject() ? element.find("dataValue") : nullptr;
    if (time == nullptr || !time->isInt64() || value == nullptr) return {};
    if (isText ? !value->isString() : !value->isNumeric()) return {};
    points.push_back({time->asInt64(), &element, value});
  }
  return points;
}

/// Times as the first and the differences that follow.
void AppendTimes(std::string& out, const std::vector<HistoryPoint>& points) {
  out.append(",\"t\":[");
  Listed times(out);
  std::int64_t before = 0;
  for (const HistoryPoint& point : points) {
    // What a foreign hand wrote may be further away than the page can show.
    const std::int64_t time = std::clamp<std::int64_t>(point.time, -(1LL << 40), 1LL << 40);
    AppendNumber(times.Next(), time - before);
    before = time;
  }
  out.push_back(']');
}

void AppendNumbers(std::string& out, const std::vector<HistoryPoint>& points) {
  out.append(",\"v\":[");
  Listed values(out);
  for (const HistoryPoint& point : points) AppendScriptNumber(values.Next(), *point.value);
  out.push_back(']');
}

/// Each distinct text once, and the points as places among them.
std::map<std::string_view, std::size_t> AppendTexts(std::string& out,
                                                    const std::vector<HistoryPoint>& points) {
  std::map<std::string_view, std::size_t> places;
  out.append(",\"x\":[");
  Listed texts(out);
  for (const HistoryPoint& point : points) {
    const std::string_view text = point.value->stringRef();
    if (places.try_emplace(text, places.size()).second) AppendScriptString(texts.Next(), text);
  }
  out.append("],\"i\":[");
  Listed indices(out);
  for (const HistoryPoint& point : points) {
    AppendCount(indices.Next(), places.at(point.value->stringRef()));
  }
  out.push_back(']');
  return places;
}

/// The content of a table in the history: {"columns","rows","keys"}; empty when it cannot
/// be had or is too long.
std::string TableText(const JsonValue& element) {
  const JsonValue* const packed = element.find("tableValue");
  const JsonValue* const size = element.find("rawValueSize");
  if (packed == nullptr || size == nullptr || !size->isInt64()) return {};
  if (size->asInt64() < 0 || size->asInt64() > static_cast<std::int64_t>(kTableBytes)) return {};
  std::string text;
  try {
    text = packed->asBinary();
  } catch (const JsonError&) {
    return {};
  }
  JsonValue content;
  if (!DecompressString(text, size->asInt64()) || !JsonReader::Parse(text, content) ||
      !content.isObject()) {
    return {};
  }
  const JsonValue* const keys = element.find("hashColumns");
  if (keys != nullptr) content["keys"] = *keys;
  return ScriptText(content);
}

/// The contents of the history's tables by their digests, newest first as long as there is
/// room.
void AppendTables(std::string& out, const std::vector<HistoryPoint>& points, TableBudget& budget) {
  std::map<std::string_view, bool> seen;
  std::size_t bytes = 0;
  out.append(",\"c\":{");
  Listed tables(out);
  for (auto point = points.rbegin(); point != points.rend(); ++point) {
    if (!seen.try_emplace(point->value->stringRef(), true).second) continue;
    const std::string text = TableText(*point->element);
    if (text.empty() || bytes + text.size() > kVariableTables || text.size() > budget.bytes) {
      continue;
    }
    bytes += text.size();
    budget.bytes -= text.size();
    AppendScriptString(tables.Next(), point->value->stringRef());
    out.append(":").append(text);
  }
  out.push_back('}');
}

void AppendHistory(std::string& out, const std::string& text, TableBudget& budget) {
  JsonValue history;
  const bool isRead = !text.empty() && JsonReader::Parse(text, history) && history.isObject();
  const JsonValue* const type = isRead ? history.find("dataType") : nullptr;
  const int kind = type != nullptr && type->isInt() ? type->asInt() : 0;
  const bool isText = kind >= 4;
  const std::vector<HistoryPoint> points =
      kind >= 1 && kind <= 5 ? PointsOf(history, isText) : std::vector<HistoryPoint>();
  if (points.empty()) {
    out.append(text.empty() ? R"("k":0)" : R"("k":0,"damaged":true)");
    return;
  }
  out.append("\"k\":");
  AppendNumber(out, kind);
  AppendTimes(out, points);
  if (!isText) return AppendNumbers(out, points);
  AppendTexts(out, points);
  if (kind == 5) AppendTables(out, points, budget);
}

/// [time, value, rule type, parameter, expectation, blocked, explanation]
void AppendAlert(std::string& out, const FoundAlert& alert) {
  out.push_back('[');
  Listed fields(out);
  AppendNumber(fields.Next(), alert.time);
  if (alert.value) {
    AppendCount(fields.Next(), *alert.value);
  } else {
    fields.Next().append("null");
  }
  AppendNumber(fields.Next(), alert.type);
  AppendCount(fields.Next(), alert.parameter);
  AppendCount(fields.Next(), alert.expectation);
  fields.Next().append(alert.blocked ? "1" : "0");
  fields.Next().append(alert.explanation.empty() ? "null" : alert.explanation);
  out.push_back(']');
}

/// [opened, last, count, end, cleared, alerts]
void AppendEpisode(std::string& out, const FoundEpisode& episode) {
  out.push_back('[');
  Listed fields(out);
  AppendNumber(fields.Next(), episode.opened);
  AppendNumber(fields.Next(), episode.last);
  AppendCount(fields.Next(), episode.count);
  AppendNumber(fields.Next(), static_cast<int>(episode.end));
  AppendNumber(fields.Next(), episode.cleared);
  fields.Next().push_back('[');
  Listed alerts(out);
  for (const FoundAlert& alert : episode.first) AppendAlert(alerts.Next(), alert);
  for (const FoundAlert& alert : episode.newest) AppendAlert(alerts.Next(), alert);
  out.append("]]");
}

void AppendFindings(std::string& out, const VariableFindings& findings) {
  out.append(",\"s\":[");
  Listed texts(out);
  for (const std::string& text : findings.texts) AppendScriptString(texts.Next(), text);
  out.append("],\"r\":[");
  Listed rules(out);
  for (const FoundRule& rule : findings.rules) {
    rules.Next().push_back('[');
    Listed fields(out);
    AppendNumber(fields.Next(), rule.time);
    AppendNumber(fields.Next(), rule.type);
    AppendCount(fields.Next(), rule.parameter);
    AppendCount(fields.Next(), rule.expectation);
    out.push_back(']');
  }
  out.append("],\"g\":[");
  Listed goldenValues(out);
  for (const FoundGoldenValue& golden : findings.goldenValues) {
    goldenValues.Next().push_back('[');
    AppendNumber(out, golden.time);
    out.push_back(',');
    AppendCount(out, golden.value);
    out.push_back(']');
  }
  out.append("],\"e\":[");
  Listed episodes(out);
  for (const FoundEpisode& episode : findings.episodes) AppendEpisode(episodes.Next(), episode);
  out.append("],\"dropped\":");
  AppendCount(out, findings.episodesDropped);
  if (findings.refused == 0) return;
  out.append(",\"f\":[");
  Listed refused(out);
  AppendCount(refused.Next(), findings.refused);
  AppendNumber(refused.Next(), findings.refusedTime);
  AppendCount(refused.Next(), findings.refusedReason);
  out.push_back(']');
}

/// What a row tells of a history.
struct Extent {
  EnumKSDataType type = KSDataUnknown;
  std::size_t points = 0;
  std::int64_t newest = 0;  // 0: none
};

Extent ExtentOf(const std::string& text) {
  JsonValue history;
  if (text.empty() || !JsonReader::Parse(text, history) || !history.isObject()) return {};
  Extent extent;
  const JsonValue* const type = history.find("dataType");
  const JsonValue* const list = history.find("dataList");
  if (type != nullptr && type->isInt() && type->asInt() >= KSDataInt64 &&
      type->asInt() <= KSDataTable) {
    extent.type = static_cast<EnumKSDataType>(type->asInt());
  }
  if (list == nullptr || !list->isArray() || list->empty()) return extent;
  extent.points = list->size();
  const JsonValue& newest = std::as_const(*list)[list->size() - 1];
  const JsonValue* const time = newest.isObject() ? newest.find("liveTime") : nullptr;
  if (time != nullptr && time->isInt64()) extent.newest = time->asInt64();
  return extent;
}

}  // namespace

std::string ReportRow(const ReportKey& key, const StoredObject& stored,
                      const VariableFindings* findings) {
  std::string out = "[";
  Listed fields(out);
  for (const std::string& part : key) AppendScriptString(fields.Next(), part);
  AppendNumber(fields.Next(), stored.hasRule ? stored.ruleType : -1);
  // 0 learned, 1 prescribed, 2 no rule yet, 3 not stored
  const bool isStored = stored.hasRule || !stored.history.empty();
  const int origin = stored.hasRule ? (stored.isLearned() ? 0 : 1) : isStored ? 2 : 3;
  AppendNumber(fields.Next(), origin);
  const Extent extent = ExtentOf(stored.history);
  const bool isJudged = stored.hasRule && stored.ruleType >= 0;
  AppendScriptString(fields.Next(),
                     isJudged ? KSExpectation::Of(static_cast<EnumRuleType>(stored.ruleType),
                                                  stored.parameter, extent.type)
                                    .words
                              : "");
  AppendCount(fields.Next(), extent.points);
  AppendNumber(fields.Next(), extent.newest);
  AppendCount(fields.Next(), findings != nullptr ? findings->alerts : 0);
  fields.Next().push_back('[');
  if (findings != nullptr) {
    Listed spans(out);
    for (const FoundEpisode& episode : findings->episodes) {
      AppendNumber(spans.Next(), episode.opened);
      AppendNumber(spans.Next(), episode.last);
    }
  }
  const bool isOpen = findings != nullptr && !findings->episodes.empty() &&
                      findings->episodes.back().end == FoundEpisode::End::kOpen;
  out.append(isOpen ? "],1," : "],0,");
  AppendCount(out, findings != nullptr ? findings->episodesDropped : 0);
  return out.append("]");
}

std::string ReportDetail(const StoredObject& stored, const VariableFindings* findings,
                         TableBudget& budget) {
  std::string out = "{";
  AppendHistory(out, stored.history, budget);
  if (stored.hasRule) {
    out.append(",\"p\":");
    AppendScriptString(out, stored.parameter);
  }
  if (findings != nullptr) AppendFindings(out, *findings);
  return out.append("}");
}

}  // namespace keelstone::host
