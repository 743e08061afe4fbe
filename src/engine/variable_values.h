#ifndef KEELSTONE_ENGINE_VARIABLE_VALUES_H
#define KEELSTONE_ENGINE_VARIABLE_VALUES_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "keelstone/data_point.h"
#include "keelstone/history_data.h"
#include "keelstone/rule_records.h"
#include "keelstone/table_data_point.h"

namespace keelstone {

/// The finite float at the start of a value text, as C's atof reads it; nothing when there
/// is none. (For the other types: LeadingInt64 and LeadingDouble.)
std::optional<float> LeadingFloat(std::string_view text);
/// A string value: its text without leading and trailing spaces.
std::string_view TextValue(std::string_view text);

/// The data point of a variable, with `time` (seconds since the epoch) as its time. Empty
/// for an unknown data type, and when the value text of a number gives no finite number.
/// Strings lose leading and trailing spaces; a table comes without its content.
std::shared_ptr<KSDataBase> CreateDataPoint(const VarInfo& variable, std::int64_t time);

/// Gives a table's point its content: that of the newest point of `history` when this is
/// the same table, so that a table which does not change is not compressed again.
/// `history` may be missing, or of another type.
void FillTablePoint(const VarInfo& variable, const HistoryDataBase* history,
                    KSTableDataPoint& point);

/// A parameter text from the variable rules with its strings made numbers, as a rule of
/// numbers reads them: member strings by atoi (int64) or atof (double), the elements of
/// member arrays by atoll or atof, member objects likewise and then stored as text. For
/// floats nothing is converted. "null" for a text that is not JSON. (That members are read
/// with 32 bits and elements with 64 is part of the interface.)
std::string ConvertVariableRuleParam(EnumKSDataType dataType, const std::string& param);

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_VARIABLE_VALUES_H
