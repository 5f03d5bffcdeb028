#pragma once

#include <cstdint>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"
#include "QuorCustomerService/Session/KXCSConversationMessage.h"
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

  // Each line of the conversation while the service runs, once, in order with the state
  // changes: the desk's texts and notices as they reach the app, the customer's lines as
  // sendText() sends them (Sending).
  virtual void onMessage(const KXCSConversationMessage& message);
  // A customer's line was sent or failed: its sequence again, with Sent (and the host's message
  // id) or Failed (and the host's error code); later Read when the desk read it.
  virtual void onMessageDelivery(const KXCSConversationMessage& message);
  // The number of the desk's lines received since the app last called markRead() changed.
  virtual void onUnreadCountChanged(uint64_t unread);
  // The desk (its agent or robot) is typing, or stopped: "the agent is typing". False again when
  // a line of the desk arrives and when the service ends. Only from a host that carries typing.
  virtual void onDeskTyping(bool typing);
  // A file of line `sequence` moves: the customer's upload, or a download (downloadFile()). At
  // most about a hundred calls per transfer.
  virtual void onFileProgress(uint64_t sequence, uint64_t done, uint64_t total);
  // downloadFile() of line `sequence` ended: `file` with its localPath and the type its bytes
  // show (a picture only when they are one), or `errorCode` (the host's) and an empty path.
  virtual void onFileDownloaded(uint64_t sequence, const KXCSFile& file, int64_t errorCode);
};

}  // namespace quor
