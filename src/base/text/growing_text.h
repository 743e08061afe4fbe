#ifndef KEELSTONE_BASE_TEXT_GROWING_TEXT_H
#define KEELSTONE_BASE_TEXT_GROWING_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace keelstone {

/// Appends to a string piece by piece: room is made for many pieces at once, and a piece
/// is put there without a call. The string is longer than its text until this is gone.
class GrowingText {
 public:
  explicit GrowingText(std::string& text) : text_(text), used_(text.size()) {}
  ~GrowingText() { text_.resize(used_); }
  GrowingText(const GrowingText&) = delete;
  GrowingText& operator=(const GrowingText&) = delete;

  /// Where to put up to `size` bytes; End says where they ended.
  char* Room(std::size_t size) {
    if (text_.size() - used_ < size) Grow(size);
    return text_.data() + used_;
  }
  void End(const char* end) noexcept { used_ = static_cast<std::size_t>(end - text_.data()); }

  void Put(char c) {
    *Room(1) = c;
    ++used_;
  }
  void Put(std::string_view bytes) {
    std::memcpy(Room(bytes.size()), bytes.data(), bytes.size());
    used_ += bytes.size();
  }

 private:
  void Grow(std::size_t size) {
    constexpr std::size_t kLeast = 64;  // of what is allocated
    const std::size_t needed = used_ + size;
    text_.resize(needed <= text_.capacity() ? text_.capacity()
                                            : std::max({needed, 2 * text_.size(), kLeast}));
  }

  std::string& text_;
  std::size_t used_;
};

}  // namespace keelstone

#endif  // KEELSTONE_BASE_TEXT_GROWING_TEXT_H
