#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "QuorCustomerService/Host/KXLogArgument.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's framework logger. Every entry the library writes has a level (2 error, 4
// information), the type 1024, a tag (the writing source file's name) and a format text whose
// "%@" placeholders are filled from the arguments. Formatting is the logger's job, so an
// entry the logger drops costs almost nothing.
//
// Threads: write() is called from any thread (the delivery thread for decoded bodies, the
// application's thread for sent ones), so an implementation must be thread-safe.
class QUOR_CS_EXPORT KXFwLog {
 public:
  virtual ~KXFwLog();

  // The installed logger, fetched afresh for every entry; null when none is installed, in
  // which case entries are dropped.
  static std::shared_ptr<KXFwLog> getInstance();
  static void setInstance(std::shared_ptr<KXFwLog> logger);

  // write:type:tag:keys: The arguments refer to the caller's data and are valid only during
  // the call.
  virtual void write(int32_t level, int32_t type, std::string_view tag, std::string_view format,
                     std::initializer_list<KXLogArgument> keys) = 0;

  // The format with each "%@" replaced by the next argument's description(); placeholders
  // without an argument are replaced by "(null)".
  static std::string format(std::string_view format, std::initializer_list<KXLogArgument> keys);
};

}  // namespace quor
