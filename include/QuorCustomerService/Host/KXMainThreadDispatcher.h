#pragma once

#include <functional>
#include <memory>

#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// Posts closures to the application's main thread. Every callback that the library reports on
// the main thread (success, error, mode, pull-evaluation, group selection, quit) and every
// change of the service mode runs in a closure posted here.
//
// An iOS or Android host installs a dispatcher onto its own main queue; without one the
// library uses its default run loop (KXMainRunLoop::defaultRunLoop()), which a command-line
// program or a test drains itself. post() is called from any thread and must run the closures
// one at a time, in the order they were posted.
class QUOR_CS_EXPORT KXMainThreadDispatcher {
 public:
  virtual ~KXMainThreadDispatcher();

  // The installed dispatcher, or the default run loop when none is installed.
  static std::shared_ptr<KXMainThreadDispatcher> shared();
  // Installs a dispatcher; null returns to the default run loop.
  static void setShared(std::shared_ptr<KXMainThreadDispatcher> dispatcher);

  virtual void post(std::function<void()> closure) = 0;
};

}  // namespace quor
