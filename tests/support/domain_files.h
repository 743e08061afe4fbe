#ifndef KEELSTONE_TESTS_SUPPORT_DOMAIN_FILES_H
#define KEELSTONE_TESTS_SUPPORT_DOMAIN_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include "keelstone/database_files.h"

namespace keelstone::testing {

/// The databases of one domain below the system root folder, as a host lays them out. Make
/// them before the domain's first use, or have the data manager load them again.
class DomainFiles {
 public:
  /// Makes the six tables, empty.
  explicit DomainFiles(std::string domainId);

  const std::string& domainId() const { return domainId_; }
  std::string Path(EnumDbType type) const;

  /// Puts a global setting in the place of the one with this name; `value` is JSON text.
  void SetGlobal(const std::string& name, const std::string& value);
  void SetGeneralSettings(const std::string& document) { SetGlobal("KSGeneralSetting", document); }

  struct VariableRule {
    std::string source;
    std::string name;
    int ruleType = -1;
    std::string param = {};  // of the rule
    int dataType = 1;        // the parser's type code
    int customerEnable = 0;
    bool initialEnable = true;
  };
  void AddVariableRule(const VariableRule& rule);
  void AddBlock(const std::vector<std::string>& devices, std::int64_t start, std::int64_t end);

  /// Runs one statement, on a database made when it is missing.
  void Execute(EnumDbType type, const std::string& sql);
  /// The first column of every row, as text.
  std::vector<std::string> Select(EnumDbType type, const std::string& sql) const;

  /// Copies all files under another domain's id: what a process that starts anew sees.
  DomainFiles CopyAs(const std::string& domainId) const;

 private:
  struct Existing {};
  DomainFiles(std::string domainId, Existing) : domainId_(std::move(domainId)) {}
  void InsertData(EnumDbType type, const std::string& table, const std::string& data);

  std::string domainId_;
};

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_DOMAIN_FILES_H
