#ifndef KEELSTONE_BENCH_STORED_FLEET_H
#define KEELSTONE_BENCH_STORED_FLEET_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "keelstone/rule_records.h"

namespace keelstone::bench {

/// What a domain has stored of many devices: on each the same variables, all with the
/// learned rule that the value is kFleetValue and a history of that value.
struct Fleet {
  std::size_t devices = 0;
  std::size_t variables = 100;  // a device
  std::size_t points = 30;      // a history
  bool onOneDevice = false;     // each of them is a source of the first device instead

  std::size_t rows() const noexcept { return devices * variables; }  // of each table
};

inline constexpr int kFleetValue = 7;
inline constexpr const char* kFleetSource = "parser/interfaces";

std::string FleetDevice(std::size_t index);
/// The source of the fleet's n-th "device" when all are sources of one.
std::string FleetSource(std::size_t index);
std::string FleetInterface(std::size_t variable);
std::string FleetVariable(std::size_t variable);
/// When the value `index` of a history was taken; further apart than any live interval.
std::int32_t FleetTime(std::size_t index);
/// A history of `points` times `value`, in the layout that the library writes.
std::string FleetHistory(std::size_t points, int value);
ObjectDefine FleetObject(std::size_t device, std::size_t variable);

/// Makes the rule and the history database of the domain anew, with nothing but SQL and in
/// the order of the keys; a million variables take some seconds.
void StoreFleet(const std::filesystem::path& domainFolder, const Fleet& fleet);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_STORED_FLEET_H
