// Whether bytes are UTF-8, checked before a text goes out: an encoder cannot write anything
// else, and a text it cannot write must be refused, not sent empty.
#pragma once

#include <string_view>

namespace quor {

class KXUtf8 {
 public:
  // True for well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates, at most U+10FFFF).
  // Linear in the length.
  static bool isValid(std::string_view bytes);
};

}  // namespace quor
