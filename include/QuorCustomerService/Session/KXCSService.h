#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "QuorCustomerService/Message/KXCustomerServiceInfo.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"
#include "QuorCustomerService/Session/KXCSServiceObserver.h"
#include "QuorCustomerService/Session/KXCSServiceResult.h"
#include "QuorCustomerService/Session/KXCSServiceStatus.h"

namespace quor {

// One service with one desk, on top of the shared KXCustomerServiceClient: it drives the
// client's operations, turns their callbacks into a typed state stream, checks each request
// against the state and the desk's configuration before anything is sent, and reports through
// an observer.
//
//   class Screen : public quor::KXCSServiceObserver {
//     void onStateChanged(const quor::KXCSServiceStatus& status) override { /* redraw */ }
//   };
//   auto screen = std::make_shared<Screen>();
//   auto service = quor::KXCSService::make("shop-desk", screen);
//   service->start(info, std::chrono::seconds(15));  // Connecting, then Connected, Robot ...
//   if (service->askForAgent() != quor::KXCSServiceResult::Done) { /* not now */ }
//
// Threads: call the operations on the main thread. The observer is called on the main thread
// (KXMainThreadDispatcher), also for what the client reports on other threads (the evaluation
// settings, the leave-message outcome, the timeout, the conversation's lines), and never after
// the app released it.
// A failure or an end is reported after the client has stopped the service, so start() from
// onStateChanged() starts a new service that nothing stops.
//
// Several services with different desks may run at once. Two services for one desk share the
// client's session of that desk: keep one per desk.
class QUOR_CS_EXPORT KXCSService {
 public:
  // A service for `deskId` that reports to `observer` (held weakly; may be null).
  static std::shared_ptr<KXCSService> make(std::string deskId,
                                           std::weak_ptr<KXCSServiceObserver> observer);
  // Ends a running service (the client's stop) and reports nothing more.
  ~KXCSService();
  KXCSService(const KXCSService&) = delete;
  KXCSService& operator=(const KXCSService&) = delete;

  const std::string& deskId() const;
  // The last state reported (or about to be).
  KXCSServiceStatus status() const;

  // Sends the handshake with the customer's information (may be null). With a non-zero
  // `handshakeTimeout`, no answer in that time ends in Failed(Timeout) and stops the service.
  // Refused (AlreadyStarted) while a service runs; allowed again after Ended or Failed.
  KXCSServiceResult start(
      std::shared_ptr<KXCustomerServiceInfo> info,
      std::chrono::milliseconds handshakeTimeout = std::chrono::milliseconds(0));
  // Asks for a human agent: ChoosingGroup follows when the desk offered groups, else
  // WaitingForAgent. Only while the robot serves a robot-first service.
  KXCSServiceResult askForAgent();
  // Chooses one of the offered groups (ChoosingGroup only), then WaitingForAgent.
  KXCSServiceResult chooseGroup(const std::string& groupId);
  // Rates the robot's answer; refused when the configuration turns robot rating off, and with
  // InvalidText when a text is not UTF-8 (as rateAgent()).
  KXCSServiceResult rateRobot(const KXCSRobotRating& rating);
  // Rates the agent: stars must be one of the configuration's evaluation values (when it lists
  // any); refused when the configuration turns agent rating off.
  KXCSServiceResult rateAgent(const KXCSAgentRating& rating);
  // Checks `values` against the desk's leave-message form and sends them; the outcome comes
  // to onMessageLeft(). Nothing is sent when a field fails or the desk uses a web form.
  KXCSLeaveMessageCheck leaveMessage(const KXDictionary& values);
  // Ends the service (Ended, StoppedByApp); the desk gets a suspend when it asked for one.
  // Ended while the desk has not answered, the handshake stays on its way: a start() before
  // the answer takes that answer over (one Connected, one greeting) and sends no second
  // handshake, so its customer information is not sent.
  KXCSServiceResult end();

