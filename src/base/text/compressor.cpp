#include "keelstone/compressor.h"

#include <zstd.h>

#include <exception>
#include <string_view>
#include <utility>

#include "base/threads/thread_owned.h"

namespace keelstone {

namespace {

constexpr int kCompressionLevel = 3;

/// What zstd works with, made once a thread.
struct Contexts {
  ZSTD_CCtx* compress = nullptr;
  ZSTD_DCtx* decompress = nullptr;

  Contexts() = default;
  Contexts(const Contexts&) = delete;
  Contexts& operator=(const Contexts&) = delete;
  ~Contexts() {
    ZSTD_freeCCtx(compress);
    ZSTD_freeDCtx(decompress);
  }
};

ZSTD_CCtx* CompressContext() {
  ZSTD_CCtx*& context = ThreadOwned<Contexts>::Get().compress;
  if (context == nullptr) {
    context = ZSTD_createCCtx();
    if (context != nullptr) {
      ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, kCompressionLevel);
      ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
    }
  }
  return context;
}

ZSTD_DCtx* DecompressContext() {
  ZSTD_DCtx*& context = ThreadOwned<Contexts>::Get().decompress;
  if (context == nullptr) context = ZSTD_createDCtx();
  return context;
}

/// Whether `frame` is one whole zstd frame that says it holds `rawSize` bytes.
bool IsSingleFrame(std::string_view frame, std::uint64_t rawSize) {
  // Frames of other kinds (skippable ones) would count as empty texts.
  constexpr std::string_view kMagic("\x28\xB5\x2F\xFD", 4);
  return frame.starts_with(kMagic) &&
         ZSTD_getFrameContentSize(frame.data(), frame.size()) == rawSize &&
         ZSTD_findFrameCompressedSize(frame.data(), frame.size()) == frame.size();
}

/// Whether a frame of `frameSize` bytes can hold `rawSize` bytes at all: a block takes
/// at least 3 bytes and gives at most ZSTD_BLOCKSIZE_MAX. So a short hostile frame
/// cannot have gigabytes laid out for it.
bool IsPlausible(std::size_t frameSize, std::uint64_t rawSize) {
  const std::uint64_t blocks = frameSize / 3 + 1;
  return rawSize / ZSTD_BLOCKSIZE_MAX <= blocks;
}

}  // namespace

bool CompressString(std::string& text) try {
  ZSTD_CCtx* const context = CompressContext();
  if (context == nullptr) return false;
  std::string frame(ZSTD_compressBound(text.size()), '\0');
  const std::size_t size =
      ZSTD_compress2(context, frame.data(), frame.size(), text.data(), text.size());
  if (ZSTD_isError(size) != 0) return false;
  frame.resize(size);
  frame.shrink_to_fit();
  text = std::move(frame);
  return true;
} catch (const std::exception&) {
  return false;
}

bool DecompressString(std::string& text, std::int64_t rawSize) try {
  if (rawSize < 0) return false;
  const auto size = static_cast<std::uint64_t>(rawSize);
  if (!IsSingleFrame(text, size) || !IsPlausible(text.size(), size)) return false;
  ZSTD_DCtx* const context = DecompressContext();
  if (context == nullptr) return false;
  std::string raw(size, '\0');
  const std::size_t written =
      ZSTD_decompressDCtx(context, raw.data(), raw.size(), text.data(), text.size());
  if (ZSTD_isError(written) != 0 || written != raw.size()) return false;
  text = std::move(raw);
  return true;
} catch (const std::exception&) {
  return false;
}

}  // namespace keelstone
