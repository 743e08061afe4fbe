#ifndef KEELSTONE_MODEL_ELEMENT_SHAPE_H
#define KEELSTONE_MODEL_ELEMENT_SHAPE_H

#include <array>
#include <cstddef>
#include <string_view>

#include "model/ksruleenums.h"

namespace keelstone {

/// The shape of one element of a history's list with the comma behind it: for each byte the
/// range of characters that may stand there. Successive elements mostly differ in a few
/// digits only, so that the next one is compared with the shape of the one before, 16 bytes
/// at a time, instead of being read. What fits a shape is written as the library writes it.
class ElementShape {
 public:
  /// Takes the shape of an element, `text`, that was read and found to be of the library's
  /// own layout. Some have none (nothing fits then): those of reals whose digits have to
  /// be judged by their value.
  void Take(EnumKSDataType dataType, std::string_view text);

  /// Where the elements of this shape that stand one behind the other from `next` on end;
  /// `next` itself when there is none.
  const char* Pass(const char* next, const char* end) const;

 private:
  using Bytes = unsigned char __attribute__((vector_size(16)));
  static constexpr std::size_t kMostBlocks = 5;
  static constexpr std::size_t kMostBytes = kMostBlocks * sizeof(Bytes);

  template <std::size_t kBlocks>
  const char* PassBlocks(const char* next, const char* end) const;

  std::size_t size_ = 0;
  std::size_t blocks_ = 0;
  std::array<Bytes, kMostBlocks> least_{};
  std::array<Bytes, kMostBlocks> range_{};
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_ELEMENT_SHAPE_H
