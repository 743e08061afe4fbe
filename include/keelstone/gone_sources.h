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

/// What is on disk of each source, without changing it. The text says why it cannot be read
/// ("FILE: what was done: why it failed"); empty: it was. Any thread.
[[nodiscard]] KEELSTONE_EXPORT std::string StoredSources(const std::string& domainId,
                                                         SourceCounts& counts);

/// The sources of which a variable is defined, whether or not anything has been learned;
/// answers likewise. Any thread.
[[nodiscard]] KEELSTONE_EXPORT std::string DefinedSources(const std::string& domainId,
                                                          std::set<std::string>& sources);

/// Removes all rules and histories of these sources, whatever their names hold; whether all
/// of that is on disk. Histories go after the rules and only if those went. Rows that wait
/// to be written are not looked at: flush the domain before. Any thread.
[[nodiscard]] KEELSTONE_EXPORT bool RemoveSources(const std::string& domainId,
                                                  const std::set<std::string>& sources);

}  // namespace keelstone

#endif  // KEELSTONE_GONE_SOURCES_H
