#ifndef KEELSTONE_MEMORY_FAULTS_H
#define KEELSTONE_MEMORY_FAULTS_H

#include <cstdint>

#include "keelstone/export.h"

namespace keelstone {

/// Counts that memory could not be had. What catches every exception
/// (a rule that does not learn, say, and leaves it at that) hides the want of memory; who
/// must know reads the count before and after. Any thread.
KEELSTONE_EXPORT void CountMemoryFault() noexcept;
/// The faults so far of the calling thread, and of all threads.
KEELSTONE_EXPORT std::uint64_t MemoryFaultsHere() noexcept;
KEELSTONE_EXPORT std::uint64_t MemoryFaults() noexcept;

}  // namespace keelstone

#endif  // KEELSTONE_MEMORY_FAULTS_H
