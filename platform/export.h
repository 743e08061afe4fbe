#ifndef KEELSTONE_PLATFORM_EXPORT_H
#define KEELSTONE_PLATFORM_EXPORT_H

/// Marks what the shared library exports; everything else is hidden.
#define KEELSTONE_EXPORT __attribute__((visibility("default")))

#endif  // KEELSTONE_PLATFORM_EXPORT_H
