#pragma once

#include <cstdint>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

// One message as it crosses the loopback channel: its type name, conversation, ids, time and
// body bytes. A plain value.
struct QuorWireMessage {
  std::string objectName;
  int32_t conversationType = 5;
  KXString targetId;      // the conversation's target: the desk id
  KXString senderUserId;  // who sent it
  KXData body;
  int64_t messageId = 0;
  int64_t sentTime = 0;
  bool offline = false;
};

}  // namespace quor
