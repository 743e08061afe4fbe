#ifndef KEELSTONE_MODEL_HISTORY_ELEMENT_SHAPE_H
#define KEELSTONE_MODEL_HISTORY_ELEMENT_SHAPE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "keelstone/data_point.h"
#include "keelstone/rule_enums.h"
#include "model/history/history_layout.h"
#include "model/history/own_text.h"

namespace keelstone {

/// The shape of one element of a history's list with the comma behind it: for each byte the
/// range of characters that may stand there. Successive elements mostly differ in a few
/// digits only, so that the next one is compared with the shape of the one before, 16 bytes
/// at a time, instead of being read. What fits a shape, and is judged where its digits alone
/// do not tell, is written as the library writes it.
class ElementShape {
 public:
  /// Takes the shape of an element, `text`, that was read and found to be of the library's
  /// own layout. Some have none (nothing fits then): those of reals whose digits have to
  /// be judged by their value.
  void Take(EnumKSDataType dataType, std::string_view text);

  std::size_t size() const { return size_; }
  /// Where the elements of this shape that stand one behind the other from `next` on end;
  /// `next` itself when there is none.
  const char* Pass(const char* next, const char* end) const;
  /// The point of an element of this shape that was passed.
  void Read(const char* element, KSDataPoint<std::int64_t>& point) const {
    point.time = ReadInteger(element + kTimeAt, timeDigits_, isTimeNegative_);
    point.value = ReadInteger(element + valueAt_, wholeDigits_, isNegative_);
  }
  void Read(const char* element, KSDataPoint<double>& point) const;
  void Read(const char* element, KSDataPoint<float>& point) const;

 private:
  using Bytes = unsigned char __attribute__((vector_size(16)));
  static constexpr std::size_t kMostBlocks = 5;
  static constexpr std::size_t kMostBytes = kMostBlocks * sizeof(Bytes);

  const char* PassAlike(const char* next, const char* end) const;
  const char* PassFloats(const char* next, const char* end) const;
  template <std::size_t kBlocks>
  const char* PassBlocks(const char* next, const char* end) const;

  static std::int64_t ReadInteger(const char* text, std::size_t digits, bool isNegative) {
    const auto number = static_cast<std::int64_t>(ReadKnownDigits(text + isNegative, digits));
    return isNegative ? -number : number;
  }

  static constexpr std::size_t kTimeAt = kHistoryTimeKey.size();
  // Where the numbers of an element stand; signs come before digits.
  bool isTimeNegative_ = false;
  bool isNegative_ = false;
  std::size_t timeDigits_ = 0;
  std::size_t valueAt_ = 0;
  std::size_t wholeDigits_ = 0;
  std::size_t decimals_ = 0;

  bool isJudged_ = false;  // floats whose digits have to be judged by their value
  std::size_t size_ = 0;
  std::size_t blocks_ = 0;
  std::array<Bytes, kMostBlocks> least_{};
  std::array<Bytes, kMostBlocks> range_{};
};

/// Passes over elements that are written like the ones before them.
class LikeElements {
 public:
  explicit LikeElements(EnumKSDataType dataType) : dataType_(dataType) {}

  /// `element`, with the comma behind it, was read.
  void Note(std::string_view element) {
    // One of another shape among many alike leaves theirs in place.
    if (!std::exchange(hasPassed_, false)) shape_.Take(dataType_, element);
  }

  /// Where the elements from `next` on that are like the noted one end.
  const char* Pass(const char* next, const char* end) {
    const char* const passed = shape_.Pass(next, end);
    hasPassed_ = passed != next;
    return passed;
  }

  const ElementShape& shape() const { return shape_; }

 private:
  EnumKSDataType dataType_;
  ElementShape shape_;
  bool hasPassed_ = false;  // since the last note
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_ELEMENT_SHAPE_H
