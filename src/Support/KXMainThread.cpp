#include "Support/KXMainThread.h"

#include <vector>

#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"
#include "Support/KXCallbackGuard.h"

namespace quor {
namespace {

// The reports waiting for the end of the closure that runs on this thread, if any.
thread_local std::vector<std::function<void()>>* afterTurn = nullptr;

void runTurn(const std::function<void()>& closure) {
  std::vector<std::function<void()>> after;
  auto* const outer = afterTurn;  // a dispatcher that runs closures inside post()
  afterTurn = &after;
  KXCallbackGuard::run(closure);
  // A report may add more: they run too, in order.
  for (std::size_t i = 0; i < after.size(); ++i) {
    auto next = std::move(after[i]);
    KXCallbackGuard::run(next);
  }
  afterTurn = outer;
}

}  // namespace

void KXMainThread::post(std::function<void()> closure) {
  auto dispatcher = KXMainThreadDispatcher::shared();
  // Every application callback inside a closure is guarded on its own, so that the steps
  // after it still run; this outer guard only keeps anything else away from the dispatcher.
  KXCallbackGuard::host(true, [&] {
    dispatcher->post([closure = std::move(closure)] { runTurn(closure); });
    return true;
  });
}

void KXMainThread::afterCurrent(std::function<void()> closure) {
  if (afterTurn) {
    afterTurn->push_back(std::move(closure));
  } else {
    post(std::move(closure));
  }
}

}  // namespace quor
