#ifndef KEELSTONE_PROGRAM_COMMANDS_OBJECT_KEY_H
#define KEELSTONE_PROGRAM_COMMANDS_OBJECT_KEY_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace keelstone::host {

/// One variable of one object. The texts are borrowed.
struct ObjectKey {
  std::string_view domain;
  std::string_view device;
  std::string_view source;
  std::string_view param;
  std::string_view interface;
  std::string_view variable;

  friend bool operator==(const ObjectKey&, const ObjectKey&) = default;
  friend auto operator<=>(const ObjectKey&, const ObjectKey&) = default;
};

/// Such a key with texts of its own.
struct OwnObjectKey {
  explicit OwnObjectKey(const ObjectKey& key)
      : domain(key.domain),
        device(key.device),
        source(key.source),
        param(key.param),
        interface(key.interface),
        variable(key.variable) {}
  ObjectKey view() const { return {domain, device, source, param, interface, variable}; }

  std::string domain;
  std::string device;
  std::string source;
  std::string param;
  std::string interface;
  std::string variable;
};

/// Finds own keys by borrowed ones.
struct ObjectKeyHash {
  using is_transparent = void;
  std::size_t operator()(const ObjectKey& key) const noexcept {
    std::size_t hash = 0;
    for (const std::string_view part :
         {key.domain, key.device, key.source, key.param, key.interface, key.variable}) {
      hash = hash * 1099511628211U + std::hash<std::string_view>{}(part);
    }
    return hash;
  }
  std::size_t operator()(const OwnObjectKey& key) const noexcept { return (*this)(key.view()); }
};

struct ObjectKeyEqual {
  using is_transparent = void;
  static ObjectKey View(const ObjectKey& key) { return key; }
  static ObjectKey View(const OwnObjectKey& key) { return key.view(); }
  template <class A, class B>
  bool operator()(const A& a, const B& b) const {
    return View(a) == View(b);
  }
};

template <class Mapped>
using ObjectMap = std::unordered_map<OwnObjectKey, Mapped, ObjectKeyHash, ObjectKeyEqual>;

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMANDS_OBJECT_KEY_H
