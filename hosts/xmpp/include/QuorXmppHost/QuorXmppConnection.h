#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "QuorXmppHost/QuorXmppOptions.h"
#include "QuorXmppHost/QuorXmppPayload.h"
#include "QuorXmppHost/QuorXmppUploadSlot.h"

namespace quor {

// One XMPP client connection that carries customer-service payloads: it logs in (STARTTLS,
// SCRAM-SHA-1 or PLAIN, a resource per device, XEP-0198 stream management), announces
// presence, keeps the link alive and reconnects with backoff after a loss (resuming the stream
// when the server still has it), sends payloads as <message type='chat'> with an origin id and
// the storage hint, and matches each send with the server's confirmation (the stamping module,
// hosts/xmpp/prosody), its acknowledgement, or an error stanza. Used by QuorXmppHost and by the
// desk program.
//
// Threads:
// - "network": one thread owns the socket and waits in poll() (any descriptor number works).
//   Every Events function and every send outcome is called there, with no lock held; they must
//   not block. The thread blocks SIGPIPE for itself: no write ever raises a signal.
// - send(), sendRaw(), status() and the waits may be called from any thread: sends go through
//   a locked outbox that wakes the network thread.
//
// A send is never dropped silently: its outcome is called exactly once, with 0 and the server's
// stamp (ms) once the server confirmed it, or with a QuorXmppError code. A send waits for a link
// up to QuorXmppOptions::outboxTimeout and is written once per link until it has its outcome;
// receivers take a second copy once (same origin id). On a server without the stamping module
// (its feature is not advertised) a send succeeds once the server acknowledged it (stream
// management; an error the server returned first fails it), or once written when the server
// has no stream management, stamped with this machine's clock.
class QuorXmppConnection {
 public:
  class Events {
   public:
    virtual ~Events() = default;
    virtual void onStatus(QuorXmppConnectionStatus status) = 0;
    virtual void onPayload(QuorXmppPayload payload) = 0;
    // level: 2 error, 3 warning, 4 information, 5 debug.
    virtual void onLog(int32_t level, const std::string& area, const std::string& text) = 0;
    // The end of a page of queryArchive(): whether the archive has no more, and the page's last
    // archive id (where the next page starts).
    virtual void onArchiveEnd(bool /*complete*/, const std::string& /*lastId*/) {}
    // Another device of the account read the conversation with `peer` (its read marker).
    virtual void onConversationRead(const std::string& /*peer*/) {}
    // `peer` is typing (true) or stopped (its chat state, XEP-0085).
    virtual void onChatState(const std::string& /*peer*/, bool /*typing*/) {}
    // `peer` read this account's messages up to the one sent as `stanzaId` (its read marker).
    virtual void onDisplayed(const std::string& /*peer*/, const std::string& /*stanzaId*/) {}
  };
  // errorCode 0 means sent, with the server's stamp in ms.
  using Outcome = std::function<void(int64_t errorCode, int64_t stamp)>;

  QuorXmppConnection(QuorXmppOptions options, Events& events);
  // Stops the network thread; sends still waiting fail with QuorXmppErrorStopped.
  ~QuorXmppConnection();
  QuorXmppConnection(const QuorXmppConnection&) = delete;
  QuorXmppConnection& operator=(const QuorXmppConnection&) = delete;

