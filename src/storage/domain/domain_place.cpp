#include "storage/domain/domain_place.h"

#include "keelstone/data_manager.h"
#include "keelstone/domain_files.h"
#include "keelstone/filesystem.h"

namespace keelstone {

const char* DomainsSubPath() noexcept { return g_bIsParserProcess ? "/FSParserData" : "/"; }

bool InTransaction(CppSQLite3DB& db, const std::function<bool()>& work) {
  db.execDML("begin immediate transaction;");
  const bool isKept = work();
  db.execDML(isKept ? "commit transaction;" : "rollback transaction;");
  return isKept;
}

std::string RunOnDomain(const std::string& domainId, const TableOperation& operation,
                        const TableFrame::Body& body) {
  TableFault fault;
  const TableOutcome outcome = TableFrame::RunAt(
      domainId, DomainDatabase(operation.dbType, domainId), operation, body, &fault);
  return outcome == TableOutcome::kRan ? std::string() : fault.Text();
}

}  // namespace keelstone
