// Reads received bodies: parsing with the library's limits and the lenient value coercions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

// Parsing and coercion rules shared by every decoder. Every function takes a pointer to a
// JSON value that may be null (a missing key) and never throws.
class KXJsonReader {
 public:
  // The body as a JSON object; absent when the bytes are not JSON, not valid UTF-8, nested too
  // deeply, or their top level is not an object.
  static std::optional<KXDictionary> parseObject(const std::string& bytes);

  // The body of a received message as an object, by the common reading rule: absent bytes give
  // nothing and log nothing; bytes that do not parse give nothing after the type's error line
  // (level 2, `tag`).
  static std::optional<KXDictionary> readBody(const KXData& data, std::string_view tag,
                                              std::string_view errorLine);

  // The value under `key` of `object`; null when `object` is null or not an object, or the key
  // is missing.
  static const KXDictionary* find(const KXDictionary* object, const char* key);
  // `value` when it is a JSON object, else null.
  static const KXDictionary* object(const KXDictionary* value);
  // `value` when it is a JSON array, else null.
  static const KXDictionary* array(const KXDictionary* value);

  // Integer reading: a number truncated toward zero (integers keep their low 32 bits, floats
  // saturate), a string by its leading decimal integer (saturating), true 1; else 0.
  static int32_t integer(const KXDictionary* value);
  // Integer reading widened with its sign into 64 unsigned bits.
  static uint64_t widenedInteger(const KXDictionary* value);
  // Boolean reading: a non-zero number, true, or a string starting (after white space, a sign
  // and zeros) with Y, y, T, t or 1-9.
  static bool boolean(const KXDictionary* value);
  // String reading "as is": a string's text, null as absent, any other value as its compact
  // JSON text.
  static KXString string(const KXDictionary* value);
  // A JSON value kept as is, shared; absent when missing or null.
  static std::shared_ptr<const KXDictionary> shared(const KXDictionary* value);
  // The same, moving the value out of a body the caller owns (it is null there afterwards).
  static std::shared_ptr<const KXDictionary> taken(KXDictionary* value);
  // string(), moving a string's text out of a body the caller owns instead of copying it.
  static KXString takenString(KXDictionary* value);

  // The same readings of the value under `key` of `object`.
  static int32_t integer(const KXDictionary& object, const char* key) {
    return integer(find(&object, key));
  }
  static bool boolean(const KXDictionary& object, const char* key) {
    return boolean(find(&object, key));
  }
  static KXString string(const KXDictionary& object, const char* key) {
    return string(find(&object, key));
  }

  // A fixed set of keys whose values are looked up in one pass over an object: each of the
  // object's keys is found among them by a binary search (by length, then bytes), instead of a
  // linear search of the object per key. For decoders that read many fields of one object.
  class Keys {
   public:
    explicit Keys(std::initializer_list<std::string_view> names);
    std::size_t size() const { return names_.size(); }
    // Fills values[i] with the value under the i-th name of `object` (null when missing); an
    // object the caller owns gives values it may take (moved out). `values` has size() places.
    void find(KXDictionary* object, KXDictionary** values) const;

   private:
    std::vector<std::string_view> names_;
    std::vector<std::size_t> order_;
  };
};

}  // namespace quor
