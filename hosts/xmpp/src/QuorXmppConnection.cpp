#include "QuorXmppHost/QuorXmppConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <strophe.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <vector>

#include "QuorHostBase/QuorHostBase.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "QuorXmppStanza.h"

namespace quor {
namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kDiscoId = "quor-disco";
// Without a wake-up from the outbox the loop still looks at timers this often.
constexpr int kIdlePollMs = 50;

// The connection whose network thread is running: libstrophe's socket callback has no user data.
thread_local int* socketOfThisThread = nullptr;

int onSocket(xmpp_conn_t* /*conn*/, void* socket) {
  const int fd = *static_cast<int*>(socket);
  // Small stanzas must leave at once: without this a round trip waits for delayed ACKs.
  const int on = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (socketOfThisThread) *socketOfThisThread = fd;
  return 0;
}

// A write to a connection the peer reset raises SIGPIPE in the writing thread, whose default
// action ends the process. libstrophe and OpenSSL write without MSG_NOSIGNAL, so the network
// thread blocks SIGPIPE for itself (the write then fails with EPIPE and the loss is handled as
// any other) and leaves the process's dispositions alone.
void blockBrokenPipeSignal() {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
}

// Takes a SIGPIPE left pending on this thread by a failed write, so none stays behind.
void discardBrokenPipeSignal() {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigset_t pending;
  sigemptyset(&pending);
  if (sigpending(&pending) != 0 || !sigismember(&pending, SIGPIPE)) return;
  const timespec now{0, 0};
  sigtimedwait(&pipe, nullptr, &now);
}

int32_t levelOf(xmpp_log_level_t level) {
  switch (level) {
    case XMPP_LEVEL_ERROR:
      return 2;
    case XMPP_LEVEL_WARN:
      return 3;
    case XMPP_LEVEL_INFO:
      return 4;
    default:
      return 5;
  }
}

void onLibraryLog(void* userdata, xmpp_log_level_t level, const char* area, const char* text) {
  auto* events = static_cast<QuorXmppConnection::Events*>(userdata);
  events->onLog(levelOf(level), std::string("libstrophe:") + (area ? area : ""), text ? text : "");
}

}  // namespace

// Everything the network thread owns: the libstrophe context and connection, the sends that
// wait for their confirmation, the reconnection schedule.
class QuorXmppConnection::Network {
 public:
  explicit Network(QuorXmppConnection& owner) : owner_(owner) {
    logger_ = {onLibraryLog, &owner.events_};
    context_ = xmpp_ctx_new(nullptr, &logger_);
  }
  ~Network() {
    release();
    xmpp_ctx_free(context_);
  }

  void run();

 private:
  struct Waiting {
    Outcome outcome;
    std::string peer;  // the bare JID the message went to: its errors may come from there
    Clock::time_point deadline;
  };

  void connect();
  void release();
  void setStatus(QuorXmppConnectionStatus status);
  void sendQueued();
  void sendOne(Outgoing outgoing);
  void finish(const std::string& id, int64_t errorCode, int64_t stamp);
  void failAll(int64_t errorCode);
  void expire();
  int pollTimeoutMs() const;
  // `replaced`: the server ended the stream because another login took this resource.
  void onConnection(xmpp_conn_event_t event, bool replaced);
  void onMessage(xmpp_stanza_t* stanza);
  void onDisco(xmpp_stanza_t* stanza);

  static void connectionHandler(xmpp_conn_t*, xmpp_conn_event_t event, int,
                                xmpp_stream_error_t* streamError, void* self) {
    static_cast<Network*>(self)->onConnection(event,
                                              streamError && streamError->type == XMPP_SE_CONFLICT);
  }
  static int messageHandler(xmpp_conn_t*, xmpp_stanza_t* stanza, void* self) {
    static_cast<Network*>(self)->onMessage(stanza);
    return 1;
  }
  static int discoHandler(xmpp_conn_t*, xmpp_stanza_t* stanza, void* self) {
    static_cast<Network*>(self)->onDisco(stanza);
    return 0;
  }

