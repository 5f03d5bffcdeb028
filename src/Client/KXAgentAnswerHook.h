// The desk's answers to an agent request (KX:CsChaR), for the session layer. For some of them
// the client reports nothing to the app (no agent in a robot-first service, a refusal): the
// session learns them here so that its state never waits for ever. The client's own behaviour
// does not change.
//
// Threads: any; a listener is called on the thread that delivered the answer, with no lock held.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

class KXAgentAnswerHook {
 public:
  // result: the answer's result (1 an agent, 2 none available, 3 refused, 4 already with one);
  // serviceType: the service's type when the answer came; text: the answer's errMsg.
  using Listener = std::function<void(int32_t result, int32_t serviceType, const KXString& text)>;
  // One listener per desk and owner; listening again replaces it.
  static void listen(const std::string& deskId, const void* owner, Listener listener);
  static void forget(const std::string& deskId, const void* owner);
  static void report(const std::string& deskId, int32_t result, int32_t serviceType,
                     const KXString& text);
};

}  // namespace quor
