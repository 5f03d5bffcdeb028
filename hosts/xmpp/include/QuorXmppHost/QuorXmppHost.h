#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/Session/KXCSServiceStatus.h"
#include "QuorHostBase/QuorFileCache.h"
#include "QuorHostBase/QuorHostBase.h"
#include "QuorHostBase/QuorWorkerThread.h"
#include "QuorXmppHost/QuorArchiveCatchUp.h"
#include "QuorXmppHost/QuorMessageStore.h"
#include "QuorXmppHost/QuorRecentPayloads.h"
#include "QuorXmppHost/QuorXmppConnection.h"
#include "QuorXmppHost/QuorXmppOptions.h"

namespace quor {

// An IM core over XMPP: every host interface of the library on a real XMPP account, with a
// SQLite store of the conversations. The desk is an XMPP account too (QuorDeskJid maps desk ids
// to JIDs), and the customer-service contents travel as payloads (QuorXmppConnection).
//
//   QuorXmppHost::Options options;
//   options.connection.jid = "alice@example.com";
//   options.connection.password = "...";
//   options.storePath = "/path/to/alice.sqlite";
//   std::string error;
//   auto host = QuorXmppHost::create(options, &error);
//   host->install();
//   host->loadExtensionModule();
//   host->connect();
//   // the application drains host->mainRunLoop() on its main thread (or installs its own
//   // dispatcher by overriding post())
//
// Threads:
// - "network": owns the XMPP connection (see QuorXmppConnection); no library code runs there.
// - "delivery": received payloads are decoded into a fresh instance of their registered type
//   and offered to each loaded module here, in the order they arrived; the send closures
//   (outcomes), the modules' connection events and logout run here too, so a send's
//   confirmation is always handled before the replies that came after it.
// - "main": the application's message listeners and the library's main-thread closures run in
//   the main run loop, which the application drains.
// Every operation may be called from any thread; no lock is held while the host calls the
// library, a closure or a listener.
//
// Storage: received contents of a stored type that no module held, local messages inserted with
// insertIncomingMessage() and sent stored contents are kept, each under the store's id, which
// is the record's message id. Signal types and held messages are never stored and have message
// id 0. A message received twice (same sender, origin id and contents) is taken once. A stored
// send takes its id at once; its row is written on the delivery thread before it is written to
// the link (a read writes what is queued first), so a send never waits for the disk on the
// caller's thread; it is kept Pending until its outcome; one
// an earlier run left Pending is written again under its id once this host is online. A store
// belongs to one account; a message that cannot be stored (a full disk) is logged at error level
// and reported to setStoreErrorListener().
//
// Guarantees (docs/xmpp.md has the details):
// - Every send has exactly one outcome. It waits for a link up to outboxTimeout (60 s), is
//   written again after a lost link (stream resumption, else a new session), and a receiver
//   takes each send once: ids are random origin ids, never reused by any run.
// - A dead link is noticed within keepaliveInterval + keepaliveTimeout (30 s), then the host
//   reconnects; an idle host wakes only for that keepalive.
// - Errors fail a send only when they come from the server or the recipient.
// - Each device has its own resource; another login taking it ends this one (Replaced).
// - No signal is ever raised in the app's process; any descriptor number works.
// - Limits: a stanza over maxStanzaBytes (1 MiB) or nested over 32 elements ends the
//   connection as the server's error; sends in memory (not stored) end with the process.
class QuorXmppHost : public QuorHostBase, private QuorXmppConnection::Events {
 public:
  struct Options {
    QuorXmppOptions connection;
    // The SQLite file of the store; ":memory:" keeps it for the life of the host.
    std::string storePath = ":memory:";
    // The domain of the desks' accounts; empty takes the account's own domain.
    std::string deskDomain;
    // The largest the store may grow, in bytes; 0: as large as the disk allows. A message that
    // does not fit is not stored (see setStoreErrorListener).
    int64_t storeLimitBytes = 0;
    // Where received files are saved (QuorFileCache), created when needed; empty: beside the
    // store ("<storePath>.files"), and no downloads with a store in memory. The host never
    // downloads by itself.
    std::string fileCacheDirectory;
  };

  // A host that is not yet connected, or null with the reason in `error` (the store did not
  // open).
  static std::shared_ptr<QuorXmppHost> create(Options options, std::string* error);
  ~QuorXmppHost() override;

