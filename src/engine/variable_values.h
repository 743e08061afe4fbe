#ifndef KEELSTONE_ENGINE_VARIABLE_VALUES_H
#define KEELSTONE_ENGINE_VARIABLE_VALUES_H

#include <string>

#include "keelstone/history_data.h"
#include "keelstone/rule_records.h"
#include "keelstone/table_data_point.h"

namespace keelstone {

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
