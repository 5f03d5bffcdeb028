// What the client learns that its own callbacks do not carry, told to the session of each desk:
// the desk's answers to an agent request (for some the client reports nothing: no agent in a
// robot-first service, a refusal), that a handshake left, each line of a desk's conversation
// that reaches the app (texts and notices, received or made locally), that another device
// of the account read it, and the desk's typing and reading. The client owns one; a
// session registers its observer for its desk. The client's own behaviour does not change.
//
// Threads: any; an observer is called on the thread that reported, with no lock held.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

class KXClientEvents {
 public:
  class Observer {
   public:
    virtual ~Observer() = default;
    // result: the answer's result (1 an agent, 2 none available, 3 refused, 4 already with
    // one); serviceType: the service's type when the answer came; text: the answer's errMsg.
    virtual void onAgentAnswer(int32_t result, int32_t serviceType, const KXString& text) = 0;
    // The host confirmed the desk's handshake.
    virtual void onHandshakeSent() = 0;
    // A text or notice of the desk's conversation on its way to the app: received from the desk
    // (`received`), or made by the library itself (a greeting, a notice).
    virtual void onConversationMessage(const std::shared_ptr<KXMessage>& message,
                                       bool received) = 0;
    // Another device of the account read the desk's conversation.
    virtual void onConversationRead() {}
    // The desk is typing (`typing`) or stopped.
    virtual void onDeskTyping(bool /*typing*/) {}
    // The desk read the customer's message `messageId` and those before it.
    virtual void onDeskRead(int64_t /*messageId*/) {}
  };

  // Observers are held weakly: one that is gone is dropped.
  void add(const std::string& deskId, std::weak_ptr<Observer> observer);

  void agentAnswer(const KXString& deskId, int32_t result, int32_t serviceType,
                   const KXString& text);
  void handshakeSent(const KXString& deskId);
  // Reports `message` when it is a text or notice of a customer-service conversation.
  void conversationMessage(const std::shared_ptr<KXMessage>& message, bool received);
  void conversationRead(const KXString& deskId);
  void deskTyping(const KXString& deskId, bool typing);
  void deskRead(const KXString& deskId, int64_t messageId);

 private:
  std::vector<std::shared_ptr<Observer>> observersOf(const KXString& deskId);

  std::mutex mutex_;
  std::multimap<std::string, std::weak_ptr<Observer>> byDesk_;
};

}  // namespace quor
