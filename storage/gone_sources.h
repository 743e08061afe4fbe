#ifndef KEELSTONE_STORAGE_GONE_SOURCES_H
#define KEELSTONE_STORAGE_GONE_SOURCES_H

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "platform/export.h"

namespace keelstone {

/// What a domain holds of one source.
struct KEELSTONE_EXPORT SourceRows {
  std::int64_t rules = 0;
  std::int64_t histories = 0;
};
/// What a domain holds, by the name of the source.
using GoneSources = std::map<std::string, SourceRows>;

/// What is on disk of sources that are not to be kept, without changing it. Throws
/// CppSQLite3Exception. Any thread.
KEELSTONE_EXPORT GoneSources FindGoneSources(const std::string& domainId,
                                             const std::set<std::string>& kept);

/// Removes all rules and histories of sources that are not to be kept, also histories of
/// which nothing has been learned yet; whether all of that is on disk. Rows that wait to be
/// written are not looked at: flush the domain before. Throws CppSQLite3Exception. Any
/// thread.
[[nodiscard]] KEELSTONE_EXPORT bool RemoveGoneSources(const std::string& domainId,
                                                      const std::set<std::string>& kept);

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_GONE_SOURCES_H