  // Logs in and stays connected (reconnecting with backoff) until logout(); connect() after a
  // logout logs in again, and the server hands over what arrived meanwhile (offline).
  void connect();
  // Tells the modules (notifyLogoutEvent), disables this device's push notifications and
  // disconnects; waiting sends fail. Returns once
  // the delivery thread has handled everything received before. Log out before the last
  // reference to the host goes: a host destroyed while the library still handles a message
  // on the delivery thread is finished by that thread, after the caller went on.
  void logout();
  bool waitUntilOnline(std::chrono::milliseconds timeout) const;
  // The app's life cycle, from any thread (QuorAppState): in the background the server holds
  // back what can wait and push is enabled; suspended, the link is cut and the server keeps the
  // session; back in the foreground the host resumes it.
  void setAppState(QuorAppState state) { connection_->setAppState(state); }
  QuorAppState appState() const { return connection_->appState(); }
  // The device's push registration (QuorXmppPush), from any thread: its token often comes after
  // the start. Enabled whenever the app leaves the foreground, disabled by logout().
  void setPush(QuorXmppPush push) { connection_->setPush(std::move(push)); }
  QuorXmppConnectionStatus connectionStatus() const { return connection_->status(); }
  // The account's user id (its JID's local part, unescaped) and bare JID.
  const std::string& currentUserId() const { return userId_; }
  const std::string& bareJid() const { return bareJid_; }
  // The JID a desk id maps to; "" when it maps to none.
  std::string jidOfDesk(const std::string& deskId) const;

  // A stored message and where it stands: a sent message is Pending until its outcome, then
  // Sent, Failed or Unconfirmed; a received one is Sent.
  struct HistoryEntry {
    std::shared_ptr<KXMessage> message;
    QuorDeliveryStatus status;
  };
  // One page of a conversation's history, newest first: at most `count` messages older than
  // the message `beforeMessageId` (0: from the newest).
  std::vector<HistoryEntry> history(const std::string& deskId, int64_t beforeMessageId = 0,
                                    int count = 20) const;
  // Where the service with `deskId` stood at its newest message, sent or received, on any of
  // the account's devices (NotStarted when nothing is known): Robot, Agent, WaitingForAgent,
  // Ended and so on, as KXCSService reports them. An app opened again (or installed again) shows
  // it until a service it starts reports its own. Reads the store.
  KXCSServiceState lastServiceState(const std::string& deskId) const;

  // Hears every message that should have been stored and could not be (a full disk, say), with
  // the store's reason, on the main thread; the message is shown and sent as usual, with
  // message id 0. Also a sent message whose outcome could not be stored (it stays Pending and
  // the next run sends it again under its id). The log has an error entry for each too.
  using StoreErrorListener =
      std::function<void(const std::shared_ptr<KXMessage>& message, const std::string& reason)>;
  void setStoreErrorListener(StoreErrorListener listener);

  // Sees every payload the host sends (fromClient) or receives, on the delivery thread (a
  // send once the server confirmed it). For tools that print the wire.
  using WireObserver = std::function<void(const QuorXmppPayload& payload, bool fromClient)>;
  void setWireObserver(WireObserver observer);

  // Waits until the delivery thread has nothing left to do (tests and tools).
  void waitForDelivery() { delivery_->waitIdle(); }
  // The connection, for tests that write raw stanzas.
  QuorXmppConnection& connection() { return *connection_; }

  // KXCoreClient
  std::shared_ptr<KXMessage> insertIncomingMessage(
      int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
      int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) override;
  void onReceiveFakeMessage(std::shared_ptr<KXMessage> message) override;
  // 31002 and 31003: the message was written and may have arrived (its history says
  // Unconfirmed).
  bool isUnconfirmedError(int64_t errorCode) const override;
  // Writes the stored sent message `messageId` again under its stanza id (also one an earlier
  // run sent); succeeds at once for one already Sent.
  bool resendMessage(int64_t messageId, SuccessBlock success, ErrorBlock error) override;
  // A read marker (XEP-0333 displayed) for the newest message taken from the desk, to the desk
  // and, as a carbon copy, to the account's other devices, whose modules hear
  // notifyConversationRead(). Nothing when offline or when nothing came from the desk yet.
  void markConversationRead(int32_t conversationType, const KXString& targetId) override;
  // The customer's chat state (XEP-0085) to the desk; nothing when offline.
  void sendTypingStatus(int32_t conversationType, const KXString& targetId, bool typing) override;
  // The server's upload limit (XEP-0363), once its service is known after a login; 0 without
  // one (offline before the first login too).
  uint64_t maxFileBytes() const override;
  // Asks the upload service for a slot, PUTs the file on the "files" thread and sends the
  // content with its URL as any stored send. The error closure gets QuorXmppErrorUploadFailed,
  // QuorXmppErrorCancelled, or QuorXmppErrorNotOnline (the link was lost before the slot came),
  // else a send's codes.
  void sendFileMessage(int32_t conversationType, const KXString& targetId,
                       std::shared_ptr<KXFileMessage> content,
                       std::shared_ptr<const std::atomic<bool>> cancel, ProgressBlock progress,
                       SuccessBlock success, ErrorBlock error) override;
  // GETs the file into the file cache on the "files" thread (at most the size the message
  // named); a file already there whole is not fetched again. QuorXmppErrorDownloadFailed or
  // QuorXmppErrorCancelled on failure.
  void downloadFile(std::shared_ptr<const KXFileMessage> content,
                    std::shared_ptr<const std::atomic<bool>> cancel, ProgressBlock progress,
                    DownloadBlock done) override;
  // The largest file sent when the server's upload service names no limit.
  static constexpr uint64_t kDefaultMaxFileBytes = 100 * 1024 * 1024;

