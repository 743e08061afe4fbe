#ifndef KEELSTONE_INTAKE_JSON_FIELDS_H
#define KEELSTONE_INTAKE_JSON_FIELDS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "keelstone/raw_json.h"

namespace keelstone {

/// The members of objects that have a meaning, by name; of two with one name the last counts,
/// others are passed over. Objects of one kind mostly have their members in one order: a member
/// is first looked for where it was in the object before. One thread.
template <class Fields, std::size_t N>
class JsonFields {
 public:
  using Name = std::pair<std::string_view, RawJson::Value Fields::*>;

  explicit constexpr JsonFields(const std::array<Name, N>& names) : names_(names) {
    guesses_.fill(0);
  }

  Fields Take(const RawJson::Value& object) {
    Fields fields;
    std::size_t place = 0;
    for (auto member = object.begin(); member != object.end(); ++member, ++place) {
      const std::size_t known = Find(member.name(), place);
      if (known < N) fields.*(names_[known].second) = *member;
    }
    return fields;
  }

 private:
  /// Which name it is; N for none of them.
  std::size_t Find(std::string_view name, std::size_t place) {
    std::uint8_t none = 0;
    std::uint8_t& guess = place < N ? guesses_[place] : none;
    if (names_[guess].first == name) return guess;
    const auto known = std::find_if(names_.begin(), names_.end(),
                                    [&](const Name& entry) { return entry.first == name; });
    const auto index = static_cast<std::size_t>(known - names_.begin());
    if (index < N) guess = static_cast<std::uint8_t>(index);
    return index;
  }

  const std::array<Name, N>& names_;
  std::array<std::uint8_t, N> guesses_;  // of the member at that place
};

}  // namespace keelstone

#endif  // KEELSTONE_INTAKE_JSON_FIELDS_H