  QuorXmppConnection& owner_;
  xmpp_log_t logger_{};
  xmpp_ctx_t* context_ = nullptr;
  xmpp_conn_t* connection_ = nullptr;
  int socket_ = -1;
  bool online_ = false;
  bool lost_ = false;
  bool discoAnswered_ = false;
  // Another login of the account took this resource: this login ends, nothing reconnects.
  bool replaced_ = false;
  std::map<std::string, Waiting> waiting_;
  std::chrono::milliseconds backoff_;
  Clock::time_point nextAttempt_ = Clock::now();
};

QuorXmppConnection::QuorXmppConnection(QuorXmppOptions options, Events& events)
    : options_(std::move(options)), events_(events) {
  bareJid_ = QuorXmppStanza::bareJid(options_.jid);
  resource_ = options_.resource.empty() ? "quor-cs-" + QuorXmppStanza::uniqueId().substr(5, 12)
                                        : options_.resource;
  domain_ = QuorXmppStanza::domainOf(options_.jid);
  wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

QuorXmppConnection::~QuorXmppConnection() {
  stop();
  if (wakeFd_ >= 0) ::close(wakeFd_);
}

void QuorXmppConnection::start() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (thread_.joinable() || stopping_) return;
  static std::once_flag initialized;
  std::call_once(initialized, [] { xmpp_initialize(); });
  network_ = std::make_unique<Network>(*this);
  thread_ = std::thread([this] {
    QuorHostBase::setThreadName("network");
    blockBrokenPipeSignal();
    network_->run();
  });
}

void QuorXmppConnection::stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_ || !thread_.joinable()) return;
    stopping_ = true;
  }
  wake();
  if (thread_.joinable()) thread_.join();
  network_.reset();
  // Whatever is still in the outbox never reached the network.
  std::deque<Outgoing> left;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    left.swap(outbox_);
  }
  for (auto& outgoing : left) {
    if (outgoing.outcome) outgoing.outcome(QuorXmppErrorStopped, 0);
  }
  // Stopped: start() may connect again.
  std::lock_guard<std::mutex> lock(mutex_);
  thread_ = std::thread();
  stopping_ = false;
}

void QuorXmppConnection::send(QuorXmppPayload payload, Outcome outcome) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!stopping_ && thread_.joinable()) {
      outbox_.push_back({std::move(payload), {}, std::move(outcome)});
      outcome = nullptr;
    }
  }
  if (outcome) {
    outcome(QuorXmppErrorNotOnline, 0);
    return;
  }
  wake();
}

void QuorXmppConnection::sendRaw(std::string xml) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return;
    outbox_.push_back({{}, std::move(xml), nullptr});
  }
  wake();
}

bool QuorXmppConnection::waitUntilOnline(std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return statusChanged_.wait_for(
      lock, timeout, [this] { return status_.load() == QuorXmppConnectionStatus::Connected; });
}

void QuorXmppConnection::wake() {
  const uint64_t one = 1;
  if (wakeFd_ >= 0) (void)!::write(wakeFd_, &one, sizeof one);
}

void QuorXmppConnection::Network::run() {
  socketOfThisThread = &socket_;
  backoff_ = owner_.options_.reconnectFirst;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(owner_.mutex_);
      if (owner_.stopping_) break;
    }
    if (!connection_ && !replaced_ && Clock::now() >= nextAttempt_) connect();
    sendQueued();
    expire();
    pollfd fds[2] = {{owner_.wakeFd_, POLLIN, 0}, {socket_, POLLIN, 0}};
    const bool writing = connection_ && (xmpp_conn_send_queue_len(connection_) > 0 ||
                                         xmpp_conn_is_connecting(connection_));
    if (writing) fds[1].events |= POLLOUT;
    const nfds_t count = connection_ && socket_ >= 0 ? 2 : 1;
    ::poll(fds, count, pollTimeoutMs());
    if (fds[0].revents & POLLIN) {
      uint64_t drained;
      (void)!::read(owner_.wakeFd_, &drained, sizeof drained);
    }
    if (connection_) xmpp_run_once(context_, 0);
    if (lost_) {
      // Released here, outside libstrophe's own callbacks.
      lost_ = false;
      discardBrokenPipeSignal();
      release();
      nextAttempt_ = Clock::now() + backoff_;
      backoff_ = std::min(backoff_ * 2, owner_.options_.reconnectLongest);
    }
  }
  failAll(QuorXmppErrorStopped);
  if (connection_ && online_) {
    xmpp_disconnect(connection_);
    for (int i = 0; i < 20 && connection_ && !lost_; ++i) xmpp_run_once(context_, 5);
  }
  release();
  if (!replaced_) setStatus(QuorXmppConnectionStatus::SignedOut);
  socketOfThisThread = nullptr;
}

