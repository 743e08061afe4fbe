#ifndef KEELSTONE_BENCH_JSON_ROUND_TRIP_H
#define KEELSTONE_BENCH_JSON_ROUND_TRIP_H

#include <cstddef>
#include <string>
#include <vector>

namespace keelstone::bench {

/// Reads each text into a document tree and writes the tree again, with RapidJSON; the
/// bytes written. This is the least that a program does which holds its histories as
/// JSON and adds a value, before it looks at a number.
std::size_t JsonRoundTrip(const std::vector<std::string>& texts);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_JSON_ROUND_TRIP_H
