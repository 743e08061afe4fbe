#ifndef KEELSTONE_STORAGE_DOMAIN_DOMAIN_PLACE_H
#define KEELSTONE_STORAGE_DOMAIN_DOMAIN_PLACE_H

#include <functional>
#include <string>

#include "storage/tables/table_frame.h"

namespace keelstone {

/// Where below the folder "data" the domains lie: "/FSParserData", or "/" outside parser
/// processes.
const char* DomainsSubPath() noexcept;

/// Runs `work` in a transaction that may write from its beginning, so that another writer is
/// waited for before anything is read; keeps what it did when it answers true. That answer.
bool InTransaction(CppSQLite3DB& db, const std::function<bool()>& work);

/// Runs an operation on a file of the domain. The text says why it did not run, which a
/// missing file or table is a reason for; empty: it ran. Any thread.
[[nodiscard]] std::string RunOnDomain(const std::string& domainId, const TableOperation& operation,
                                      const TableFrame::Body& body);

}  // namespace keelstone

#endif  // KEELSTONE_STORAGE_DOMAIN_DOMAIN_PLACE_H
