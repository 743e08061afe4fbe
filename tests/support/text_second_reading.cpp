#include "tests/support/text_second_reading.h"

#include <cmath>
#include <cstdio>
#include <regex>

namespace keelstone::testing::plain {

namespace {

enum : int { kEqual, kNoEqual, kEnum, kRegex, kTable = 12 };

std::string Ratio(double value) {
  char digits[64];
  std::snprintf(digits, sizeof digits, "%.17e", value);
  return digits;
}

std::string List(const std::set<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ",") + Quote(text);
  return "[" + list + "]";
}

std::string Strip(std::string text, const std::string& blanks) {
  while (!text.empty() && blanks.find(text.front()) != std::string::npos) text.erase(0, 1);
  while (!text.empty() && blanks.find(text.back()) != std::string::npos) text.pop_back();
  return text;
}

/// The newest point with the same text at k - 1 points right before it.
const SeenText* FindStable(const std::vector<SeenText>& history, int k) {
  for (std::size_t newest = history.size(); newest-- > 0;) {
    bool isRun = true;
    for (int back = 1; back < k && isRun; ++back) {
      const auto behind = static_cast<std::size_t>(back);
      isRun = behind <= newest && history[newest - behind].value == history[newest].value;
    }
    if (isRun) return &history[newest];
  }
  return nullptr;
}

bool Lasts(const std::vector<SeenText>& history, const TextSettings::Lasting& set) {
  const TextStatistics s = ObserveTexts(history);
  if (s.count <= set.dataCountMinLimit) return false;
  if (static_cast<int>(s.occurrences.size()) > set.valueStatusCount) return false;
  if (!(static_cast<double>(s.changeFrequency) < set.changeFrequency)) return false;
  return FindStable(history, set.countEqualValueLimit) != nullptr;
}

bool Varies(const std::vector<SeenText>& history, const TextSettings::Enum& set) {
  const TextStatistics s = ObserveTexts(history);
  if (s.count < set.dataCountMinLimit) return false;
  if (static_cast<int>(s.occurrences.size()) > set.valueStatusCount) return false;
  return static_cast<double>(s.changeFrequency) >= set.changeFrequency;
}

bool TakeStable(TextRule& rule, const std::vector<SeenText>& history,
                const TextSettings::Lasting& set) {
  const SeenText* const stable = FindStable(history, set.countEqualValueLimit);
  if (stable == nullptr) return false;
  rule.text = stable->value;
  rule.columns = stable->columns;
  rule.sorted = stable->sorted;
  rule.golden = *stable;
  return true;
}

bool TakeFrequent(TextRule& rule, const std::vector<SeenText>& history, double ratio) {
  const TextStatistics s = ObserveTexts(history);
  std::set<std::string> frequent;
  if (std::fabs(ratio) >= 0.00001) {
    for (const auto& [text, times] : s.occurrences) {
      const double share = times / static_cast<double>(s.occurrences.size());
      if (share - ratio > 0.000001) frequent.insert(text);
    }
  }
  if (frequent.empty()) return false;
  rule.texts = frequent;
  for (std::size_t i = history.size(); i-- > 0;) {
    if (frequent.count(history[i].value) == 0) continue;
    rule.golden = history[i];
    return true;
  }
  return false;
}

}  // namespace

std::string TextSettings::ToJson() const {
  const auto whole = [](const char* key, int value) {
    return Quote(key) + ":" + std::to_string(value);
  };
  const auto lasting = [&](const Lasting& s) {
    return "{" + whole("dataCountMinLimit", s.dataCountMinLimit) + "," +
           whole("valueStatusCount", s.valueStatusCount) +
           ",\"changeFrequency\":" + Ratio(s.changeFrequency) + "," +
           whole("countEqualValueLimit", s.countEqualValueLimit) + "," +
           whole("timeIntervalLimit", s.timeIntervalLimit) + "," +
           whole("dataCountHistory", s.dataCountHistory) + "}";
  };
  const Enum& e = enumeration;
  return "{\"strEqual\":" + lasting(equal) + ",\"tableMd5\":" + lasting(table) + ",\"strEnum\":{" +
         whole("dataCountMinLimit", e.dataCountMinLimit) + "," +
         whole("valueStatusCount", e.valueStatusCount) +
         ",\"changeFrequency\":" + Ratio(e.changeFrequency) +
         ",\"alertThreshold\":" + Ratio(e.alertThreshold) + "," +
         whole("timeIntervalLimit", e.timeIntervalLimit) + "," +
         whole("dataCountHistory", e.dataCountHistory) + "}}";
}

std::string Quote(const std::string& bytes) {
  std::string text = "\"";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    const std::string named = "\"\\\n\t\r\b\f";
    const auto at = named.find(c);
    if (at != std::string::npos) {
      text += std::string("\\") + "\"\\ntrbf"[at];
    } else if (byte < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", byte);
      text += escape;
    } else {
      text += c;
    }
  }
  return text + "\"";
}

std::string TextHistory(const std::vector<SeenText>& history) {
  if (history.empty()) return "";
  std::string list;
  for (const SeenText& seen : history) {
    list += (list.empty() ? "" : ",") + ("{\"liveTime\":" + std::to_string(seen.time)) +
            ",\"dataValue\":" + Quote(seen.value) + "}";
  }
  return "{\"dataType\":4,\"dataList\":[" + list + "]}";
}

