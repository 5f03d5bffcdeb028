#include "QuorServiceRecord.h"

#include <sstream>

#include "QuorCustomerService/KXCustomerServiceConstants.h"
#include "QuorCustomerService/Message/KXCSChangeModeMessage.h"
#include "QuorCustomerService/Message/KXCSChangeModeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSSuspendMessage.h"
#include "QuorCustomerService/Message/KXCSTerminateMessage.h"
#include "QuorCustomerService/Message/KXCSUpdateMessage.h"

namespace quor {
namespace {

using State = KXCSServiceState;

template <typename Content>
Content decoded(const KXData& body) {
  Content content;
  content.decodeWithData(body);
  return content;
}

bool robotServes(int32_t serviceType) {
  return serviceType == KXCSServiceTypeRobotOnly || serviceType == KXCSServiceTypeRobotFirst;
}

}  // namespace

bool QuorServiceRecord::concerns(const std::string& objectName) {
  for (const std::string& name :
       {KXCSHandShakeMessage::getObjectName(), KXCSChangeModeMessage::getObjectName(),
        KXCSSuspendMessage::getObjectName(), KXCSHandShakeResponseMessage::getObjectName(),
        KXCSChangeModeResponseMessage::getObjectName(), KXCSTerminateMessage::getObjectName(),
        KXCSUpdateMessage::getObjectName()}) {
    if (objectName == name) return true;
  }
  return false;
}

QuorServiceRecord QuorServiceRecord::fromNote(const std::string& note) {
  QuorServiceRecord record;
  std::istringstream in(note);
  int state = 0;
  int32_t serviceType = 0;
  int64_t stamp = 0;
  if (!(in >> state >> serviceType >> stamp) || state < 0 ||
      state > static_cast<int>(State::Failed)) {
    return record;
  }
  record.state_ = static_cast<State>(state);
  record.serviceType_ = serviceType;
  record.stamp_ = stamp;
  return record;
}

std::string QuorServiceRecord::note() const {
  return std::to_string(static_cast<int>(state_)) + " " + std::to_string(serviceType_) + " " +
         std::to_string(stamp_);
}

bool QuorServiceRecord::take(const std::string& objectName, const KXData& body, bool sent,
                             int64_t stamp) {
  if (stamp < stamp_) return false;
  State next = state_;
  const int32_t typeBefore = serviceType_;
  if (sent) {
    if (objectName == KXCSHandShakeMessage::getObjectName()) next = State::Connecting;
    if (objectName == KXCSChangeModeMessage::getObjectName()) next = State::WaitingForAgent;
    if (objectName == KXCSSuspendMessage::getObjectName()) next = State::Ended;
  } else if (objectName == KXCSHandShakeResponseMessage::getObjectName()) {
    const auto answer = decoded<KXCSHandShakeResponseMessage>(body);
    serviceType_ = answer.type();
    next = answer.code() == KXCSHandShakeRefused ? State::Failed
           : robotServes(serviceType_)           ? State::Robot
                                                 : State::Agent;
  } else if (objectName == KXCSChangeModeResponseMessage::getObjectName()) {
    switch (decoded<KXCSChangeModeResponseMessage>(body).result()) {
      case KXCSChangeModeAgentServes:
      case KXCSChangeModeAlreadyWithAgent:
        next = State::Agent;
        break;
      case KXCSChangeModeNoAgent:
      case KXCSChangeModeRefused:
        // Back to the robot where there is one, else the service is over.
        next =
            serviceType_ == KXCSServiceTypeRobotFirst || serviceType_ == KXCSServiceTypeHumanFirst
                ? State::Robot
                : State::Ended;
        break;
      default:
        break;
    }
  } else if (objectName == KXCSTerminateMessage::getObjectName()) {
    const int32_t code = decoded<KXCSTerminateMessage>(body).code();
    if (code == KXCSTerminateEndService) next = State::Ended;
    if (code == KXCSTerminateBackToRobot) next = State::Robot;
  } else if (objectName == KXCSUpdateMessage::getObjectName()) {
    switch (decoded<KXCSUpdateMessage>(body).serviceStatus()) {
      case KXCSUpdateRobotServes:
        next = State::Robot;
        break;
      case KXCSUpdateAgentServes:
        next = State::Agent;
        break;
      case KXCSUpdateClosed:
        next = State::Ended;
        break;
      default:
        break;
    }
  }
  if (next == state_ && serviceType_ == typeBefore) return false;
  state_ = next;
  stamp_ = stamp;
  return true;
}

}  // namespace quor