  // Starts connecting in the background; does nothing while started.
  void start();
  // Disconnects and stops reconnecting; sends still waiting fail with QuorXmppErrorStopped.
  // start() connects again afterwards. `leaveAccount`: the app leaves the account (a logout),
  // so push notifications for this device are disabled first; an app that merely ends keeps
  // them.
  void stop(bool leaveAccount = false);
  // The app's life cycle (QuorAppState), from any thread: the connection tells the server
  // (XEP-0352) when it offers client state indication, slows its keepalive in the background,
  // enables push (XEP-0357) for the registration when the app leaves the foreground (each time,
  // so the push service counts anew), and while suspended cuts the link without ending the
  // stream and does not reconnect; back in the foreground it reconnects at once and resumes the
  // session (XEP-0198) when the server still holds it.
  void setAppState(QuorAppState state);
  QuorAppState appState() const { return appState_.load(); }
  // The device's push registration, from any thread; used from the next move to the background.
  void setPush(QuorXmppPush push);
  // What the connection cost so far: the network thread's wake-ups, the bytes it read and wrote
  // on sockets, and how often it logged in anew and resumed a session (for measuring an app in
  // the background and its return).
  struct Traffic {
    uint64_t wakeups = 0;
    uint64_t bytesIn = 0;
    uint64_t bytesOut = 0;
    uint64_t logins = 0;
    uint64_t resumptions = 0;
  };
  Traffic traffic() const;
  // Sends a payload to `payload.peer`, under its stanza id when it has one (an id of a send of an
  // earlier run), else under a fresh one.
  void send(QuorXmppPayload payload, Outcome outcome);
  // Asks the server's archive of the account (XEP-0313) for the page of messages after the
  // archive id `after` (QuorXmppPayload::archiveId; from the start when ""), when online. The
  // customer-service payloads that others sent come to onPayload() with their archive id, marked
  // offline; then onArchiveEnd(). A server without an archive answers with an empty last page.
  void queryArchive(const std::string& after);
  // Tells `peer` and the account's other devices (through carbons) that the conversation was
  // read up to the message `stanzaId` (XEP-0333 displayed), when online; nothing otherwise.
  void sendReadMarker(const std::string& peer, const std::string& stanzaId);
  // Tells `peer` that this account is typing or stopped (XEP-0085), when online; never archived.
  void sendChatState(const std::string& peer, bool typing);
  // Writes one raw stanza on the stream when online (for tests that play a hostile peer).
  void sendRaw(std::string xml);

  QuorXmppConnectionStatus status() const { return status_.load(); }
  // Waits until the connection is online (true) or `timeout` passed (false).
  bool waitUntilOnline(std::chrono::milliseconds timeout) const;
  // The account's bare JID and its domain.
  const std::string& bareJid() const { return bareJid_; }
  const std::string& domain() const { return domain_; }
  // The resource this connection binds (the options', else one made for this object).
  const std::string& resource() const { return resource_; }
  // Whether the server confirms sends (its stamping module is loaded); known once online.
  bool serverStamps() const { return serverStamps_.load(); }
  // The server's HTTP upload service (XEP-0363), learned from its service discovery after each
  // login: its JID ("" while none is known) and the largest file it takes, in bytes (0 when it
  // names no limit).
  struct UploadService {
    std::string jid;
    uint64_t maxBytes = 0;
  };
  UploadService uploadService() const;
  // Asks the upload service for a slot for one file; `done` gets the slot, or the reason it has
  // none ("" when it has one), once, on the network thread (or this one when there is no
  // upload service, or the connection is not online): the service's refusal
  // ("file-too-large: ..."), a lost link, a stop.
  using SlotDone = std::function<void(const QuorXmppUploadSlot& slot, const std::string& error)>;
  void requestUploadSlot(const std::string& name, uint64_t size, const std::string& type,
                         SlotDone done);

 private:
  class Network;
  struct Outgoing {
    QuorXmppPayload payload;
    std::string raw;
    Outcome outcome;
    std::chrono::steady_clock::time_point made;
  };
  void wake();

  const QuorXmppOptions options_;
  Events& events_;
  std::string bareJid_;
  std::string resource_;
  std::string domain_;
  std::atomic<QuorXmppConnectionStatus> status_{QuorXmppConnectionStatus::Disconnected};
  std::atomic<bool> serverStamps_{false};
  std::atomic<QuorAppState> appState_{QuorAppState::Foreground};
  std::atomic<uint64_t> wakeups_{0};
  std::atomic<uint64_t> bytesIn_{0};
  std::atomic<uint64_t> bytesOut_{0};
  std::atomic<uint64_t> logins_{0};
  std::atomic<uint64_t> resumptions_{0};
  mutable std::mutex mutex_;
  mutable std::condition_variable statusChanged_;
  std::deque<Outgoing> outbox_;
  bool stopping_ = false;
  bool leaving_ = false;
  QuorXmppPush push_;                          // under mutex_
  UploadService upload_;                       // under mutex_
  std::map<std::string, SlotDone> slotWaits_;  // under mutex_: by the request's id
  // Ends every slot request still waiting with `reason`; failSlotWait() the one of `id`.
  void failSlotWaits(const std::string& reason);
  void failSlotWait(const std::string& id, const std::string& reason);
  int wakeFd_ = -1;
  std::unique_ptr<Network> network_;
  std::thread thread_;
};

}  // namespace quor
