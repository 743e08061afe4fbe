#include "bench/stored_fleet.h"

#include <array>
#include <cstdio>

#include "bench/raw_tables.h"
#include "platform/cppsqlite3.h"

namespace keelstone::bench {

namespace {

constexpr std::size_t kInterfaceVariables = 20;

// Key columns of row `i` of ?1 rows, with ?2 variables a device; names as the functions
// below make them.
constexpr const char* kRows =
    "with recursive n(i) as (select 0 union all select i+1 from n where i+1 < ?1) ";
constexpr const char* kKey =
    "printf('core-%05d', i/?2), printf('GigabitEthernet0/%02d', i%?2/20), ?3, '', "
    "printf('counter%02d', i%?2%20), 2";

// The same, all on one device.
constexpr const char* kKeyOnOneDevice =
    "'core-00000', printf('GigabitEthernet0/%02d', i%?2/20), ?3 || printf('/%05d', i/?2), '', "
    "printf('counter%02d', i%?2%20), 2";

void Fill(const std::string& file, const std::string& insert, const Fleet& fleet,
          const std::string& text) {
  CppSQLite3DB db;
  db.open(file);
  for (const char* setting : {"pragma synchronous=off", "pragma cache_size=-65536"}) {
    db.execDML(setting);
  }
  auto journal = db.compileStatement("pragma journal_mode=off");
  journal.execQuery();
  journal.finalize();
  auto statement = db.compileStatement(insert);
  statement.bind(1, static_cast<std::int64_t>(fleet.rows()));
  statement.bind(2, static_cast<std::int64_t>(fleet.variables));
  statement.bind(3, kFleetSource);
  statement.bind(4, text);
  statement.execDML();
}

std::string Numbered(const char* format, std::size_t number) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, number);
  return text.data();
}

}  // namespace

std::string FleetDevice(std::size_t index) { return Numbered("core-%05zu", index); }

std::string FleetSource(std::size_t index) { return kFleetSource + Numbered("/%05zu", index); }

std::string FleetInterface(std::size_t variable) {
  return Numbered("GigabitEthernet0/%02zu", variable / kInterfaceVariables);
}

std::string FleetVariable(std::size_t variable) {
  return Numbered("counter%02zu", variable % kInterfaceVariables);
}

std::int32_t FleetTime(std::size_t index) {
  return 1'700'000'000 + static_cast<std::int32_t>(index) * 300'000;
}

std::string FleetHistory(std::size_t points, int value) {
  std::string text = "{\"dataType\":1,\"dataList\":[";
  for (std::size_t i = 0; i < points; ++i) {
    if (i > 0) text += ',';
    text += "{\"liveTime\":" + std::to_string(FleetTime(i)) +
            ",\"dataValue\":" + std::to_string(value) + '}';
  }
  return text += "]}";
}

ObjectDefine FleetObject(std::size_t device, std::size_t variable) {
  ObjectDefine object;
  object.deviceName = FleetDevice(device);
  object.interfaceValue = FleetInterface(variable);
  return object;
}

void StoreFleet(const std::filesystem::path& domainFolder, const Fleet& fleet) {
  RawTables(domainFolder).CreateTables();
  const std::string key = fleet.onOneDevice ? kKeyOnOneDevice : kKey;
  Fill((domainFolder / "KSObjectRule.db").string(),
       kRows + ("insert into KSObjectRule select " + key + ",1,'','',0," +
                std::to_string(kIntEqual) + ",?4,0,0 from n"),
       fleet, "{\"ruleParam\":" + std::to_string(kFleetValue) + "}");
  Fill((domainFolder / "KSObjectHistory.db").string(),
       kRows + ("insert into KSObjectHistory select " + key + ",?4 from n"), fleet,
       FleetHistory(fleet.points, kFleetValue));
}

}  // namespace keelstone::bench
