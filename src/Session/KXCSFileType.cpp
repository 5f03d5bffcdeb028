#include "QuorCustomerService/Session/KXCSFileType.h"

#include <algorithm>
#include <fstream>

namespace quor {
namespace {

constexpr std::size_t kHead = 64 * 1024;

uint32_t bigEndian(const std::string& b, std::size_t at, int bytes) {
  uint32_t value = 0;
  for (int i = 0; i < bytes; ++i) value = (value << 8) | static_cast<unsigned char>(b[at + i]);
  return value;
}

uint32_t littleEndian(const std::string& b, std::size_t at, int bytes) {
  uint32_t value = 0;
  for (int i = bytes - 1; i >= 0; --i) value = (value << 8) | static_cast<unsigned char>(b[at + i]);
  return value;
}

bool startsWith(const std::string& b, std::size_t at, const char* magic, std::size_t length) {
  return b.size() >= at + length && b.compare(at, length, magic, length) == 0;
}

// A JPEG's size is in its first start-of-frame segment; the segments before it are skipped by
// their lengths, so the walk is one pass over the head.
void jpegSize(const std::string& b, KXCSFileType::Seen* seen) {
  std::size_t at = 2;
  while (at + 9 < b.size()) {
    if (static_cast<unsigned char>(b[at]) != 0xFF) return;
    const unsigned marker = static_cast<unsigned char>(b[at + 1]);
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    const bool frame =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) {
      seen->height = bigEndian(b, at + 5, 2);
      seen->width = bigEndian(b, at + 7, 2);
      return;
    }
    const uint32_t length = bigEndian(b, at + 2, 2);
    if (length < 2) return;
    at += 2 + length;
  }
}

void webpSize(const std::string& b, KXCSFileType::Seen* seen) {
  if (startsWith(b, 12, "VP8X", 4) && b.size() >= 30) {
    seen->width = littleEndian(b, 24, 3) + 1;
    seen->height = littleEndian(b, 27, 3) + 1;
  } else if (startsWith(b, 12, "VP8L", 4) && b.size() >= 25) {
    const uint32_t bits = littleEndian(b, 21, 4);
    seen->width = (bits & 0x3FFF) + 1;
    seen->height = ((bits >> 14) & 0x3FFF) + 1;
  } else if (startsWith(b, 12, "VP8 ", 4) && b.size() >= 30) {
    seen->width = littleEndian(b, 26, 2) & 0x3FFF;
    seen->height = littleEndian(b, 28, 2) & 0x3FFF;
  }
}

}  // namespace

KXCSFileType::Seen KXCSFileType::sniff(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string head(kHead, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(in ? head.size()
                 : static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  return sniffBytes(head);
}

KXCSFileType::Seen KXCSFileType::sniffBytes(const std::string& b) {
  Seen seen;
  if (startsWith(b, 0, "\x89PNG\r\n\x1a\n", 8)) {
    seen.type = "image/png";
    if (b.size() >= 24 && startsWith(b, 12, "IHDR", 4)) {
      seen.width = bigEndian(b, 16, 4);
      seen.height = bigEndian(b, 20, 4);
    }
  } else if (startsWith(b, 0, "\xFF\xD8\xFF", 3)) {
    seen.type = "image/jpeg";
    jpegSize(b, &seen);
  } else if (startsWith(b, 0, "GIF87a", 6) || startsWith(b, 0, "GIF89a", 6)) {
    seen.type = "image/gif";
    if (b.size() >= 10) {
      seen.width = littleEndian(b, 6, 2);
      seen.height = littleEndian(b, 8, 2);
    }
  } else if (startsWith(b, 0, "RIFF", 4) && startsWith(b, 8, "WEBP", 4)) {
    seen.type = "image/webp";
    webpSize(b, &seen);
  } else if (startsWith(b, 0, "%PDF-", 5)) {
    seen.type = "application/pdf";
  }
  return seen;
}

const std::vector<std::string>& KXCSFileType::defaultAccepted() {
  static const std::vector<std::string> types = {"image/jpeg", "image/png",       "image/gif",
                                                 "image/webp", "application/pdf", "text/plain"};
  return types;
}

std::string KXCSFileType::essence(const std::string& type) {
  std::string plain;
  for (char c : type.substr(0, type.find(';'))) {
    if (c == ' ' || c == '\t') continue;
    plain += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }
  return plain;
}

std::string KXCSFileType::trusted(const std::string& declared, const Seen& seen) {
  if (seen.type != Seen().type) return seen.type;
  return essence(declared) == "text/plain" ? "text/plain" : seen.type;
}

bool KXCSFileType::accepted(const std::vector<std::string>& patterns, const std::string& type) {
  const std::string plain = essence(type);
  const auto slash = plain.find('/');
  if (slash == std::string::npos || slash == 0 || slash + 1 == plain.size()) return false;
  return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
    const std::string wanted = essence(pattern);
    if (wanted == "*/*" || wanted == plain) return true;
    return wanted.size() > 2 && wanted.compare(wanted.size() - 2, 2, "/*") == 0 &&
           plain.compare(0, wanted.size() - 1, wanted, 0, wanted.size() - 1) == 0;
  });
}

}  // namespace quor
