#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

// Which closures a send passed: none, the id-passing pair, or the record-passing pair.
enum class QuorSendClosures { None, Ids, Records };

// One send as a host takes it from the library: the arguments, the encoded body and the
// host's record of the message (its id, and later its time). A plain value.
struct QuorOutgoingSend {
  std::string thread;  // the thread that called the send
  int32_t conversationType = 0;
  KXString targetId;
  std::shared_ptr<KXMessageContent> content;
  std::string objectName;  // "" for a null content
  KXData body;             // what encode() returned
  KXString pushContent;
  KXString pushData;
  QuorSendClosures closures = QuorSendClosures::None;
  std::shared_ptr<KXMessage> record;
  // A send made again by resendMessage(): the same record, to go out under its first id.
  bool again = false;
};

}  // namespace quor
