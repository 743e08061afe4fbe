#ifndef KEELSTONE_HOST_SETTING_PATHS_H
#define KEELSTONE_HOST_SETTING_PATHS_H

#include <functional>
#include <string>
#include <vector>

#include "platform/json_value.h"

namespace keelstone::host {

/// The name of the row that holds the general settings.
inline constexpr const char* kGeneralSettingRow = "KSGeneralSetting";

/// One setting that there is: a row of the global settings ("KSTableCountLimit"), or a
/// member of the general settings by its path ("intEqual.condition0.deltaEZero").
struct SettingPath {
  std::string path;
  std::string row;                   // the row's name
  std::vector<std::string> members;  // of the general settings; none for another row
  /// Makes a value the one that is stored; the text says what it must be, empty: it is.
  std::function<std::string(JsonValue&)> accept;
};

/// All settings that can be set, rows first.
std::vector<SettingPath> SettingPaths();

/// A setting's value for people: ratios that are stored widened from single precision with
/// the digits of a single, 0.1.
std::string SettingText(const JsonValue& value);

/// Paths that somebody may have meant who wrote this one; the nearest first.
std::vector<std::string> NearPaths(const std::string& path, const std::vector<SettingPath>& all);

}  // namespace keelstone::host

#endif  // KEELSTONE_HOST_SETTING_PATHS_H
