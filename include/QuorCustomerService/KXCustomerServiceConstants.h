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

}  // namespace quor
