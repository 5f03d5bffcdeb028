#include "QuorHostBase/QuorFileCache.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace quor {
namespace {

constexpr std::size_t kMaxNameBytes = 100;

bool refused(unsigned char c) {
  static constexpr std::string_view kWindows = "<>:\"/\\|?*";
  return c < 0x20 || c == 0x7F || kWindows.find(static_cast<char>(c)) != std::string_view::npos;
}

// The device names Windows reserves, with or without an extension ("nul.txt" too).
bool deviceName(const std::string& name) {
  static const std::array<const char*, 6> kPlain = {"con", "prn",    "aux",
                                                    "nul", "conin$", "conout$"};
  std::string stem;
  for (char c : name.substr(0, name.find('.')))
    stem += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  while (!stem.empty() && stem.back() == ' ') stem.pop_back();
  for (const char* plain : kPlain) {
    if (stem == plain) return true;
  }
  return stem.size() == 4 && (stem.compare(0, 3, "com") == 0 || stem.compare(0, 3, "lpt") == 0) &&
         stem[3] >= '0' && stem[3] <= '9';
}

// Cuts `text` to at most `bytes` bytes without splitting a UTF-8 sequence.
std::string cut(const std::string& text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  std::size_t end = bytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

}  // namespace

std::string QuorFileCache::safeName(const std::string& name) {
  // Only the last part: whatever came before a separator of any system is dropped.
  const auto slash = name.find_last_of("/\\");
  const std::string last = slash == std::string::npos ? name : name.substr(slash + 1);
  std::string safe;
  for (unsigned char c : last) safe += refused(c) ? '_' : static_cast<char>(c);
  // Leading dots and spaces (hidden files, "..") and trailing ones (Windows drops them) go.
  const auto first = safe.find_first_not_of(". ");
  safe = first == std::string::npos ? "" : safe.substr(first);
  while (!safe.empty() && (safe.back() == '.' || safe.back() == ' ')) safe.pop_back();
  safe = cut(safe, kMaxNameBytes);
  if (safe.empty()) return "file";
  return deviceName(safe) ? "_" + safe : safe;
}

std::string QuorFileCache::pathFor(const std::string& url, const std::string& name) const {
  // FNV-1a: a key, not a secret; the URL itself already names the file on its server.
  uint64_t hash = 1469598103934665603ULL;
  for (unsigned char c : url) hash = (hash ^ c) * 1099511628211ULL;
  char key[17];
  std::snprintf(key, sizeof key, "%016llx", static_cast<unsigned long long>(hash));
  return directory_ + "/" + key + "-" + safeName(name);
}

}  // namespace quor