  // Sends a line of text to the robot or agent, from Connected on (NotConnected before the
  // desk answered and after the end; EmptyText for ""; InvalidText for bytes that are not
  // UTF-8; TooLarge when its encoded body is over maxTextBytes()). The line comes to
  // onMessage() at once (Sending) and to onMessageDelivery() with the host's outcome: Sent,
  // Failed, or Unconfirmed (sent once more under its id by itself; Sent when confirmed).
  KXCSServiceResult sendText(const std::string& text);
  // Sends the customer's line `sequence` once more under its original id, so that the desk
  // takes it once whatever happened before: a Failed or Unconfirmed line (Sending, then its
  // outcome). A Failed line the host cannot send under its id goes out as a new copy (it never
  // arrived); an Unconfirmed one then is NotRetryable. NotConnected as for sendText().
  KXCSServiceResult retry(uint64_t sequence);
  // The largest encoded body of a text sendText() sends, in bytes (kDefaultMaxTextBytes): a
  // server closes the stream on a stanza over its limit, so a larger text is refused before
  // it is written. A host may refuse a smaller one when its server announces a lower limit.
  static constexpr std::size_t kDefaultMaxTextBytes = 64 * 1024;
  std::size_t maxTextBytes() const;
  void setMaxTextBytes(std::size_t bytes);
  // The desk's lines (robot, agent, notices) received since the last markRead(), kept in memory
  // for the life of this object. A host with a store may persist it across runs.
  uint64_t unreadCount() const;
  // The app shows the conversation: the unread count goes to 0 (onUnreadCountChanged when it
  // was not 0). While the service runs, the host hears it too (markConversationRead), so that
  // a host that shares read state sets the count to 0 on the account's other devices.
  void markRead();
  // The customer is typing (true, at each change of the input) or left the input (false). The
  // desk hears "typing" when typing begins (at most once per 5 s), and "stopped" after 5 s
  // without a keystroke or at a false; a sent line needs no "stopped". Nothing is stored or
  // counted. NotConnected (and nothing sent) as for sendText().
  KXCSServiceResult setTyping(bool typing);

  // Sends a picture or another file, read from `file.path` as it uploads through the host.
  // Refused at once, with nothing sent: NotConnected as for sendText(); FilesNotOffered when
  // the host carries no files (maxFileBytes() 0); FileUnreadable for a path that is not a
  // readable, non-empty file; TooLarge over maxFileBytes(); TypeNotAccepted for a type outside
  // acceptedFileTypes() (the type given, else the one the first bytes show); InvalidText for a
  // name or type that is not UTF-8. Else the line comes to onMessage() at once (Sending, with
  // its file), onFileProgress() as it uploads, and one outcome to onMessageDelivery().
  KXCSServiceResult sendFile(const KXCSFileToSend& file);
  // Stops the upload of line `sequence` (or a download of it): the line ends Failed with the
  // host's code (a download: onFileDownloaded() with it). NoSuchFile when none runs.
  KXCSServiceResult cancelFile(uint64_t sequence);
  // Fetches the file of the desk's line `sequence` into the host's file cache (never by
  // itself: the app decides, on a metered link too): onFileProgress(), then onFileDownloaded().
  // NoSuchFile for a line without a file (or one of the oldest, past the 1,000 newest files);
  // Done without a second transfer while one runs.
  KXCSServiceResult downloadFile(uint64_t sequence);
  // The MIME types sendFile() takes: exact ("application/pdf"), a kind ("image/*") or "*/*".
  // By default JPEG, PNG, GIF and WebP pictures, PDF and plain text.
  void setAcceptedFileTypes(std::vector<std::string> types);
  std::vector<std::string> acceptedFileTypes() const;
  // The largest file the host sends now, in bytes (its server's limit); 0: no files.
  static uint64_t maxFileBytes();

  // The enumerators' names, for logs and tests: "Connecting", "DeskEnded", "GroupNotOffered";
  // "?" for a value outside the enum. Also as toString() and operator<< below.
  static const char* stateName(KXCSServiceState state);
  static const char* reasonName(KXCSServiceReason reason);
  static const char* resultName(KXCSServiceResult result);
  static const char* authorName(KXCSMessageAuthor author);
  static const char* deliveryName(KXCSDelivery delivery);

 private:
  class Core;
  explicit KXCSService(std::shared_ptr<Core> core);
  std::shared_ptr<Core> core_;
};

inline std::string toString(KXCSServiceState state) { return KXCSService::stateName(state); }
inline std::string toString(KXCSServiceReason reason) { return KXCSService::reasonName(reason); }
inline std::string toString(KXCSServiceResult result) { return KXCSService::resultName(result); }
inline std::string toString(KXCSMessageAuthor author) { return KXCSService::authorName(author); }
inline std::string toString(KXCSDelivery delivery) { return KXCSService::deliveryName(delivery); }

// Stream output, which test frameworks (GoogleTest among them) use to print values.
inline std::ostream& operator<<(std::ostream& out, KXCSServiceState state) {
  return out << KXCSService::stateName(state);
}
inline std::ostream& operator<<(std::ostream& out, KXCSServiceReason reason) {
  return out << KXCSService::reasonName(reason);
}
inline std::ostream& operator<<(std::ostream& out, KXCSServiceResult result) {
  return out << KXCSService::resultName(result);
}
inline std::ostream& operator<<(std::ostream& out, KXCSMessageAuthor author) {
  return out << KXCSService::authorName(author);
}
inline std::ostream& operator<<(std::ostream& out, KXCSDelivery delivery) {
  return out << KXCSService::deliveryName(delivery);
}

}  // namespace quor
