#pragma once

#include <cstdint>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Session/KXCSServiceStatus.h"

namespace quor {

// What the messages of one conversation say of its service: the state the newest of them left
// it in (a robot or an agent serving, an agent asked for, ended). Read from the customer's own
// control messages and the desk's, live or from the archive, so that an app opened on a new
// device, or installed again, shows a running service as running and an ended one as ended.
// Older messages than the newest taken change nothing (the archive may hand them over after a
// live one). A plain value, kept between runs as a short note.
class QuorServiceRecord {
 public:
  // The record a note of note() keeps; a note it cannot read is no record (NotStarted).
  static QuorServiceRecord fromNote(const std::string& note);
  std::string note() const;

  // Whether a message of type `objectName` may change a record: the control messages.
  static bool concerns(const std::string& objectName);
  // Takes the message `objectName` with `body`, sent by the customer when `sent`, at `stamp`
  // (the server's time in ms); true when it changed the record.
  bool take(const std::string& objectName, const KXData& body, bool sent, int64_t stamp);
  KXCSServiceState state() const { return state_; }

 private:
  KXCSServiceState state_ = KXCSServiceState::NotStarted;
  int32_t serviceType_ = 0;  // the desk's service type from its handshake answer
  int64_t stamp_ = 0;        // of the newest message taken
};

}  // namespace quor
