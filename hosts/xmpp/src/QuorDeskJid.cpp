#include "QuorXmppHost/QuorDeskJid.h"

namespace quor {
namespace {

constexpr std::size_t kLongestLocalPart = 1023;

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string QuorDeskJid::toJid(const std::string& id, const std::string& domain) {
  static const char kHex[] = "0123456789abcdef";
  std::string local;
  for (const unsigned char c : id) {
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_') {
      local += static_cast<char>(c);
    } else {
      local += '\\';
      local += kHex[c >> 4];
      local += kHex[c & 0xF];
    }
  }
  if (local.empty() || local.size() > kLongestLocalPart) return "";
  return local + "@" + domain;
}

std::string QuorDeskJid::fromJid(const std::string& jid, const std::string& domain) {
  const std::string bare = jid.substr(0, jid.find('/'));
  const auto at = bare.find('@');
  if (at == std::string::npos || bare.compare(at + 1, std::string::npos, domain) != 0) return bare;
  std::string id;
  for (std::size_t i = 0; i < at; ++i) {
    if (bare[i] == '\\' && i + 2 < at) {
      const int high = hexValue(bare[i + 1]);
      const int low = hexValue(bare[i + 2]);
      if (high >= 0 && low >= 0) {
        id += static_cast<char>(high * 16 + low);
        i += 2;
        continue;
      }
    }
    id += bare[i];
  }
  return id;
}

}  // namespace quor
