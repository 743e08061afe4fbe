#ifndef KEELSTONE_GONE_SOURCES_H
#define KEELSTONE_GONE_SOURCES_H

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "keelstone/export.h"

namespace keelstone {

/// What a domain holds of one source.
struct KEELSTONE_EXPORT SourceRows {
  std::int64_t rules = 0;
  std::int64_t histories = 0;
};
/// What a domain holds, by the name of the source.
using SourceCounts = std::map<std::string, SourceRows>;

/// What is on disk of each source, without changing it. Throws CppSQLite3Exception. Any
/// thread.
KEELSTONE_EXPORT SourceCounts StoredSources(const std::string& domainId);

/// The sources of which a variable is defined, whether or not anything has been learned.
/// Throws CppSQLite3Exception. Any thread.
KEELSTONE_EXPORT std::set<std::string> DefinedSources(const std::string& domainId);

/// Removes all rules and histories of these sources, whatever their names hold; whether all
/// of that is on disk. Histories go after the rules and only if those went. Rows that wait
/// to be written are not looked at: flush the domain before. Any thread.
[[nodiscard]] KEELSTONE_EXPORT bool RemoveSources(const std::string& domainId,
                                                  const std::set<std::string>& sources);

/// The same for all sources that are not to be kept. Throws CppSQLite3Exception.
[[nodiscard]] KEELSTONE_EXPORT bool RemoveGoneSources(const std::string& domainId,
                                                      const std::set<std::string>& kept);

}  // namespace keelstone

#endif  // KEELSTONE_GONE_SOURCES_H
