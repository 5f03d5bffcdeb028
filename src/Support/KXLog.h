// Writes the library's log entries through the host's logger.
#pragma once

#include <initializer_list>
#include <string_view>

#include "QuorCustomerService/Host/KXLogArgument.h"

namespace quor {

// A logger that throws loses the entry and nothing else. Every entry has the type 1024 and the
// writing source file's name as its tag; pass KX_LOG_TAG from the file that writes the entry.
class KXLog {
 public:
  // The text of a source path after its last "/".
  static constexpr std::string_view tagFromPath(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
  }

  static void info(std::string_view tag, std::string_view format,
                   std::initializer_list<KXLogArgument> keys = {}) noexcept;
  static void error(std::string_view tag, std::string_view text) noexcept;
};

}  // namespace quor

#define KX_LOG_TAG (::quor::KXLog::tagFromPath(__FILE__))
