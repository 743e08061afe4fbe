#ifndef KEELSTONE_BENCH_HISTORY_SERIES_H
#define KEELSTONE_BENCH_HISTORY_SERIES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "keelstone/data_point.h"
#include "keelstone/rule_enums.h"

namespace keelstone::bench {

/// Values in a history, as many as the default settings keep.
inline constexpr std::size_t kHistoryPoints = 30;

/// How a variable behaves; the engine learns a rule of that kind from it.
inline constexpr std::array<EnumRuleType, 5> kLearnedKinds = {kIntEqual, kIntIncrease, kIntConstant,
                                                              kIntRange, kIntEnum};

/// The same of a variable whose values are texts.
inline constexpr std::array<EnumRuleType, 2> kLearnedTextKinds = {kStrEqual, kStrEnum};

/// Values of one variable that behaves as `kind` from its first value to its last, as
/// whole numbers: ValueText and MakePoint give them the digits of their type.
std::vector<std::int64_t> MakeSeries(EnumRuleType kind, std::size_t count, std::mt19937_64& random);

/// The value as a parser hands it in: whole, with one decimal (float) or three (double), or
/// a text with it.
std::string ValueText(EnumKSDataType dataType, std::int64_t value);
/// The same value as a data point.
std::shared_ptr<KSDataBase> MakePoint(EnumKSDataType dataType, std::int64_t time,
                                      std::int64_t value);

}  // namespace keelstone::bench

#endif  // KEELSTONE_BENCH_HISTORY_SERIES_H
