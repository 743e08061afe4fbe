#include "host/setting_paths.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "calc/ksruleglobalsetting.h"
#include "platform/numbers.h"

namespace keelstone::host {

namespace {

constexpr std::size_t kMostNear = 3;

std::string AcceptWhole(JsonValue& value) {
  if (!value.isInt()) return "a whole number within 32 bits";
  value = value.asInt();
  return {};
}

std::string AcceptRatio(JsonValue& value) { return value.isNumeric() ? "" : "a number"; }

std::string AcceptSwitch(JsonValue& value) {
  if (value.isBool()) value = value.asBool() ? "true" : "false";
  const bool isSwitch =
      value.isString() && (value.stringRef() == "true" || value.stringRef() == "false");
  return isSwitch ? "" : "true or false";
}

std::string AcceptFilter(JsonValue& value) {
  constexpr const char* kDemand = "an object such as {\"value\":[\"Vlan\",\"Loopback\"]}";
  const JsonValue* const entries = value.find("value");
  if (entries == nullptr || !entries->isArray() || value.size() != 1) return kDemand;
  for (const JsonValue& entry : *entries) {
    if (!entry.isString()) return kDemand;
  }
  return {};
}

std::string AcceptAnything(JsonValue&) { return {}; }

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
    path.accept = member->type() == JsonType::Int ? AcceptWhole : AcceptRatio;
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

}  // namespace

std::vector<SettingPath> SettingPaths() {
  std::vector<SettingPath> all;
  const auto addRow = [&all](const char* name, std::string (*accept)(JsonValue&)) {
    all.push_back({name, name, {}, accept});
  };
  addRow("KSInterfaceFilter", AcceptFilter);
  addRow("KSTableCountLimit", AcceptWhole);
  addRow("KSStrRowCountLimit", AcceptWhole);
  addRow("KSDynamicRuleStatus", AcceptSwitch);
  addRow("EnableKSFunction", AcceptSwitch);
  addRow("KSRuleType", AcceptAnything);
  AddMembers(DefaultGeneralSettings(), {"", kGeneralSettingRow, {}, {}}, all);
  // The live interval of tables is read from the member whose name is empty.
  all.push_back({".timeIntervalLimit", kGeneralSettingRow, {"", "timeIntervalLimit"}, AcceptWhole});
  return all;
}

std::string SettingText(const JsonValue& value) {
  if (value.type() != JsonType::Real) return value.toString();
  const double number = value.asDouble();
  const float single = value.asFloat();
  const bool isWidened = static_cast<double>(single) == number;
  return JsonValue(isWidened ? AsWritten(single) : number).toString();
}

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

}  // namespace keelstone::host
