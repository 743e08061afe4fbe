#include "keelstone/resource_adaptor.h"

#include <gtest/gtest.h>

#include <boost/uuid/uuid_io.hpp>
#include <set>
#include <thread>
#include <vector>

#include "keelstone/database_files.h"

namespace keelstone {
namespace {

TEST(GuidTest, IsTheNameBasedIdentifierOfTheText) {
  // Stored nowhere, but two builds of the library in one process family must agree.
  EXPECT_EQ(to_string(GuidFromText("default")), "192ff436-32c8-5898-bc6b-b1e4db17b20f");
  EXPECT_EQ(to_string(GuidFromText("")), "63ce05fa-871c-5746-9429-9aec44a5e89a");
  EXPECT_NE(GuidFromText("a"), GuidFromText(std::string("a\0", 2)));
}

TEST(FSResourceAdaptorTest, OneRecordForEachDomainAndTable) {
  FSResourceAdaptor& adaptor = FSResourceAdaptor::Instance();
  const Guid domain = GuidFromText("adaptor-test");
  std::set<std::shared_ptr<LockRecord>> records;
  for (const Guid& one : {domain, GuidFromText("adaptor-test-2")}) {
    for (const int dbType : {kDbObjectRule, kDbObjectHistory}) {
      for (const int tableType : {0, 1}) {
        records.insert(adaptor.RegisterTable(one, dbType, tableType));
      }
    }
  }
  EXPECT_EQ(records.size(), 8U);
  EXPECT_EQ(records.count(adaptor.RegisterTable(domain, kDbObjectRule, 0)), 1U);
  EXPECT_EQ(adaptor.RegisterTable(domain, 14, 0), nullptr);
  EXPECT_EQ(adaptor.RegisterTable(domain, -1, 0), nullptr);
}

}  // namespace
}  // namespace keelstone
