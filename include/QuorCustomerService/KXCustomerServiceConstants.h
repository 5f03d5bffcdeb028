#pragma once

#include <cstdint>

namespace quor {

// The service mode: KXCustomerServiceClient::currentCSModeType() and the mode callback's
// argument.
enum KXCSModeType : uint64_t {
  KXCSModeNoService = 0,   // no service: at start, after a closed service or a refused agent
  KXCSModeRobotOnly = 1,   // robot only, no human agent to switch to
  KXCSModeHuman = 2,       // talking to a human agent
  KXCSModeRobotFirst = 3,  // talking to the robot, a human agent can be requested
};

// The service type the desk reports in its handshake response (the session's type()).
enum KXCSServiceType : int32_t {
  KXCSServiceTypeRobotOnly = 1,
  KXCSServiceTypeHumanOnly = 2,
  KXCSServiceTypeRobotFirst = 3,
  KXCSServiceTypeHumanFirst = 4,
};

// The handshake response's status ("status" of KX:CsHsR): 0 refuses the service, any other
// value accepts it.
constexpr int32_t KXCSHandShakeRefused = 0;

// The desk's answer to an agent request: the "status" of KX:CsChaR's "data".
enum KXCSChangeModeResult : int32_t {
  KXCSChangeModeAgentServes = 1,       // an agent takes the customer
  KXCSChangeModeNoAgent = 2,           // no agent available
  KXCSChangeModeRefused = 3,           // refused: the customer is blocked
  KXCSChangeModeAlreadyWithAgent = 4,  // the customer is already with an agent
};

// What the desk's end (KX:CsEnd) does, by its "code".
enum KXCSTerminateCode : int32_t {
  KXCSTerminateEndService = 0,   // the service is over
  KXCSTerminateBackToRobot = 1,  // the agent hands the customer back to the robot
};

// Who serves now, by the desk's update (KX:CsUpdate's "serviceStatus").
enum KXCSUpdateStatus : int32_t {
  KXCSUpdateRobotServes = 1,
  KXCSUpdateAgentServes = 2,
  KXCSUpdateClosed = 3,
};

// What a rating (KX:CsEva's "type") rates.
enum KXCSEvaluationType : int32_t {
  KXCSEvaluationRobot = 0,
  KXCSEvaluationAgent = 1,
};

}  // namespace quor
