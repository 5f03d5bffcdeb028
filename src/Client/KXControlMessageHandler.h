// Handles the desk's control messages for the client: the staleness filter, the session
// lookup and the handling of each of the five control types.
#pragma once

#include <memory>

#include "Client/KXClientState.h"
#include "QuorCustomerService/Message/KXCSChangeModeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSPullEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSTerminateMessage.h"
#include "QuorCustomerService/Message/KXCSUpdateMessage.h"

namespace quor {

class KXControlMessageHandler {
 public:
  KXControlMessageHandler(KXCustomerServiceClient& client, KXClientState& state)
      : client_(client), state_(state) {}

  // The whole of onCustomerServiceMessageReceived: runs on the delivering thread.
  bool handle(const std::shared_ptr<KXMessage>& message);

  // Shows the robot's greeting as a local incoming text message of the message's desk, when
  // `helloWord` is a non-empty string.
  static void showRobotGreeting(KXCustomerServiceClient& client, const KXMessage& message,
                                const KXString& helloWord, const KXString& robotName,
                                const KXString& robotLogo);

 private:
  using Session = std::shared_ptr<KXCustomerServiceSession>;

  void handShakeResponse(const std::shared_ptr<KXMessage>& message,
                         const std::shared_ptr<KXCSHandShakeResponseMessage>& response,
                         const Session& session);
  void changeModeResponse(const std::shared_ptr<KXMessage>& message,
                          const KXCSChangeModeResponseMessage& response, const Session& session);
  void terminate(const KXMessage& message, const KXCSTerminateMessage& end, const Session& session);
  void update(const KXCSUpdateMessage& update, const Session& session);
  void pullEvaluate(const KXCSPullEvaluateMessage& request, const Session& session);

  // The client outlives every posted closure (it is never destroyed), so closures keep a
  // pointer to it rather than to the handler.

  // Reports mode `mode` on the main thread: only when the session's mode callback is present
  // then, the mode is set and the callback called.
  void reportMode(const Session& session, KXCSModeType mode);
  // The same, run directly on the main thread inside an already posted closure.
  static void reportModeNow(KXCustomerServiceClient& client, const Session& session,
                            KXCSModeType mode);

  KXCustomerServiceClient& client_;
  KXClientState& state_;
};

}  // namespace quor