 protected:
  void transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) override;
  // Message ids come from the store; a send that is not stored has id 0.
  int64_t nextMessageId() override { return 0; }

 private:
  QuorXmppHost(Options options, std::unique_ptr<QuorMessageStore> store);

  // QuorXmppConnection::Events, on the network thread: each is handed to the delivery thread.
  void onStatus(QuorXmppConnectionStatus status) override;
  void onPayload(QuorXmppPayload payload) override;
  void onLog(int32_t level, const std::string& area, const std::string& text) override;
  void onArchiveEnd(bool complete, const std::string& lastId) override;
  void onConversationRead(const std::string& peer) override;
  void onChatState(const std::string& peer, bool typing) override;
  void onDisplayed(const std::string& peer, const std::string& stanzaId) override;

  void deliver(const QuorXmppPayload& payload);
  // On the delivery thread: a line the account sent from elsewhere (another device, an earlier
  // install), stored as sent and shown to the listeners, unless this device stored it when it
  // sent it.
  void keepSentElsewhere(const QuorXmppPayload& payload);
  // On the delivery thread: what the control message says of the service with the desk.
  void recordService(const std::string& deskId, const std::string& objectName, const KXData& body,
                     bool sent, int64_t stamp);
  bool storeReceived(const std::shared_ptr<KXMessage>& message,
                     const QuorReceivedMessage& received) override;
  void forgetReceived(const std::shared_ptr<KXMessage>& message) override;
  std::shared_ptr<KXMessage> recordOf(const QuorStoredMessage& stored) const;
  // Stores a message; a failure is logged and reported to the store error listener.
  QuorMessageStore::Insert store(QuorStoredMessage& stored, const std::string& originKey,
                                 const std::shared_ptr<KXMessage>& record);
  // Writes again, once online, the stored sends an earlier run left Pending.
  void sendUnsent();
  void keepOutcome(int64_t id, QuorDeliveryStatus status, int64_t sentTime);
  // Logs a failed write of the store at error level and tells the store error listener.
  void tellStoreError(const std::string& what, const std::shared_ptr<KXMessage>& record);
  void tellStoreError(const std::string& what, const std::shared_ptr<KXMessage>& record,
                      const std::string& reason);
  // On the delivery thread: writes the queued sends to the store, telling those it cannot.
  void writeQueuedSends();
  QuorXmppPayload payloadOf(const QuorStoredMessage& stored) const;
  // Hands a payload to the connection and its outcome to `pending` and the store, on the
  // delivery thread. `writtenBefore`: an earlier copy was written, so a copy that is not
  // written now is still unconfirmed, never failed.
  void carry(QuorXmppPayload payload, std::shared_ptr<QuorPendingSend> pending, bool writtenBefore);
  void observeWire(const QuorXmppPayload& payload, bool fromClient) const;

  const Options options_;
  // Fixed at creation, so that work still queued while the host goes away never needs the
  // connection.
  std::string bareJid_;
  std::string userId_;
  std::string deskDomain_;
  std::unique_ptr<QuorMessageStore> store_;
  std::vector<QuorStoredMessage> unsent_;  // under mutex_
  mutable std::mutex mutex_;
  WireObserver wireObserver_;
  StoreErrorListener storeErrorListener_;
  QuorRecentPayloads recent_;
  std::map<std::string, std::string> newestTaken_;  // under mutex_: desk id -> its stanza id
  // On the network thread: what the account missed, read from the server's archive at each
  // login (another device took it, or the server kept no offline copy).
  QuorArchiveCatchUp catchUp_{/*fromTheStart=*/true};
  // The destructor stops the connection, then ends the delivery thread, then frees the
  // connection.
  std::unique_ptr<QuorWorkerThread> delivery_;
  std::unique_ptr<QuorXmppConnection> connection_;
  // File transfers, one at a time, never on the network or delivery thread (an upload would
  // hold up the link for its length); the destructor ends a running one (stopping_).
  std::unique_ptr<QuorWorkerThread> files_;
  std::atomic<bool> stopping_{false};
};

}  // namespace quor
