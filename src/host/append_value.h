#ifndef KEELSTONE_HOST_APPEND_VALUE_H
#define KEELSTONE_HOST_APPEND_VALUE_H

#include <string_view>

#include "keelstone/run_line.h"
#include "keelstone/run_values.h"

namespace keelstone {

/// A HostFailure (kInput) that names the text, where it is not UTF-8.
void RequireUtf8(std::string_view text, const char* name);

/// Adds a value to the run, as a line of input would; a HostFailure (kInput) for what is none.
void AppendValue(RunValue value, ParsedRun& run);

}  // namespace keelstone

#endif  // KEELSTONE_HOST_APPEND_VALUE_H
