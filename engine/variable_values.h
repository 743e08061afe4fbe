#ifndef KEELSTONE_ENGINE_VARIABLE_VALUES_H
#define KEELSTONE_ENGINE_VARIABLE_VALUES_H

#include <cstdint>
#include <memory>
#include <string>

#include "engine/ksrulerecords.h"
#include "model/ksdatapoint.h"

namespace keelstone {

/// The data point of a variable, with `time` (seconds since the epoch) as its time. Empty
/// for an unknown data type, and when the value text of a number gives no finite number.
/// Strings lose leading and trailing spaces; a table's content is compressed.
std::shared_ptr<KSDataBase> CreateDataPoint(const VarInfo& variable, std::int64_t time);

/// A parameter text from the variable rules with its strings made numbers, as a rule of
/// numbers reads them: member strings by atoi (int64) or atof (double), the elements of
/// member arrays by atoll or atof, member objects likewise and then stored as text. For
/// floats nothing is converted. "null" for a text that is not JSON. (That members are read
/// with 32 bits and elements with 64 is part of the interface.)
std::string ConvertVariableRuleParam(EnumKSDataType dataType, const std::string& param);

}  // namespace keelstone

#endif  // KEELSTONE_ENGINE_VARIABLE_VALUES_H
