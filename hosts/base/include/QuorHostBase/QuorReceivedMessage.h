#pragma once

#include <cstdint>
#include <string>

#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

// One message as a host's transport received it, before it is decoded: what
// QuorHostBase::receive() takes. A plain value.
struct QuorReceivedMessage {
  int32_t conversationType = KXConversationTypeCustomerService;
  KXString targetId;      // the conversation (the desk's id)
  KXString senderUserId;  // who sent it
  std::string objectName;
  KXData body;
  int64_t sentTime = 0;   // the server's stamp
  int64_t messageId = 0;  // the transport's id, 0 when it has none (a store gives one)
  bool offline = false;   // kept by the server while the customer was away
  // The transport's key of the message for its store's duplicate check; empty when none.
  std::string storeKey;
};

}  // namespace quor
