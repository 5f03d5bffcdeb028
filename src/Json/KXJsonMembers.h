// Lenient readers of the members of a JSON object that this system writes or a person edits (a
// profile, a configuration, a request of the console): a missing member, or one of another JSON
// type, reads as the fallback. Never throws. Header-only, shared by the library and the tools.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

class KXJsonMembers {
 public:
  // The member `key` of `object`; a null value when `object` is no object or has no such key.
  static const KXDictionary& member(const KXDictionary& object, const char* key) {
    static const KXDictionary none;
    if (!object.is_object()) return none;
    const auto it = object.find(key);
    return it == object.end() ? none : *it;
  }
  static std::string text(const KXDictionary& object, const char* key,
                          const std::string& fallback = "") {
    const KXDictionary& value = member(object, key);
    return value.is_string() ? value.get<std::string>() : fallback;
  }
  // A string member, absent when missing or of another type.
  static KXString optionalText(const KXDictionary& object, const char* key) {
    const KXDictionary& value = member(object, key);
    return value.is_string() ? KXString(value.get<std::string>()) : std::nullopt;
  }
  static bool flag(const KXDictionary& object, const char* key, bool fallback = false) {
    const KXDictionary& value = member(object, key);
    return value.is_boolean() ? value.get<bool>() : fallback;
  }
  // An integer member as `Number`, read through the JSON value's own sign so that no 64-bit
  // value passes through a narrower type; floats read as the fallback.
  template <class Number = int64_t>
  static Number integer(const KXDictionary& object, const char* key, Number fallback = 0) {
    const KXDictionary& value = member(object, key);
    if (value.is_number_unsigned()) return static_cast<Number>(value.get<uint64_t>());
    if (value.is_number_integer()) return static_cast<Number>(value.get<int64_t>());
    return fallback;
  }
  // An array member; an empty array otherwise.
  static KXDictionary list(const KXDictionary& object, const char* key) {
    const KXDictionary& value = member(object, key);
    return value.is_array() ? value : KXDictionary::array();
  }
};

}  // namespace quor
