#ifndef KEELSTONE_C_LOG_SINK_H
#define KEELSTONE_C_LOG_SINK_H

#include "c/keelstone.h"

namespace keelstone::c {

/// Puts a host's callback in the place of the log file, or the file back (nullptr). Returns
/// when no other thread is inside the callback before; from within a callback, at once.
void SetLogSink(ks_log_callback callback, void* user);

}  // namespace keelstone::c

#endif  // KEELSTONE_C_LOG_SINK_H
