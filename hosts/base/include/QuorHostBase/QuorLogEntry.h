#pragma once

#include <cstdint>
#include <string>

namespace quor {

// One log entry as a host's log sink receives it, formatted. A plain value.
struct QuorLogEntry {
  std::string thread;
  int32_t level = 0;  // 2 errors, 4 information (lower is more severe)
  int32_t type = 0;
  std::string tag;
  std::string text;
};

}  // namespace quor
