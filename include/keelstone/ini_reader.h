#ifndef KEELSTONE_INI_READER_H
#define KEELSTONE_INI_READER_H

#include <string>

#include "keelstone/export.h"

namespace keelstone {

/// Reads integers from the ini files in `conf/` under the system root folder. A file is
/// parsed again only when it has changed on disk (a look costs one stat). A missing file,
/// section or key gives the default; a value that is not a whole decimal number within 32
/// bits gives the default and one error line in the log. Keys and sections are compared
/// without regard to case. Any thread.
class KEELSTONE_EXPORT IniReader {
 public:
  /// The value of `key` in `section` of the file `overrideFile`, else of `baseFile`.
  static int GetInt(const std::string& section, const std::string& key, int otherwise,
                    const std::string& overrideFile, const std::string& baseFile);
  static int GetInt(const std::string& section, const std::string& key, int otherwise,
                    const std::string& file);
  /// Writes one value, keeping every other line as it is; the file and its folder are
  /// made when they are missing. The new file takes the old one's place whole. False when
  /// it cannot be written (the log says why, and `why`).
  [[nodiscard]] static bool SetInt(const std::string& section, const std::string& key, int value,
                                   const std::string& file, std::string* why = nullptr);
};

}  // namespace keelstone

#endif  // KEELSTONE_INI_READER_H
