#pragma once

#include <memory>
#include <string>

#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXMessageContentType.h"
#include "QuorLoopbackHost/QuorWireMessage.h"

namespace quor {

// Which closures a send passed.
enum class QuorSendClosures { None, Ids, Records };

// What the host saw of one send.
struct QuorSendRecord {
  std::string thread;
  int32_t conversationType = 0;
  KXString targetId;
  std::string objectName;
  KXData body;
  QuorSendClosures closures = QuorSendClosures::None;
  KXString pushContent;
  KXString pushData;
  int64_t messageId = 0;
  int64_t sentTime = 0;
};

// One log entry, formatted.
struct QuorLogEntry {
  std::string thread;
  int32_t level = 0;
  int32_t type = 0;
  std::string tag;
  std::string text;
};

// Watches everything the library asks of the host. Every function is called on the thread
// where the event happens, in the order the events happen on that thread. The defaults do
// nothing.
class QuorLoopbackObserver {
 public:
  virtual ~QuorLoopbackObserver() = default;
  virtual void onRegister(const KXMessageContentType&) {}
  virtual void onSend(const QuorSendRecord&) {}
  virtual void onInsert(const std::shared_ptr<KXMessage>& /*record, null when failed*/,
                        const std::string& /*thread*/) {}
  virtual void onFakeReceive(const std::shared_ptr<KXMessage>&, const std::string& /*thread*/) {}
  virtual void onLog(const QuorLogEntry&) {}
  // A message crossing the channel: from the application to the peer, or back.
  virtual void onWire(const QuorWireMessage&, bool /*fromClient*/) {}
};

}  // namespace quor
