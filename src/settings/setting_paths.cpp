#include "keelstone/setting_paths.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

#include "base/text/numbers.h"
#include "keelstone/rule_global_setting.h"

namespace keelstone {

namespace {

constexpr std::size_t kMostNear = 3;

constexpr double kMostWhole = std::numeric_limits<std::int32_t>::max();
constexpr double kLeastWhole = std::numeric_limits<std::int32_t>::min();

/// By path first, then by the last member.
constexpr std::array<SettingRange, 16> kRanges = {{
    {"timeIntervalLimit", 0, kMostWhole},
    {"dataCountHistory", 1, 10000},
    {"dataCountMinLimit", 0, kMostWhole},
    {"dataCountThreshold", 0, kMostWhole},
    {"valueStatusCount", 0, kMostWhole},
    {"countEqualValueLimit", 0, kMostWhole},
    {"changeFrequency", 0, 1},
    {"deltaEZero", 0, 1},
    {"alertThreshold", 0, 10000, true},
    {"upperBoundMaxValue", 0, kMostWhole},
    {"percentageMaxValue", 0, kMostWhole},
    {"stdCoefficient", 0, kMostWhole},
    {"deltaLZeroCount", 0, kMostWhole},
    {"deltaLZeroValue", 0, kMostWhole},
    {"KSTableCountLimit", 0, kMostWhole},
    {"KSStrRowCountLimit", 0, kMostWhole},
}};
constexpr SettingRange kAnyWhole = {"", kLeastWhole, kMostWhole};

const SettingRange& RangeOf(const SettingPath& setting) {
  const std::string& last = setting.members.empty() ? setting.path : setting.members.back();
  for (const std::string* name : {&setting.path, &last}) {
    for (const SettingRange& range : kRanges) {
      if (*name == range.name) return range;
    }
  }
  return kAnyWhole;
}

std::string NumberText(double number) {
  return std::to_string(static_cast<std::int64_t>(number));  // ends of ranges are whole
}

std::string Demand(SettingKind kind, const SettingRange& range) {
  const std::string what = kind == SettingKind::kWhole ? "a whole number" : "a number";
  if (range.least == kLeastWhole) return what + " within 32 bits";
  return what + (range.isAbove ? " above " : " from ") + NumberText(range.least) +
         (range.isAbove ? ", at most " : " to ") + NumberText(range.most);
}

bool IsWithin(const SettingRange& range, double number) {
  return number >= range.least && number <= range.most && !(range.isAbove && number == range.least);
}

bool AcceptNumber(SettingKind kind, const SettingRange& range, JsonValue& value) {
  if (kind == SettingKind::kRatio) return value.isNumeric() && IsWithin(range, value.asDouble());
  if (!value.isInt() || !IsWithin(range, value.asInt())) return false;
  value = value.asInt();
  return true;
}

bool AcceptSwitch(JsonValue& value) {
  if (value.isBool()) value = value.asBool() ? "true" : "false";
  return value.isString() && (value.stringRef() == "true" || value.stringRef() == "false");
}

bool IsFilter(const JsonValue& value) {
  const JsonValue* const entries = value.find("value");
  if (entries == nullptr || !entries->isArray() || value.size() != 1) return false;
  for (const JsonValue& entry : *entries) {
    if (!entry.isString()) return false;
  }
  return true;
}

void AddMembers(const JsonValue& defaults, const SettingPath& above,
                std::vector<SettingPath>& all) {
  for (auto member = defaults.begin(); member != defaults.end(); ++member) {
    SettingPath path = above;
    path.path.append(above.members.empty() ? "" : ".").append(member.name());
    path.members.push_back(member.name());
    if (member->isObject()) {
      AddMembers(*member, path, all);
      continue;
    }
    path.kind = member->type() == JsonType::Int ? SettingKind::kWhole : SettingKind::kRatio;
    all.push_back(std::move(path));
  }
}

/// Characters to be added, dropped or exchanged to make one text of the other.
std::size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t exchanged = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({exchanged, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

/// Paths that somebody may have meant who wrote this one; the nearest first.
std::vector<std::string> NearPaths(const std::string& path, const std::vector<SettingPath>& all) {
  constexpr std::size_t kLongestPath = 200;  // beyond that it is no slip of the pen
  if (path.size() > kLongestPath) return {};
  std::vector<std::pair<std::size_t, std::string>> ranked;
  for (const SettingPath& known : all) {
    const bool isPart = known.path.find(path) != std::string::npos;
    const std::size_t distance = isPart ? 0 : Distance(path, known.path);
    if (distance <= 2 + path.size() / 3) ranked.emplace_back(distance, known.path);
  }
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  // A part of paths, such as a rule type, means all that hold it.
  const bool hasParts = !ranked.empty() && ranked.front().first == 0;
  std::vector<std::string> near;
  for (const auto& [distance, name] : ranked) {
    if (hasParts ? distance > 0 : near.size() == kMostNear) break;
    near.push_back(name);
  }
  return near;
}

std::string Below(const std::string& path, const std::vector<std::string>& members,
                  const std::string& name) {
  return members.empty() ? name : path + "." + name;
}

/// Checks the members of `object`, which lies at `path`, and makes them what is stored.
std::string AcceptMembers(JsonValue& object, const std::string& path,
                          const std::vector<std::string>& members,
                          const std::vector<SettingPath>& all);

std::string AcceptMember(JsonValue& value, const std::string& path,
                         const std::vector<std::string>& members,
                         const std::vector<SettingPath>& all) {
  bool isGroup = false;
  for (const SettingPath& setting : all) {
    if (setting.members == members) {
      const std::string demand = setting.Accept(value);
      return demand.empty() ? demand : path + " must be " + demand;
    }
    isGroup |= setting.members.size() > members.size() &&
               std::equal(members.begin(), members.end(), setting.members.begin());
  }
  if (isGroup && !value.isObject()) return (path.empty() ? "\"\"" : path) + " must be an object";
  if (isGroup) return AcceptMembers(value, path, members, all);
  if (value.isObject() && !value.empty()) {
    // What an unknown object holds tells better what was meant.
    return AcceptMembers(value, path, members, all);
  }
  const bool isWritten = std::any_of(
      all.begin(), all.end(), [&](const SettingPath& setting) { return setting.path == path; });
  if (!isWritten) return NoSuchSetting(path);
  return path + (members.size() == 1 && path.find('.') == std::string::npos
                     ? " is no general setting; `keelstone settings set` changes it"
                     : ": each part of a path must be an object of its own");
}

std::string AcceptMembers(JsonValue& object, const std::string& path,
                          const std::vector<std::string>& members,
                          const std::vector<SettingPath>& all) {
  for (const std::string& name : object.getMemberNames()) {
    std::vector<std::string> below = members;
    below.push_back(name);
    std::string fault = AcceptMember(object[name], Below(path, members, name), below, all);
    if (!fault.empty()) return fault;
  }
  return {};
}

}  // namespace

std::string SettingPath::Accept(JsonValue& value) const {
  const SettingRange& range = RangeOf(*this);
  switch (kind) {
    case SettingKind::kWhole:
    case SettingKind::kRatio:
      return AcceptNumber(kind, range, value) ? "" : Demand(kind, range);
    case SettingKind::kSwitch:
      return AcceptSwitch(value) ? "" : "true or false";
    case SettingKind::kFilter:
      return IsFilter(value) ? "" : "an object such as {\"value\":[\"Vlan\",\"Loopback\"]}";
    case SettingKind::kAnything:
      break;
  }
  return {};
}

std::vector<SettingPath> SettingPaths() {
  std::vector<SettingPath> all;
  const auto addRow = [&all](const char* name, SettingKind kind) {
    all.push_back({name, name, {}, kind});
  };
  addRow("KSInterfaceFilter", SettingKind::kFilter);
  addRow("KSTableCountLimit", SettingKind::kWhole);
  addRow("KSStrRowCountLimit", SettingKind::kWhole);
  addRow("KSDynamicRuleStatus", SettingKind::kSwitch);
  addRow("EnableKSFunction", SettingKind::kSwitch);
  addRow("KSRuleType", SettingKind::kAnything);
  AddMembers(DefaultGeneralSettings(), {"", kGeneralSettingRow, {}, {}}, all);
  // The live interval of tables is read from the member whose name is empty.
  all.push_back(
      {".timeIntervalLimit", kGeneralSettingRow, {"", "timeIntervalLimit"}, SettingKind::kWhole});
  return all;
}

std::string NoSuchSetting(const std::string& path) {
  std::string text = "there is no setting \"" + path + "\"";
  bool isFirst = true;
  for (const std::string& near : NearPaths(path, SettingPaths())) {
    text.append(isFirst ? "; there is " : ", ").append(near);
    isFirst = false;
  }
  return isFirst ? text + "; `keelstone settings get` shows all" : text;
}

std::string AcceptGeneralSettings(JsonValue& document) {
  return document.isObject() ? AcceptMembers(document, {}, {}, SettingPaths())
                             : "the settings must be a JSON object";
}

std::string SettingText(const JsonValue& value) {
  if (value.type() != JsonType::Real) return value.toString();
  const double number = value.asDouble();
  const float single = value.asFloat();
  const bool isWidened = static_cast<double>(single) == number;
  return JsonValue(isWidened ? AsWritten(single) : number).toString();
}

}  // namespace keelstone
