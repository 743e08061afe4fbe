#ifndef KEELSTONE_BINDINGS_C_LOG_SINK_H
#define KEELSTONE_BINDINGS_C_LOG_SINK_H

#include "keelstone/keelstone.h"

namespace keelstone::c {

/// Puts a host's callback in the place of the log file, or the file back (nullptr). Returns
/// when no other thread is inside the callback before; from within a callback, at once.
void SetLogSink(ks_log_callback callback, void* user);

}  // namespace keelstone::c

#endif  // KEELSTONE_BINDINGS_C_LOG_SINK_H
