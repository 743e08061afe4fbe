#ifndef KEELSTONE_MODEL_HISTORY_CAST_TO_H
#define KEELSTONE_MODEL_HISTORY_CAST_TO_H

#include <type_traits>
#include <typeinfo>

namespace keelstone {

/// dynamic_cast of a pointer. To a class that nothing is derived from it is a comparison
/// of types, which compilers do not always find.
template <class To, class From>
To* CastTo(From* from) {
  if constexpr (std::is_final_v<std::remove_const_t<To>>) {
    return from != nullptr && typeid(*from) == typeid(To) ? static_cast<To*>(from) : nullptr;
  } else {
    return dynamic_cast<To*>(from);
  }
}

}  // namespace keelstone

#endif  // KEELSTONE_MODEL_HISTORY_CAST_TO_H