TextStatistics ObserveTexts(const std::vector<SeenText>& history) {
  TextStatistics s;
  s.count = static_cast<int>(history.size());
  int changes = 0;
  for (std::size_t i = 0; i < history.size(); ++i) {
    ++s.occurrences[history[i].value];
    if (i > 0 && history[i].value != history[i - 1].value) ++changes;
  }
  if (s.count > 1)
    s.changeFrequency = static_cast<float>(changes) / static_cast<float>(s.count - 1);
  return s;
}

std::string TextRule::ParamText() const {
  if (type == kEnum || type == kNoEqual) return "{\"ruleParam\":" + List(texts) + "}";
  if (type != kTable) return "{\"ruleParam\":" + Quote(text) + "}";
  return "{\"hashCmp\":" + Quote(text) + ",\"hashSort\":" + (sorted ? "true" : "false") +
         ",\"hashColumns\":" + List(columns) + "}";
}

std::string TextRule::GoldenText() const {
  if (type != kTable) return golden.value;
  if (golden.table.empty() || golden.table.front() != '{') return "";
  return golden.table.substr(0, golden.table.size() - 1) + (golden.table == "{}" ? "" : ",") +
         "\"hashCmp\":" + Quote(golden.value) +
         ",\"hashSort\":" + (golden.sorted ? "true" : "false") +
         ",\"hashColumns\":" + List(golden.columns) + "}";
}

bool TextRule::SameAs(const TextRule& other) const {
  return type == other.type && text == other.text && texts == other.texts;
}

bool TextRule::Alerts(const std::string& value) const {
  switch (type) {
    case kEqual:
      return Strip(value, " \n") != Strip(text, " \n");
    case kNoEqual:
      return texts.count(value) > 0;
    case kEnum:
      return texts.count(value) == 0;
    case kRegex:
      return !std::regex_search(value, std::regex(text, std::regex::icase));
    default:
      return value != text;
  }
}

bool TextRule::TakesAsGolden(const SeenText& seen) {
  if (type == kTable ? seen.value != golden.value : Alerts(seen.value)) return false;
  golden = seen;
  return true;
}

std::optional<LearnedText> LearnText(const std::vector<SeenText>& history, bool areTables,
                                     const TextSettings& settings) {
  if (history.empty()) return std::nullopt;
  LearnedText learned;
  if (areTables) {
    if (!Lasts(history, settings.table)) return std::nullopt;
    learned.rule.type = kTable;
    learned.updated = TakeStable(learned.rule, history, settings.table);
  } else if (Lasts(history, settings.equal)) {
    learned.rule.type = kEqual;
    learned.updated = TakeStable(learned.rule, history, settings.equal);
  } else if (Varies(history, settings.enumeration)) {
    learned.rule.type = kEnum;
    learned.updated = TakeFrequent(learned.rule, history, settings.enumeration.alertThreshold);
  } else {
    return std::nullopt;
  }
  return learned;
}

void TextVariable::Prescribe(const TextRule& rule) {
  prescribed_ = true;
  rule_ = rule;
}

TextVariable::Answer TextVariable::See(SeenText seen, bool onDemand) {
  Answer answer;
  const std::string asItCame = seen.value;
  if (!isTable_) seen.value = Strip(seen.value, " ");
  const int oldType = rule_ ? rule_->type : -1;
  const std::string oldParam = rule_ ? rule_->ParamText() : "";

  int limit = 1800;
  int keep = isTable_ ? 5 : 10;
  if (rule_ && isTable_) {
    limit = 0;
    keep = settings_.table.dataCountHistory;
  } else if (rule_) {
    const bool isEnum = rule_->type == kEnum;
    limit = isEnum ? settings_.enumeration.timeIntervalLimit : settings_.equal.timeIntervalLimit;
  }
  const std::int64_t age = seen.time - (history_.empty() ? -1 : history_.back().time);
  bool golden = false;
  bool changed = false;
  if (!onDemand && !prescribed_ && age > limit) {
    if (auto learned = LearnText(history_, isTable_, settings_)) {
      changed = !rule_ || !learned->rule.SameAs(*rule_);
      golden = changed && learned->updated;
      rule_ = learned->rule;
    }
    if (rule_ && isTable_) keep = settings_.table.dataCountHistory;
    if (rule_ && !isTable_) {
      keep = rule_->type == kEnum ? settings_.enumeration.dataCountHistory
                                  : settings_.equal.dataCountHistory;
    }
    while (!history_.empty() && static_cast<int>(history_.size()) >= keep) {
      history_.erase(history_.begin());
    }
    history_.push_back(seen);
  } else if (rule_ && prescribed_) {
    golden = rule_->TakesAsGolden(seen);
  }
  if (!rule_) return answer;

  if (rule_->Alerts(seen.value)) {
    answer.alert = "{\"_t\":" + std::to_string(oldType) + ",\"_p\":" + Quote(oldParam) +
                   ",\"_v\":" + Quote(asItCame) + "}";
  }
  if (golden) {
    answer.golden = rule_->GoldenText();
    answer.goldenTime = rule_->golden.time;
  }
  if (changed) {
    answer.ruleParam = rule_->ParamText();
    answer.ruleType = rule_->type;
  }
  // The next run builds the rule from its stored parameter, and stored it is when changed.
  if (changed || !stored_) stored_ = rule_;
  rule_ = stored_;
  rule_->golden = SeenText();
  return answer;
}

}  // namespace keelstone::testing::plain
