#pragma once

#include <cstdint>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"
#include "QuorCustomerService/Session/KXCSServiceStatus.h"

namespace quor {

// What a KXCSService reports. Every function has an empty default; override what the app
// shows. All run on the main thread (KXMainThreadDispatcher), one at a time, in order, and
// never after the app released the observer: the service holds it weakly.
class QUOR_CS_EXPORT KXCSServiceObserver {
 public:
  virtual ~KXCSServiceObserver();

  // Every change of state, once, in order.
  virtual void onStateChanged(const KXCSServiceStatus& status);
  // The desk asks the customer to rate the agent; rateAgent() uses this dialog by default.
  virtual void onRatingRequested(const KXString& dialogId);
  // The desk's evaluation settings, with the handshake or an agent's answer.
  virtual void onEvaluationSettings(const KXDictionary& settings);
  // The outcome of leaveMessage(): sent (with the host's message id) or failed (with the
  // host's error code).
  virtual void onMessageLeft(bool sent, int64_t messageIdOrErrorCode);
};

}  // namespace quor
