#ifndef KEELSTONE_DATA_POINT_H
#define KEELSTONE_DATA_POINT_H

#include <cstdint>
#include <string>
#include <utility>

#include "keelstone/export.h"

namespace keelstone {

/// A value with its time, of whatever type. One thread at a time.
class KEELSTONE_EXPORT KSDataBase {
 public:
  virtual ~KSDataBase() = default;

 protected:
  KSDataBase() = default;
  KSDataBase(const KSDataBase&) = default;
  KSDataBase& operator=(const KSDataBase&) = default;
};

/// A numeric value.
template <class T>
class KEELSTONE_EXPORT KSDataPoint final : public KSDataBase {
 public:
  KSDataPoint() = default;
  KSDataPoint(std::int64_t seconds, T number) : time(seconds), value(number) {}

  std::int64_t time = -1;  // seconds since the epoch; -1: not set
  T value = T{};
};

/// A text value; tables are derived from it, with their digest as the text.
template <>
class KEELSTONE_EXPORT KSDataPoint<std::string> : public KSDataBase {
 public:
  KSDataPoint() = default;
  KSDataPoint(std::int64_t seconds, std::string text) : time(seconds), value(std::move(text)) {}

  std::int64_t time = -1;  // seconds since the epoch; -1: not set
  std::string value;
};

}  // namespace keelstone

#endif  // KEELSTONE_DATA_POINT_H
