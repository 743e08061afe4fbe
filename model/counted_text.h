#ifndef KEELSTONE_MODEL_COUNTED_TEXT_H
#define KEELSTONE_MODEL_COUNTED_TEXT_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace keelstone {

/// Thrown by the iterators of a CountedText whose steps are used up.
class TooManySteps : public std::runtime_error {
 public:
  TooManySteps() : std::runtime_error("the search takes too many steps") {}
};

/// A text whose iterators may take so many steps in all and no more: whatever an algorithm
/// does to it ends. One thread.
class CountedText {
 public:
  /// Borrows the text.
  CountedText(std::string_view text, std::int64_t steps) : text_(text), left_(steps) {}
  CountedText(const CountedText&) = delete;
  CountedText& operator=(const CountedText&) = delete;

  class Iterator {
   public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Iterator() = default;
    reference operator*() const { return *at_; }
    Iterator& operator++() {
      Count();
      ++at_;
      return *this;
    }
    Iterator& operator--() {
      Count();
      --at_;
      return *this;
    }
    Iterator operator++(int) {
      const Iterator before = *this;
      ++*this;
      return before;
    }
    Iterator operator--(int) {
      const Iterator before = *this;
      --*this;
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.at_ == b.at_; }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return a.at_ != b.at_; }

   private:
    friend class CountedText;
    Iterator(const char* at, std::int64_t* left) : at_(at), left_(left) {}
    void Count() const {
      if (--*left_ < 0) throw TooManySteps();
    }

    const char* at_ = nullptr;
    std::int64_t* left_ = nullptr;
  };

  Iterator begin() { return {text_.data(), &left_}; }
  Iterator end() { return {text_.data() + text_.size(), &left_}; }

 private:
  const std::string_view text_;
  std::int64_t left_;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_COUNTED_TEXT_H