int QuorXmppConnection::Network::pollTimeoutMs() const {
  auto next = Clock::now() + std::chrono::milliseconds(kIdlePollMs);
  if (!connection_) next = std::min(next, nextAttempt_);
  for (const auto& entry : waiting_) next = std::min(next, entry.second.deadline);
  auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
  // A TLS layer may hold decrypted bytes that poll() cannot see: look again soon.
  if (connection_ && xmpp_conn_is_secured(connection_)) wait = std::min<long long>(wait, 1);
  return static_cast<int>(std::max<long long>(wait, 0));
}

void QuorXmppConnection::Network::connect() {
  const auto& options = owner_.options_;
  connection_ = xmpp_conn_new(context_);
  long flags = 0;
  if (options.tls == QuorXmppOptions::Tls::Disabled) flags |= XMPP_CONN_FLAG_DISABLE_TLS;
  if (options.tls == QuorXmppOptions::Tls::Required) flags |= XMPP_CONN_FLAG_MANDATORY_TLS;
  if (options.trustSelfSignedCertificate) flags |= XMPP_CONN_FLAG_TRUST_TLS;
  xmpp_conn_set_flags(connection_, flags);
  const std::string full = owner_.bareJid_ + "/" + owner_.resource_;
  xmpp_conn_set_jid(connection_, full.c_str());
  xmpp_conn_set_pass(connection_, options.password.c_str());
  xmpp_conn_set_sockopt_callback(connection_, onSocket);
  xmpp_handler_add(connection_, messageHandler, nullptr, "message", nullptr, this);
  socket_ = -1;
  online_ = false;
  discoAnswered_ = false;
  setStatus(QuorXmppConnectionStatus::Connecting);
  const char* server = options.server.empty() ? nullptr : options.server.c_str();
  if (xmpp_connect_client(connection_, server, options.port, connectionHandler, this) != 0) {
    owner_.events_.onLog(2, "xmpp", "cannot start a connection to " + owner_.domain_);
    lost_ = true;
    setStatus(QuorXmppConnectionStatus::Disconnected);
  }
}

void QuorXmppConnection::Network::release() {
  if (!connection_) return;
  xmpp_conn_release(connection_);
  connection_ = nullptr;
  socket_ = -1;
  online_ = false;
}

void QuorXmppConnection::Network::setStatus(QuorXmppConnectionStatus status) {
  {
    std::lock_guard<std::mutex> lock(owner_.mutex_);
    if (owner_.status_.load() == status) return;
    owner_.status_ = status;
  }
  owner_.statusChanged_.notify_all();
  owner_.events_.onStatus(status);
}

void QuorXmppConnection::Network::onConnection(xmpp_conn_event_t event, bool replaced) {
  if (event == XMPP_CONN_CONNECT) {
    online_ = true;
    backoff_ = owner_.options_.reconnectFirst;
    // Presence makes the server deliver messages (and the offline store) to this resource.
    xmpp_stanza_t* presence = xmpp_presence_new(context_);
    xmpp_send(connection_, presence);
    xmpp_stanza_release(presence);
    xmpp_stanza_t* query = QuorXmppStanza::discoInfoQuery(context_, owner_.domain_, kDiscoId);
    xmpp_id_handler_add(connection_, discoHandler, kDiscoId, this);
    xmpp_send(connection_, query);
    xmpp_stanza_release(query);
    setStatus(QuorXmppConnectionStatus::Connected);
    return;
  }
  if (event == XMPP_CONN_DISCONNECT || event == XMPP_CONN_FAIL) {
    online_ = false;
    lost_ = true;
    failAll(QuorXmppErrorConnectionLost);
    if (replaced) {
      replaced_ = true;
      owner_.events_.onLog(3, "xmpp",
                           "another login of " + owner_.bareJid_ + " took the resource " +
                               owner_.resource_ + "; this login ends");
      setStatus(QuorXmppConnectionStatus::Replaced);
      return;
    }
    setStatus(QuorXmppConnectionStatus::Disconnected);
  }
}

