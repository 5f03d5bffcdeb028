#include "QuorCustomerService/Session/KXCSService.h"

namespace quor {

// Each switch names every enumerator and has no default, so the compiler (-Wswitch, an error
// here) refuses a new enumerator without its name.
const char* KXCSService::stateName(KXCSServiceState state) {
  using enum_t = KXCSServiceState;
  switch (state) {
    case enum_t::NotStarted:
      return "NotStarted";
    case enum_t::Connecting:
      return "Connecting";
    case enum_t::Connected:
      return "Connected";
    case enum_t::Robot:
      return "Robot";
    case enum_t::ChoosingGroup:
      return "ChoosingGroup";
    case enum_t::WaitingForAgent:
      return "WaitingForAgent";
    case enum_t::Agent:
      return "Agent";
    case enum_t::Ended:
      return "Ended";
    case enum_t::Failed:
      return "Failed";
  }
  return "?";  // a value outside the enum (a cast from a number)
}

const char* KXCSService::reasonName(KXCSServiceReason reason) {
  using enum_t = KXCSServiceReason;
  switch (reason) {
    case enum_t::None:
      return "None";
    case enum_t::ConnectionFailed:
      return "ConnectionFailed";
    case enum_t::HandshakeRefused:
      return "HandshakeRefused";
    case enum_t::Timeout:
      return "Timeout";
    case enum_t::DeskEnded:
      return "DeskEnded";
    case enum_t::Blocked:
      return "Blocked";
    case enum_t::NoAgentAvailable:
      return "NoAgentAvailable";
    case enum_t::StoppedByApp:
      return "StoppedByApp";
  }
  return "?";  // a value outside the enum (a cast from a number)
}

const char* KXCSService::resultName(KXCSServiceResult result) {
  using enum_t = KXCSServiceResult;
  switch (result) {
    case enum_t::Done:
      return "Done";
    case enum_t::AlreadyStarted:
      return "AlreadyStarted";
    case enum_t::NotConnected:
      return "NotConnected";
    case enum_t::AgentNotOffered:
      return "AgentNotOffered";
    case enum_t::AlreadyWithAgent:
      return "AlreadyWithAgent";
    case enum_t::Blocked:
      return "Blocked";
    case enum_t::NotChoosingGroup:
      return "NotChoosingGroup";
    case enum_t::GroupNotOffered:
      return "GroupNotOffered";
    case enum_t::RatingNotOffered:
      return "RatingNotOffered";
    case enum_t::NoDialogToRate:
      return "NoDialogToRate";
    case enum_t::StarsNotOffered:
      return "StarsNotOffered";
    case enum_t::InvalidForm:
      return "InvalidForm";
    case enum_t::EmptyText:
      return "EmptyText";
    case enum_t::InvalidText:
      return "InvalidText";
    case enum_t::TooLarge:
      return "TooLarge";
    case enum_t::NotRetryable:
      return "NotRetryable";
    case enum_t::FilesNotOffered:
      return "FilesNotOffered";
    case enum_t::FileUnreadable:
      return "FileUnreadable";
    case enum_t::TypeNotAccepted:
      return "TypeNotAccepted";
    case enum_t::NoSuchFile:
      return "NoSuchFile";
  }
  return "?";  // a value outside the enum (a cast from a number)
}

const char* KXCSService::authorName(KXCSMessageAuthor author) {
  using enum_t = KXCSMessageAuthor;
  switch (author) {
    case enum_t::Customer:
      return "Customer";
    case enum_t::Robot:
      return "Robot";
    case enum_t::Agent:
      return "Agent";
    case enum_t::Notice:
      return "Notice";
    case enum_t::LeaveMessageInvitation:
      return "LeaveMessageInvitation";
  }
  return "?";
}

const char* KXCSService::deliveryName(KXCSDelivery delivery) {
  using enum_t = KXCSDelivery;
  switch (delivery) {
    case enum_t::Received:
      return "Received";
    case enum_t::Sending:
      return "Sending";
    case enum_t::Sent:
      return "Sent";
    case enum_t::Failed:
      return "Failed";
    case enum_t::Unconfirmed:
      return "Unconfirmed";
    case enum_t::Read:
      return "Read";
  }
  return "?";
}

}  // namespace quor
