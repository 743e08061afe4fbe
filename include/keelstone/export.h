#ifndef KEELSTONE_EXPORT_H
#define KEELSTONE_EXPORT_H

/// Marks what the shared library exports; everything else is hidden.
#define KEELSTONE_EXPORT __attribute__((visibility("default")))

#endif  // KEELSTONE_EXPORT_H
