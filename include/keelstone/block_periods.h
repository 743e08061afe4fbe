#ifndef KEELSTONE_BLOCK_PERIODS_H
#define KEELSTONE_BLOCK_PERIODS_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "keelstone/domain_edits.h"
#include "keelstone/export.h"

namespace keelstone {

/// A stored period in which nothing is learned of devices. Both ends belong to it.
struct KEELSTONE_EXPORT BlockPeriod {
  std::int64_t id = 0;  // of its row
  std::vector<std::string> devices;
  std::int64_t from = 0;  // seconds since the epoch
  std::int64_t to = 0;
};

// What fails is logged and counted, too. Any thread.

/// The periods of a domain in the order of their ids; rows that are none are passed over.
/// The text says why they cannot be read.
[[nodiscard]] KEELSTONE_EXPORT std::string ReadBlockPeriods(const std::string& domainId,
                                                            std::vector<BlockPeriod>& periods);

/// Adds a period, which gets its id. The text says why it is not stored; empty: it is.
[[nodiscard]] KEELSTONE_EXPORT std::string AddBlockPeriod(const std::string& domainId,
                                                          BlockPeriod& period);

/// Finds the periods of these ids (a row that is none has no devices), and unless it is
/// `dryRun` removes them, all or none. Refused where there is no row of an id.
[[nodiscard]] KEELSTONE_EXPORT EditOutcome RemoveBlockPeriods(const std::string& domainId,
                                                              const std::set<std::int64_t>& ids,
                                                              bool dryRun,
                                                              std::vector<BlockPeriod>& periods);

}  // namespace keelstone

#endif  // KEELSTONE_BLOCK_PERIODS_H