void QuorXmppConnection::Network::onDisco(xmpp_stanza_t* stanza) {
  discoAnswered_ = true;
  const bool stamps = QuorXmppStanza::hasFeature(stanza, QuorXmppPayloadNamespace);
  owner_.serverStamps_ = stamps;
  if (!stamps) {
    owner_.events_.onLog(3, "xmpp",
                         "the server does not confirm customer-service messages; sends succeed "
                         "once written, stamped with this machine's clock");
    std::vector<std::string> ids;
    for (const auto& entry : waiting_) ids.push_back(entry.first);
    for (const auto& id : ids) finish(id, 0, QuorXmppStanza::wallClockMs());
  }
}

void QuorXmppConnection::Network::sendQueued() {
  std::deque<Outgoing> queued;
  {
    std::lock_guard<std::mutex> lock(owner_.mutex_);
    queued.swap(owner_.outbox_);
  }
  for (auto& outgoing : queued) sendOne(std::move(outgoing));
}

void QuorXmppConnection::Network::sendOne(Outgoing outgoing) {
  if (!online_) {
    if (outgoing.outcome) outgoing.outcome(QuorXmppErrorNotOnline, 0);
    return;
  }
  if (!outgoing.raw.empty()) {
    xmpp_send_raw(connection_, outgoing.raw.data(), outgoing.raw.size());
    return;
  }
  auto& payload = outgoing.payload;
  payload.stanzaId = QuorXmppStanza::uniqueId();
  xmpp_stanza_t* message = QuorXmppStanza::payloadMessage(context_, payload);
  if (!message) {
    if (outgoing.outcome) outgoing.outcome(QuorXmppErrorNotSendable, 0);
    return;
  }
  xmpp_send(connection_, message);
  xmpp_stanza_release(message);
  if (!outgoing.outcome) return;
  if (discoAnswered_ && !owner_.serverStamps_) {
    outgoing.outcome(0, QuorXmppStanza::wallClockMs());
    return;
  }
  waiting_[payload.stanzaId] = {std::move(outgoing.outcome), payload.peer,
                                Clock::now() + owner_.options_.sendTimeout};
}

void QuorXmppConnection::Network::finish(const std::string& id, int64_t errorCode, int64_t stamp) {
  const auto it = waiting_.find(id);
  if (it == waiting_.end()) return;
  Outcome outcome = std::move(it->second.outcome);
  waiting_.erase(it);
  outcome(errorCode, stamp);
}

void QuorXmppConnection::Network::failAll(int64_t errorCode) {
  auto waiting = std::move(waiting_);
  waiting_.clear();
  for (auto& entry : waiting) entry.second.outcome(errorCode, 0);
}

void QuorXmppConnection::Network::expire() {
  const auto now = Clock::now();
  std::vector<std::string> late;
  for (const auto& entry : waiting_) {
    if (entry.second.deadline <= now) late.push_back(entry.first);
  }
  for (const auto& id : late) finish(id, QuorXmppErrorTimeout, 0);
}

void QuorXmppConnection::Network::onMessage(xmpp_stanza_t* stanza) {
  const char* type = xmpp_stanza_get_type(stanza);
  const char* id = xmpp_stanza_get_id(stanza);
  const std::string from = xmpp_stanza_get_from(stanza) ? xmpp_stanza_get_from(stanza) : "";
  if (type && std::string(type) == "error") {
    // Only the server or the address the message went to may fail it: an error from anyone
    // else is ignored, whatever id it names.
    const auto it = id ? waiting_.find(id) : waiting_.end();
    if (it != waiting_.end() && (from.empty() || from == owner_.domain_ ||
                                 QuorXmppStanza::bareJid(from) == it->second.peer)) {
      finish(id, QuorXmppStanza::errorCodeOf(stanza), 0);
    }
    return;
  }
  // Only the server itself confirms: a confirmation from any other sender is ignored.
  if (from.empty() || from == owner_.domain_) {
    std::string confirmedId;
    int64_t stamp = 0;
    if (QuorXmppStanza::readConfirmation(stanza, &confirmedId, &stamp)) {
      finish(confirmedId, 0, stamp);
      return;
    }
  }
  QuorXmppPayload payload;
  if (!QuorXmppStanza::readPayload(stanza, &payload)) return;
  owner_.events_.onPayload(std::move(payload));
}

}  // namespace quor
