#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "QuorCustomerService/Message/KXCustomerServiceConfig.h"
#include "QuorCustomerService/Message/KXCustomerServiceGroupItem.h"

namespace quor {

// Where a service with a desk stands (KXCSService).
enum class KXCSServiceState {
  NotStarted,
  Connecting,       // the handshake was sent; the desk has not answered yet
  Connected,        // the desk answered with its configuration; the mode follows at once
  Robot,            // talking to the robot (canAskForAgent says whether an agent may be asked)
  ChoosingGroup,    // an agent was asked for and the desk offered groups: choose one
  WaitingForAgent,  // an agent (of a group) was asked for; the desk has not answered yet
  Agent,            // talking to a human agent
  Ended,            // the service is over (reason says who ended it)
  Failed,           // the service could not start (reason says why)
};

// Why a state was reached, beside the system's own text.
enum class KXCSServiceReason {
  None,
  ConnectionFailed,  // the host could not send the handshake: code is the host's error code
  HandshakeRefused,  // the desk answered the handshake with a failure: its code and text
  Timeout,           // no answer to the handshake within the time given to start()
  DeskEnded,         // the desk ended the service: text is its message or "客服会话已结束!"
  Blocked,           // the desk says the customer is blocked ("你已被拉黑")
  NoAgentAvailable,  // the desk had no agent: back to the robot, or the end of a human-only service
  StoppedByApp,      // end() was called
};

// One state change of a service, as the observer gets it. A plain value.
struct KXCSServiceStatus {
  KXCSServiceState state = KXCSServiceState::NotStarted;
  KXCSServiceReason reason = KXCSServiceReason::None;
  // Robot: whether askForAgent() can work (a robot-first service).
  bool canAskForAgent = false;
  // ChoosingGroup: the groups offered.
  KXCustomerServiceGroupList groups;
  // From Connected on: the desk's configuration.
  std::shared_ptr<KXCustomerServiceConfig> config;
  // Failed and Ended: the host's or the desk's code, and the system's text.
  int64_t code = 0;
  std::string text;
};

}  // namespace quor
