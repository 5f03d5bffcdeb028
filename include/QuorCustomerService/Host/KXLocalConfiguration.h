#pragma once

#include <memory>

#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's local settings. The library reads one: csSuspendWhenLeave, the default for
// suspending a service when the customer leaves, read while decoding a handshake response
// (on the host's delivery thread), so an implementation must be thread-safe.
class QUOR_CS_EXPORT KXLocalConfiguration {
 public:
  virtual ~KXLocalConfiguration();

  // The installed settings, fetched afresh at every use; null when none are installed, in
  // which case csSuspendWhenLeave reads as false.
  static std::shared_ptr<KXLocalConfiguration> sharedInstance();
  static void setSharedInstance(std::shared_ptr<KXLocalConfiguration> configuration);

  virtual bool csSuspendWhenLeave() const = 0;
};

}  // namespace quor
