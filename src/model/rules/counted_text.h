#ifndef KEELSTONE_MODEL_RULES_COUNTED_TEXT_H
#define KEELSTONE_MODEL_RULES_COUNTED_TEXT_H

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
/// does to it ends. A step is a move or a comparison of two places. One thread.
class CountedText {
 public:
  /// Borrows the text.
  CountedText(std::string_view text, std::int64_t steps) : text_(text), left_(steps) {}
  CountedText(const CountedText&) = delete;
  CountedText& operator=(const CountedText&) = delete;

  class Iterator {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Iterator() = default;
    reference operator*() const { return *at_; }
    reference operator[](difference_type n) const { return at_[n]; }
    Iterator& operator++() { return *this += 1; }
    Iterator& operator--() { return *this -= 1; }
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
    Iterator& operator+=(difference_type n) {
      Step();
      at_ += n;
      return *this;
    }
    Iterator& operator-=(difference_type n) { return *this += -n; }
    friend Iterator operator+(Iterator a, difference_type n) { return a += n; }
    friend Iterator operator+(difference_type n, Iterator a) { return a += n; }
    friend Iterator operator-(Iterator a, difference_type n) { return a -= n; }
    friend difference_type operator-(const Iterator& a, const Iterator& b) { return a.at_ - b.at_; }
    friend bool operator==(const Iterator& a, const Iterator& b) {
      a.Step();
      return a.at_ == b.at_;
    }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return !(a == b); }
    friend bool operator<(const Iterator& a, const Iterator& b) { return a.at_ < b.at_; }
    friend bool operator>(const Iterator& a, const Iterator& b) { return b < a; }
    friend bool operator<=(const Iterator& a, const Iterator& b) { return !(b < a); }
    friend bool operator>=(const Iterator& a, const Iterator& b) { return !(a < b); }

    /// Counts steps that an algorithm takes elsewhere; the next of its own throws, if they
    /// are used up.
    void Spend(std::int64_t steps) const noexcept {
      if (left_ != nullptr) *left_ -= steps;
    }

   private:
    friend class CountedText;
    Iterator(const char* at, std::int64_t* left) : at_(at), left_(left) {}
    void Step() const {
      if (left_ != nullptr && --*left_ < 0) throw TooManySteps();
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

#endif  // KEELSTONE_MODEL_RULES_COUNTED_TEXT_H
