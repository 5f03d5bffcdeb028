// What the client learns that its own callbacks do not carry, for the session layer: the desk's
// answers to an agent request (for some the client reports nothing: no agent in a robot-first
// service, a refusal), that a handshake left, and each message of a desk's conversation that
// reaches the app (texts and notices, received or made locally). The client's own behaviour
// does not change.
//
// Threads: any; a listener is called on the thread that reported, with no lock held.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

class KXSessionHook {
 public:
  struct Listener {
    // result: the answer's result (1 an agent, 2 none available, 3 refused, 4 already with
    // one); serviceType: the service's type when the answer came; text: the answer's errMsg.
    std::function<void(int32_t result, int32_t serviceType, const KXString& text)> agentAnswer;
    // The host confirmed the desk's handshake.
    std::function<void()> handshakeSent;
    // A text or notice of the desk's conversation on its way to the app.
    std::function<void(const std::shared_ptr<KXMessage>& message)> conversationMessage;
  };
  // One listener per desk and owner; listening again replaces it.
  static void listen(const std::string& deskId, const void* owner, Listener listener);
  static void forget(const std::string& deskId, const void* owner);

  static void agentAnswer(const KXString& deskId, int32_t result, int32_t serviceType,
                          const KXString& text);
  static void handshakeSent(const KXString& deskId);
  // Reports `message` when it is a text or notice of a customer-service conversation.
  static void conversationMessage(const std::shared_ptr<KXMessage>& message);
};

}  // namespace quor
