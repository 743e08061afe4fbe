#ifndef KEELSTONE_INTERFACE_TRANSLATOR_H
#define KEELSTONE_INTERFACE_TRANSLATOR_H

#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "keelstone/export.h"
#include "keelstone/mutex.h"

namespace keelstone {

/// Gives the names under which devices report their interfaces in the wording of the
/// domain ("Gi0/1" → "GigabitEthernet0/1"). The names of a domain stand in the table
/// "KSInterfaceType" (id INTEGER PRIMARY KEY, data TEXT) of its database of type 13, one
/// row a name: {"name": "Gi0/1", "alias": "GigabitEthernet0/1"}. Made on first use, never
/// destroyed. Any thread.
class KEELSTONE_EXPORT InterfaceTranslator {
 public:
  static InterfaceTranslator* Instance();

  /// Reads the names of the domain anew from the database file `path`. A missing file or
  /// table is an empty one; a row that is no JSON object with a text "name" is logged and
  /// passed over; of two rows with one name the later wins. False after an error (logged),
  /// which leaves the names as they were.
  bool LoadDataFromDB(const std::string& domainId, const std::string& path);
  /// The alias of an interface name, compared byte by byte; the name itself when the
  /// domain has none for it.
  std::string Translate(const std::string& domainId, const std::string& name) const;

 private:
  using Names = std::unordered_map<std::string, std::string>;

  InterfaceTranslator() = default;
  ~InterfaceTranslator() = delete;

  // Held while a database is read, so that the newest reading stands; taken before the
  // lock record and mutex_.
  Mutex loadMutex_;
  mutable SharedMutex mutex_;  // guards domains_; innermost
  std::map<std::string, std::shared_ptr<const Names>> domains_ KS_GUARDED_BY(mutex_);
};

}  // namespace keelstone

#endif  // KEELSTONE_INTERFACE_TRANSLATOR_H
