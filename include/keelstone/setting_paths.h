#ifndef KEELSTONE_SETTING_PATHS_H
#define KEELSTONE_SETTING_PATHS_H

#include <string>
#include <vector>

#include "keelstone/export.h"
#include "keelstone/json_value.h"

namespace keelstone {

/// The name of the row that holds the general settings.
inline constexpr const char* kGeneralSettingRow = "KSGeneralSetting";

/// What a setting takes.
enum class SettingKind { kWhole, kRatio, kSwitch, kFilter, kAnything };

/// The numbers that a setting takes, both ends included. What lies outside the engine would
/// read as something else than was meant: an interval that never ends, a set without
/// values.
struct SettingRange {
  const char* name;  // a path, or the last member of one
  double least;
  double most;
  bool isAbove = false;  // `least` itself is left out
};

/// One setting that there is: a row of the global settings ("KSTableCountLimit"), or a
/// member of the general settings by its path ("intEqual.condition0.deltaEZero").
struct KEELSTONE_EXPORT SettingPath {
  std::string path;
  std::string row;                   // the row's name
  std::vector<std::string> members;  // of the general settings; none for another row
  SettingKind kind = SettingKind::kAnything;

  /// Makes a value the one that is stored; the text says what it must be ("a whole number
  /// from 1 to 10000"), empty: it is.
  std::string Accept(JsonValue& value) const;
};

/// All settings that can be set, rows first. Any thread, like the calls below.
KEELSTONE_EXPORT std::vector<SettingPath> SettingPaths();

/// Says that there is no such setting, and which ones may have been meant.
KEELSTONE_EXPORT std::string NoSuchSetting(const std::string& path);

/// Makes the members of a document of general settings, or of a part of one, what is
/// stored. The text names the first member that is unknown or must be something else, by
/// its path; empty: all are well.
[[nodiscard]] KEELSTONE_EXPORT std::string AcceptGeneralSettings(JsonValue& document);

/// A setting's value for people: ratios that are stored widened from single precision with
/// the digits of a single, 0.1.
KEELSTONE_EXPORT std::string SettingText(const JsonValue& value);

}  // namespace keelstone

#endif  // KEELSTONE_SETTING_PATHS_H
