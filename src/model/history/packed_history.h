#ifndef KEELSTONE_MODEL_HISTORY_PACKED_HISTORY_H
#define KEELSTONE_MODEL_HISTORY_PACKED_HISTORY_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "keelstone/history_data.h"
#include "keelstone/rule_enums.h"

namespace keelstone {

/// A variable's stored history in as few bytes as it takes to keep it: its points in binary
/// form, or its text as it stands. Either gives back, to the last byte, the text that belongs
/// into the database; points are only taken where they do.
///
/// Numbers take 12 bytes a point (float: 8) as long as their times lie within 136 years, 4
/// more otherwise; strings take 12 bytes and their length. Tables stay texts. One thread, or
/// any number of them that only read.
class PackedHistory {
 public:
  /// There is no history, not even an empty one.
  PackedHistory() = default;
  static PackedHistory OfText(std::string_view text);
  /// The points of a history, or its text: for tables, and where points would not give it back.
  static PackedHistory Of(const HistoryDataBase& history);

  bool IsThere() const noexcept { return kind_ != Kind::kNone; }
  /// The text, where it is kept as it stands; nothing for points.
  std::optional<std::string_view> Text() const noexcept;
  /// What is stored, in either form.
  std::string ToText() const;

  /// Makes points of a text that is the library's own to the last byte; others stay.
  void Pack();
  /// The history, without its text; empty unless its points of this type are kept.
  std::shared_ptr<HistoryDataBase> Open(EnumKSDataType dataType) const;
  /// The same; `spare` is used for it if it is of this type and nobody else's, and is what is
  /// answered afterwards.
  std::shared_ptr<HistoryDataBase> OpenInto(std::shared_ptr<HistoryDataBase>& spare,
                                            EnumKSDataType dataType) const;
  /// NewestTimeOfOwnText of the text.
  std::optional<std::int64_t> NewestTime(EnumKSDataType dataType) const;
  /// GuessNewestTime of the text.
  std::optional<std::int64_t> GuessNewest() const;

  /// What it takes on the heap.
  std::size_t bytes() const noexcept { return size_; }

 private:
  enum class Kind : std::uint8_t { kNone, kText, kInt64, kFloat, kDouble, kString };
  struct Head;
  template <class T>
  struct NumberFormat;
  struct StringFormat;

  PackedHistory(Kind kind, std::size_t size);
  template <class Do>
  auto WithFormat(Kind kind, const Do& action) const;
  template <class Format>
  static PackedHistory OfPoints(const HistoryDataBase& history, Kind kind);
  static Kind KindOf(EnumKSDataType dataType) noexcept;
  static std::shared_ptr<HistoryDataBase> ReadOwnText(std::string_view text);
  template <class Format>
  void Fill(typename Format::History& history) const;

  std::unique_ptr<char[]> data_;
  std::int64_t newest_ = 0;  // of points
  std::uint32_t size_ = 0;
  Kind kind_ = Kind::kNone;
};

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_PACKED_HISTORY_H
