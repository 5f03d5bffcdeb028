#include "Support/KXUtf8.h"

#include <cstddef>
#include <cstdint>

namespace quor {

bool KXUtf8::isValid(std::string_view bytes) {
  const std::size_t size = bytes.size();
  std::size_t i = 0;
  while (i < size) {
    const auto lead = static_cast<uint8_t>(bytes[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    std::size_t length;
    uint8_t low = 0x80;  // the range of the second byte, narrowed for the lead bytes that need it
    uint8_t high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) low = 0xA0;   // overlong
      if (lead == 0xED) high = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) low = 0x90;   // overlong
      if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
    } else {
      return false;
    }
    if (size - i < length) return false;
    const auto second = static_cast<uint8_t>(bytes[i + 1]);
    if (second < low || second > high) return false;
    for (std::size_t k = 2; k < length; ++k) {
      const auto next = static_cast<uint8_t>(bytes[i + k]);
      if (next < 0x80 || next > 0xBF) return false;
    }
    i += length;
  }
  return true;
}

}  // namespace quor
