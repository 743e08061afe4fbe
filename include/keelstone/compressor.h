#ifndef KEELSTONE_COMPRESSOR_H
#define KEELSTONE_COMPRESSOR_H

#include <cstdint>
#include <string>

#include "keelstone/export.h"

namespace keelstone {

/// Compresses `text` in place (a zstd frame with a checksum). False, and `text` as it
/// was, when that cannot be done. Any thread.
[[nodiscard]] KEELSTONE_EXPORT bool CompressString(std::string& text);

/// Turns what CompressString made back, in place. `rawSize` is the length of the
/// uncompressed text in bytes and must be what the frame gives. False, and `text` as it
/// was, for a damaged frame or another length; never more memory than `rawSize` and the
/// frame's own limit is taken. Any thread.
[[nodiscard]] KEELSTONE_EXPORT bool DecompressString(std::string& text, std::int64_t rawSize);

}  // namespace keelstone

#endif  // KEELSTONE_COMPRESSOR_H
