#include "QuorXmppHost/QuorXmppConnection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <vector>

#include "QuorHostBase/QuorHostBase.h"
#include "QuorSaslClient.h"
#include "QuorStreamManagement.h"
#include "QuorTlsLayer.h"
#include "QuorXmlStream.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "QuorXmppStanza.h"

namespace quor {
namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kStreams = "http://etherx.jabber.org/streams";
constexpr const char* kStreamErrors = "urn:ietf:params:xml:ns:xmpp-streams";
constexpr const char* kTls = "urn:ietf:params:xml:ns:xmpp-tls";
constexpr const char* kSasl = "urn:ietf:params:xml:ns:xmpp-sasl";
constexpr const char* kBind = "urn:ietf:params:xml:ns:xmpp-bind";
constexpr const char* kSession = "urn:ietf:params:xml:ns:xmpp-session";
constexpr const char* kPing = "urn:xmpp:ping";
constexpr const char* kBindId = "quor-bind";
constexpr const char* kSessionId = "quor-session";
constexpr const char* kDiscoId = "quor-disco";
constexpr const char* kCarbonsId = "quor-carbons";
constexpr const char* kItemsId = "quor-items";
constexpr const char* kSlotPrefix = "quor-slot-";
constexpr const char* kServiceInfoPrefix = "quor-service-";
// The server's services looked at for an upload service: a server lists a handful.
constexpr std::size_t kServicesProbed = 16;
constexpr const char* kPingId = "quor-ping";
constexpr const char* kPushEnableIdPrefix = "quor-push-";
constexpr const char* kBarrierIdPrefix = "quor-barrier-";
constexpr const char* kArchiveQueryPrefix = "quor-archive-";
// Servers cap a page of the archive (Prosody at 50 by default): this asks for what they give.
constexpr int kArchivePage = 100;
constexpr const char* kStreamLimits = "urn:xmpp:stream-limits:0";
// A send the server ended the stream on this many times is not written again.
constexpr int kMostStreamEnds = 2;
// Our stanzas the server has not acknowledged before the connection asks it to.
constexpr std::size_t kAskForAckAfter = 16;
// How long a logout waits for the server to end its side of the stream.
constexpr std::chrono::milliseconds kGoodbyePatience{200};
// The most bytes read from the socket before the loop looks at its other work.
constexpr std::size_t kReadBudget = 1024 * 1024;

// A write to a connection the peer reset raises SIGPIPE in the writing thread, whose default
// action ends the process. The network thread writes with MSG_NOSIGNAL and, for any code that
// might not, blocks SIGPIPE for itself, leaving the process's dispositions alone.
void blockBrokenPipeSignal() {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
}

bool isStanza(const std::string& name) {
  return name == "message" || name == "presence" || name == "iq";
}

std::string localPartOf(const std::string& bareJid) {
  const auto at = bareJid.find('@');
  return at == std::string::npos ? "" : bareJid.substr(0, at);
}

}  // namespace

// Everything the network thread owns: the socket, TLS, the stream and its login, stream
// management, the sends that wait for their outcome, the keepalive and the reconnection
// schedule.
class QuorXmppConnection::Network : private QuorXmlStream::Handler {
 public:
  explicit Network(QuorXmppConnection& owner)
      : owner_(owner),
        options_(owner.options_),
        stream_(*this, {owner.options_.maxStanzaBytes, 32}) {}
  ~Network() override { closeSocket(); }

  void run();

 private:
  enum class Phase { Offline, Connecting, LoggingIn, Online };
  struct Waiting {
    Outcome outcome;   // null for a send nobody waits for: it is still written again if need be
    std::string peer;  // the bare JID the message went to: its errors may come from there
    std::string xml;
    uint64_t order = 0;  // its place among the sends, for writing them again in order
    int streamEnds = 0;  // how often the server ended the stream while it was the oldest unsettled
    Clock::time_point made;
    Clock::time_point deadline;
    bool written = false;  // on this link
  };

  // The link.
  void connect();
  void finishConnect();
  void readSocket();
  void flush();
  void write(const std::string& xml);
  void writeStanza(const std::string& xml, const std::string& id = "");
  // `why` by value: it may be a member of what closing the link frees. `ending` Replaced or
  // Refused ends the connection for good (no reconnection); anything else reconnects.
  void lose(std::string why,
            QuorXmppConnectionStatus ending = QuorXmppConnectionStatus::Disconnected);
  void closeSocket();
  void sayGoodbye();
  void setStatus(QuorXmppConnectionStatus status);
  int pollTimeoutMs(Clock::time_point now) const;

  // The login.
  void openStream();
  void onFeatures(const QuorXmlElement& features);
  void onSasl(const QuorXmlElement& element);
  void onStreamManagement(const QuorXmlElement& element);
  void bind();
  void afterBind();
  void announce();
  void goOnline();

  // Sends and their outcomes.
  void takeOutbox();
  void writeQueued(Clock::time_point now);
  void writeWaiting(Waiting& waiting, const std::string& id, Clock::time_point now);
  void finish(const std::string& id, int64_t errorCode, int64_t stamp);
  // Sends the server acknowledged, on a server that does not confirm them: they succeed once
  // the answer to a ping written after the acknowledgement came back, so that a bounce the
  // server sends after counting a stanza (ejabberd does) still fails its send.
  void acknowledge(const std::vector<std::string>& ids);
  // The server ended the stream with an error: the oldest send written on this link and not
  // yet settled is the likeliest cause. One it ended the stream on kMostStreamEnds times fails
  // with QuorXmppErrorTooLarge instead of being written again, so no send keeps the link in a
  // loop of reconnections.
  void blameOldestUnsettled();
  void writeBarrier();
  void passBarrier();
  void expire(Clock::time_point now);
  void keepAlive(Clock::time_point now);
  // Fails every send still waiting: `writtenCode` for those written on some link, `unwrittenCode`
  // for the others.
  void failEverything(int64_t writtenCode, int64_t unwrittenCode);

  // The app's life cycle: what the server is told, push, and the cut when suspended.
  void followAppState(Clock::time_point now);
  void enablePush(const QuorXmppPush& push);
  void disablePush();
  std::string pushNode(const QuorXmppPush& push) const {
    return push.node.empty() ? owner_.resource_ : push.node;
  }
  std::chrono::milliseconds keepaliveInterval() const;
  bool suspended() const { return owner_.appState_.load() == QuorAppState::Suspended; }

  // Received stanzas.
  void onStreamStart(const QuorXmlElement& header) override;
  void onStanza(std::unique_ptr<QuorXmlElement> stanza) override;
  void onStreamEnd() override {
    if (socket_ >= 0) lose("the server ended the stream");
  }
  void onMessage(const QuorXmlElement& message);
  // A live message that carries no payload: a peer's read marker or chat state, if any.
  void signalFrom(const QuorXmlElement& message);
  // A message forwarded by the server (an archive's result, a carbon copy): false when it is
  // none to take.
  bool readForwarded(const QuorXmlElement& inner, QuorXmppPayload* payload) const;
  // Whether `stanza` comes from the server or the account itself (an archive's results).
  bool isFromServerOrSelf(const QuorXmlElement& stanza) const;
  void onIq(const QuorXmlElement& iq);

  QuorXmppConnection& owner_;
  const QuorXmppOptions& options_;
  QuorXmlStream stream_;
  std::unique_ptr<QuorTlsLayer> tls_;
  std::unique_ptr<QuorSaslClient> sasl_;
  QuorStreamManagement sm_;

  int socket_ = -1;
  Phase phase_ = Phase::Offline;
  bool authenticated_ = false;
  bool smOffered_ = false;
  bool sessionRequired_ = false;
  bool ended_ = false;  // Replaced or Refused: no reconnection
  // The stream starts again (after authentication) once the parser has returned.
  bool restartStream_ = false;
  std::string out_;          // bytes for the socket
  std::size_t outSent_ = 0;  // of out_, already written
  Clock::time_point attemptStart_;
  Clock::time_point lastHeard_;
  std::optional<Clock::time_point> probeSent_;
  std::chrono::milliseconds backoff_{0};
  Clock::time_point nextAttempt_ = Clock::now();

  std::map<std::string, Waiting> waiting_;
  uint64_t nextOrder_ = 0;
  // Acknowledged sends with the time of their acknowledgement: behind the ping `barrierId_`
  // (written when not empty), and after it. Payloads that arrive while a ping is out wait
  // behind it too, so that a send's outcome still comes before the replies to it.
  std::vector<std::pair<std::string, int64_t>> behindBarrier_;
  std::vector<std::pair<std::string, int64_t>> afterBarrier_;
  std::deque<QuorXmppPayload> heldPayloads_;
  std::string barrierId_;
  // The server's services asked for their features this login, by the query's number.
  std::vector<std::string> services_;
  uint64_t barriers_ = 0;
  // The largest message to write: the option's, or less when the server announces less.
  std::size_t sendLimit_ = 0;
  std::deque<Outgoing> queued_;  // made while offline

  bool csiOffered_ = false;
  // What the server was told on this stream (active: false); unknown after a resumption.
  std::optional<bool> inactiveSaid_;
  QuorAppState followed_ = QuorAppState::Foreground;
  // The registration enabled during this stay out of the foreground, and the enable that waits
  // for its answer; the registrations the server took during this run (disabled on leaving).
  std::optional<QuorXmppPush> pushAsked_;
  std::string pushEnableId_;
  std::vector<QuorXmppPush> pushTaken_;
  uint64_t pushRequests_ = 0;
  // Suspended: the link is cut once push is enabled, or at this time without its answer.
  std::optional<Clock::time_point> suspendBy_;
};

QuorXmppConnection::QuorXmppConnection(QuorXmppOptions options, Events& events)
    : options_(std::move(options)), events_(events) {
  bareJid_ = QuorXmppStanza::bareJid(options_.jid);
  resource_ = options_.resource.empty() ? "quor-cs-" + QuorXmppStanza::uniqueId().substr(5, 12)
                                        : options_.resource;
  domain_ = QuorXmppStanza::domainOf(options_.jid);
  push_ = options_.push;
  wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

QuorXmppConnection::~QuorXmppConnection() {
  stop();
  if (wakeFd_ >= 0) ::close(wakeFd_);
}

void QuorXmppConnection::start() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (thread_.joinable() || stopping_) return;
  network_ = std::make_unique<Network>(*this);
  thread_ = std::thread([this] {
    QuorHostBase::setThreadName("network");
    blockBrokenPipeSignal();
    network_->run();
  });
}

void QuorXmppConnection::stop(bool leaveAccount) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_ || !thread_.joinable()) return;
    stopping_ = true;
    leaving_ = leaveAccount;
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
  failSlotWaits("stopped");
  // Stopped: start() may connect again.
  std::lock_guard<std::mutex> lock(mutex_);
  thread_ = std::thread();
  stopping_ = false;
}

void QuorXmppConnection::setAppState(QuorAppState state) {
  appState_ = state;
  wake();
}

void QuorXmppConnection::setPush(QuorXmppPush push) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    push_ = std::move(push);
  }
  wake();
}

QuorXmppConnection::Traffic QuorXmppConnection::traffic() const {
  return {wakeups_.load(), bytesIn_.load(), bytesOut_.load(), logins_.load(), resumptions_.load()};
}

void QuorXmppConnection::send(QuorXmppPayload payload, Outcome outcome) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!stopping_ && thread_.joinable()) {
      outbox_.push_back({std::move(payload), {}, std::move(outcome), Clock::now()});
      outcome = nullptr;
    }
  }
  if (outcome) {
    outcome(QuorXmppErrorNotOnline, 0);
    return;
  }
  wake();
}

void QuorXmppConnection::queryArchive(const std::string& after) {
  static std::atomic<uint64_t> queries{0};
  sendRaw(QuorXmppStanza::archiveQuery(kArchiveQueryPrefix + std::to_string(++queries), after,
                                       kArchivePage)
              ->toXml());
}

void QuorXmppConnection::sendReadMarker(const std::string& peer, const std::string& stanzaId) {
  sendRaw(QuorXmppStanza::displayedMarker(peer, stanzaId)->toXml());
}

QuorXmppConnection::UploadService QuorXmppConnection::uploadService() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return upload_;
}

void QuorXmppConnection::requestUploadSlot(const std::string& name, uint64_t size,
                                           const std::string& type, SlotDone done) {
  const UploadService service = uploadService();
  if (service.jid.empty()) return done({}, "the server offers no upload service");
  if (status() != QuorXmppConnectionStatus::Connected) return done({}, "not online");
  const std::string id = kSlotPrefix + QuorXmppStanza::uniqueId();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return done({}, "stopped");
    slotWaits_.emplace(id, std::move(done));
    // A link lost before the request is written drops it: its wait fails then, not never.
    outbox_.push_back(
        {{},
         QuorXmppStanza::uploadSlotRequest(service.jid, id, name, size, type)->toXml(),
         [this, id](int64_t code, int64_t) {
           failSlotWait(id, code == QuorXmppErrorStopped ? "stopped" : "not online");
         },
         Clock::now()});
  }
  wake();
}

void QuorXmppConnection::failSlotWait(const std::string& id, const std::string& reason) {
  SlotDone done;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto waiting = slotWaits_.find(id);
    if (waiting == slotWaits_.end()) return;
    done = std::move(waiting->second);
    slotWaits_.erase(waiting);
  }
  done({}, reason);
}

void QuorXmppConnection::failSlotWaits(const std::string& reason) {
  std::map<std::string, SlotDone> waiting;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    waiting.swap(slotWaits_);
  }
  for (auto& entry : waiting) entry.second({}, reason);
}

void QuorXmppConnection::sendChatState(const std::string& peer, bool typing) {
  sendRaw(QuorXmppStanza::chatState(peer, typing)->toXml());
}

void QuorXmppConnection::sendRaw(std::string xml) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return;
    outbox_.push_back({{}, std::move(xml), nullptr, Clock::now()});
  }
  wake();
}

bool QuorXmppConnection::waitUntilOnline(std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  // A login that ended for good (Replaced, Refused) will not come online: no need to wait.
  statusChanged_.wait_for(lock, timeout, [this] {
    const auto now = status_.load();
    return now == QuorXmppConnectionStatus::Connected ||
           now == QuorXmppConnectionStatus::Replaced || now == QuorXmppConnectionStatus::Refused;
  });
  return status_.load() == QuorXmppConnectionStatus::Connected;
}

void QuorXmppConnection::wake() {
  const uint64_t one = 1;
  if (wakeFd_ >= 0) (void)!::write(wakeFd_, &one, sizeof one);
}

// ---- the loop

void QuorXmppConnection::Network::run() {
  backoff_ = options_.reconnectFirst;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(owner_.mutex_);
      if (owner_.stopping_) break;
    }
    auto now = Clock::now();
    followAppState(now);
    if (phase_ == Phase::Offline && !ended_ && !suspended() && now >= nextAttempt_) connect();
    takeOutbox();
    if (phase_ == Phase::Online) writeQueued(now);
    expire(now);
    keepAlive(now);
    flush();
    pollfd fds[2] = {{owner_.wakeFd_, POLLIN, 0}, {socket_, POLLIN, 0}};
    if (phase_ == Phase::Connecting || outSent_ < out_.size()) fds[1].events |= POLLOUT;
    const nfds_t count = socket_ >= 0 ? 2 : 1;
    ::poll(fds, count, pollTimeoutMs(now));
    ++owner_.wakeups_;
    if (fds[0].revents & POLLIN) {
      uint64_t drained;
      (void)!::read(owner_.wakeFd_, &drained, sizeof drained);
    }
    if (count < 2 || !fds[1].revents) continue;
    if (phase_ == Phase::Connecting) {
      finishConnect();
    } else {
      if (fds[1].revents & (POLLIN | POLLHUP | POLLERR)) readSocket();
      if (socket_ >= 0 && (fds[1].revents & POLLOUT)) flush();
    }
  }
  failEverything(QuorXmppErrorStopped, QuorXmppErrorStopped);
  if (phase_ == Phase::Online) {
    bool leaving;
    {
      std::lock_guard<std::mutex> lock(owner_.mutex_);
      leaving = owner_.leaving_;
    }
    if (leaving) disablePush();
    sayGoodbye();
  }
  closeSocket();
  if (!ended_) setStatus(QuorXmppConnectionStatus::SignedOut);
}

void QuorXmppConnection::Network::sayGoodbye() {
  // The stream ends both ways before the socket closes: a server that saw only a dropped socket
  // would keep the session for resumption.
  write("</stream:stream>");
  flush();
  const auto end = Clock::now() + kGoodbyePatience;
  char buffer[4096];
  while (socket_ >= 0 && Clock::now() < end) {
    pollfd fd{socket_, POLLIN, 0};
    if (::poll(&fd, 1, static_cast<int>(kGoodbyePatience.count())) <= 0) return;
    const ssize_t got = ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) return;
    if (got > 0 && std::string(buffer, static_cast<std::size_t>(got)).find("</stream:stream>") !=
                       std::string::npos) {
      return;
    }
  }
}

int QuorXmppConnection::Network::pollTimeoutMs(Clock::time_point now) const {
  auto next = now + std::chrono::hours(1);
  if (phase_ == Phase::Offline && !ended_ && !suspended()) next = std::min(next, nextAttempt_);
  if (suspendBy_) next = std::min(next, *suspendBy_);
  if (phase_ == Phase::Connecting || phase_ == Phase::LoggingIn) {
    next = std::min(next, attemptStart_ + options_.loginTimeout);
  }
  if (phase_ == Phase::Online) {
    next = std::min(next, probeSent_ ? *probeSent_ + options_.keepaliveTimeout
                                     : lastHeard_ + keepaliveInterval());
  }
  for (const auto& entry : waiting_) next = std::min(next, entry.second.deadline);
  for (const auto& outgoing : queued_)
    next = std::min(next, outgoing.made + options_.outboxTimeout);
  const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
  // One millisecond more, so that a deadline has passed when the loop looks again.
  return static_cast<int>(std::clamp<long long>(wait + 1, 0, 3600 * 1000));
}

// ---- the link

void QuorXmppConnection::Network::connect() {
  attemptStart_ = Clock::now();
  const std::string host = options_.server.empty() ? owner_.domain_ : options_.server;
  const std::string port = std::to_string(options_.port ? options_.port : 5222);
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0 || !found) {
    lose("cannot find " + host);
    return;
  }
  for (addrinfo* address = found; address; address = address->ai_next) {
    socket_ = ::socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket_ < 0) continue;
    if (::connect(socket_, address->ai_addr, address->ai_addrlen) == 0 || errno == EINPROGRESS) {
      break;
    }
    ::close(socket_);
    socket_ = -1;
  }
  ::freeaddrinfo(found);
  if (socket_ < 0) {
    lose("cannot connect to " + host + ":" + port);
    return;
  }
  // Small stanzas must leave at once: without this a round trip waits for delayed ACKs.
  const int on = 1;
  ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  phase_ = Phase::Connecting;
  setStatus(QuorXmppConnectionStatus::Connecting);
}

void QuorXmppConnection::Network::finishConnect() {
  int error = 0;
  socklen_t length = sizeof error;
  if (::getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
    lose(std::string("cannot connect: ") + std::strerror(error));
    return;
  }
  phase_ = Phase::LoggingIn;
  authenticated_ = false;
  lastHeard_ = Clock::now();
  stream_.reset();
  openStream();
}

void QuorXmppConnection::Network::readSocket() {
  char buffer[65536];
  std::size_t budget = kReadBudget;
  while (socket_ >= 0 && budget > 0) {
    const ssize_t got = ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (got == 0) {
      lose("the server closed the connection");
      return;
    }
    if (got < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return;
      lose(std::string("reading failed: ") + std::strerror(errno));
      return;
    }
    budget -= std::min(budget, static_cast<std::size_t>(got));
    owner_.bytesIn_ += static_cast<uint64_t>(got);
    lastHeard_ = Clock::now();
    probeSent_.reset();
    std::string plain;
    const char* data = buffer;
    std::size_t size = static_cast<std::size_t>(got);
    if (tls_) {
      const bool wasHandshaking = tls_->state() == QuorTlsLayer::State::Handshaking;
      tls_->receive(buffer, size, plain);
      tls_->takeOutgoing(out_);
      if (tls_->state() == QuorTlsLayer::State::Failed) {
        lose(tls_->error());
        return;
      }
      if (wasHandshaking && tls_->state() == QuorTlsLayer::State::Open) {
        stream_.reset();
        openStream();
      }
      data = plain.data();
      size = plain.size();
    }
    if (size > 0 && !stream_.feed(data, size) && socket_ >= 0) {
      lose("the server sent " + stream_.error());
      return;
    }
    if (restartStream_) {
      restartStream_ = false;
      stream_.reset();
    }
  }
}

void QuorXmppConnection::Network::flush() {
  while (socket_ >= 0 && outSent_ < out_.size()) {
    const ssize_t sent = ::send(socket_, out_.data() + outSent_, out_.size() - outSent_,
                                MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) break;
      lose(std::string("writing failed: ") + std::strerror(errno));
      return;
    }
    outSent_ += static_cast<std::size_t>(sent);
    owner_.bytesOut_ += static_cast<uint64_t>(sent);
  }
  if (outSent_ == out_.size()) {
    out_.clear();
    outSent_ = 0;
  } else if (outSent_ > out_.size() / 2) {
    out_.erase(0, outSent_);
    outSent_ = 0;
  }
}

void QuorXmppConnection::Network::write(const std::string& xml) {
  if (socket_ < 0) return;
  if (tls_) {
    tls_->send(xml);
    tls_->takeOutgoing(out_);
  } else {
    out_ += xml;
  }
}

void QuorXmppConnection::Network::writeStanza(const std::string& xml, const std::string& id) {
  write(xml);
  sm_.sent(id, xml);
}

void QuorXmppConnection::Network::lose(std::string why, QuorXmppConnectionStatus ending) {
  // A link cut for a suspended app is no loss worth a warning.
  const bool wasOnline = phase_ == Phase::Online && !suspended();
  closeSocket();
  owner_.events_.onLog(wasOnline ? 3 : 4, "xmpp", "connection lost: " + why);
  owner_.failSlotWaits("connection lost");  // the server answers no request of that link
  nextAttempt_ = Clock::now() + backoff_;
  backoff_ = std::min(backoff_ * 2, options_.reconnectLongest);
  // What the server acknowledged it has: without the answer to the ping, it succeeds as
  // acknowledged.
  behindBarrier_.insert(behindBarrier_.end(), afterBarrier_.begin(), afterBarrier_.end());
  afterBarrier_.clear();
  passBarrier();
  const auto now = Clock::now();
  // What was written on this link waits for the next one, within its time.
  for (auto& entry : waiting_) {
    if (!entry.second.written) continue;
    entry.second.written = false;
    entry.second.deadline = entry.second.made + options_.outboxTimeout;
  }
  expire(now);
  if (ending == QuorXmppConnectionStatus::Replaced) {
    owner_.events_.onLog(3, "xmpp",
                         "another login of " + owner_.bareJid_ + " took the resource " +
                             owner_.resource_ + "; this login ends");
  } else if (ending == QuorXmppConnectionStatus::Refused) {
    owner_.events_.onLog(2, "xmpp",
                         "the server refused the login of " + owner_.bareJid_ + " (" + why +
                             "); no more attempts until the host connects again");
  }
  if (ending == QuorXmppConnectionStatus::Replaced || ending == QuorXmppConnectionStatus::Refused) {
    ended_ = true;
    failEverything(QuorXmppErrorConnectionLost, QuorXmppErrorNotOnline);
    setStatus(ending);
    return;
  }
  setStatus(QuorXmppConnectionStatus::Disconnected);
}

void QuorXmppConnection::Network::closeSocket() {
  if (socket_ >= 0) ::close(socket_);
  socket_ = -1;
  phase_ = Phase::Offline;
  tls_.reset();
  sasl_.reset();
  out_.clear();
  outSent_ = 0;
  probeSent_.reset();
  // The parser may be the caller: finishConnect() gives the next link a fresh one.
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

// ---- the login

void QuorXmppConnection::Network::openStream() {
  write("<?xml version='1.0'?><stream:stream to='" + owner_.domain_ +
        "' version='1.0' xml:lang='en' xmlns='jabber:client' xmlns:stream='" + kStreams + "'>");
}

void QuorXmppConnection::Network::onStreamStart(const QuorXmlElement& /*header*/) {}

void QuorXmppConnection::Network::onFeatures(const QuorXmlElement& features) {
  if (!tls_) {
    const QuorXmlElement* starttls = features.child("starttls", kTls);
    if (starttls && options_.tls != QuorXmppOptions::Tls::Disabled) {
      write(std::string("<starttls xmlns='") + kTls + "'/>");
      return;
    }
    if (options_.tls == QuorXmppOptions::Tls::Required) {
      lose("the server offers no TLS");
      return;
    }
  }
  if (!authenticated_) {
    std::vector<std::string> offered;
    if (const QuorXmlElement* mechanisms = features.child("mechanisms", kSasl)) {
      for (const auto& mechanism : mechanisms->children()) offered.push_back(mechanism->text());
    }
    const std::string chosen = QuorSaslClient::choose(offered);
    if (chosen.empty()) {
      lose("the server offers no authentication this client knows");
      return;
    }
    sasl_ = std::make_unique<QuorSaslClient>(localPartOf(owner_.bareJid_), options_.password);
    write(std::string("<auth xmlns='") + kSasl + "' mechanism='" + chosen + "'>" +
          QuorSaslClient::base64(sasl_->start(chosen)) + "</auth>");
    return;
  }
  csiOffered_ = features.child("csi", QuorXmppStanza::kClientStateNamespace) != nullptr;
  smOffered_ = options_.streamManagement &&
               features.child("sm", QuorStreamManagement::kNamespace) != nullptr;
  sendLimit_ = options_.maxSendStanzaBytes;
  if (const QuorXmlElement* limits = features.child("limits", kStreamLimits)) {
    if (const QuorXmlElement* most = limits->child("max-bytes", kStreamLimits)) {
      const unsigned long long announced = std::strtoull(most->text().c_str(), nullptr, 10);
      if (announced > 0 && announced < sendLimit_) sendLimit_ = static_cast<std::size_t>(announced);
    }
  }
  const QuorXmlElement* session = features.child("session", kSession);
  sessionRequired_ = session && !session->child("optional");
  if (smOffered_ && sm_.canResume()) {
    write(std::string("<resume xmlns='") + QuorStreamManagement::kNamespace + "' h='" +
          std::to_string(sm_.handledCount()) + "' previd='" + sm_.resumeId() + "'/>");
    return;
  }
  sm_.forget();
  bind();
}

void QuorXmppConnection::Network::onSasl(const QuorXmlElement& element) {
  const std::string name = element.localName();
  if (!sasl_) return;
  std::optional<std::string> data = QuorSaslClient::unbase64(element.text());
  if (name == "challenge") {
    const auto response = data ? sasl_->respond(*data) : std::nullopt;
    if (!response) {
      lose("the server's authentication challenge is not valid");
      return;
    }
    write(std::string("<response xmlns='") + kSasl + "'>" + QuorSaslClient::base64(*response) +
          "</response>");
  } else if (name == "success") {
    if (!data || !sasl_->verifySuccess(*data)) {
      lose("the server could not prove that it knows the account");
      return;
    }
    authenticated_ = true;
    sasl_.reset();
    restartStream_ = true;
    openStream();
  } else if (name == "failure") {
    // A refused login (a wrong password, an account that does not exist) is not tried again:
    // every attempt would be refused, and servers lock out accounts that keep trying.
    std::string condition = "authentication failed";
    if (!element.children().empty()) condition = element.children().front()->localName();
    if (const QuorXmlElement* text = element.child("text", kSasl)) {
      if (!text->text().empty()) condition += ": " + text->text();
    }
    lose(condition, QuorXmppConnectionStatus::Refused);
  }
}

void QuorXmppConnection::Network::bind() {
  // A new session: the server takes the app as active, and push is enabled for it anew.
  inactiveSaid_ = false;
  pushAsked_.reset();
  pushEnableId_.clear();
  ++owner_.logins_;
  QuorXmlElement iq("iq");
  iq.set("type", "set").set("id", kBindId);
  iq.add("bind", kBind).add("resource").setText(owner_.resource_);
  write(iq.toXml());
}

void QuorXmppConnection::Network::afterBind() {
  if (smOffered_) {
    write(std::string("<enable xmlns='") + QuorStreamManagement::kNamespace + "' resume='true'/>");
    return;
  }
  announce();
}

void QuorXmppConnection::Network::onStreamManagement(const QuorXmlElement& element) {
  const std::string name = element.localName();
  if (name == "r") {
    write(std::string("<a xmlns='") + QuorStreamManagement::kNamespace + "' h='" +
          std::to_string(sm_.handledCount()) + "'/>");
  } else if (name == "a") {
    acknowledge(sm_.acknowledged(
        static_cast<uint32_t>(std::strtoul(element.attribute("h").c_str(), nullptr, 10))));
  } else if (name == "enabled") {
    const bool resumable =
        element.attribute("resume") == "true" || element.attribute("resume") == "1";
    sm_.enabled(resumable ? element.attribute("id") : "");
    announce();
  } else if (name == "resumed") {
    std::vector<std::string> acknowledged;
    const auto again = sm_.resumed(
        static_cast<uint32_t>(std::strtoul(element.attribute("h").c_str(), nullptr, 10)),
        &acknowledged);
    acknowledge(acknowledged);
    inactiveSaid_.reset();
    ++owner_.resumptions_;
    // The server kept the session: what it did not handle is written again, in order; what it
    // handled has its confirmation in what the server sends now.
    for (const auto& stanza : again) writeStanza(stanza.xml, stanza.id);
    const auto now = Clock::now();
    for (auto& entry : waiting_) {
      entry.second.written = true;
      entry.second.deadline = now + options_.sendTimeout;
    }
    goOnline();
  } else if (name == "failed") {
    if (phase_ == Phase::Online) return;
    // Not resumed: a new session, and what waits is written again on it.
    const bool wasResuming = sm_.canResume();
    sm_.forget();
    if (wasResuming) {
      bind();
    } else {
      announce();  // enabling failed: on without stream management
    }
  }
}

void QuorXmppConnection::Network::announce() {
  // Presence makes the server deliver messages (and the offline store) to this resource.
  writeStanza("<presence/>");
  writeStanza(QuorXmppStanza::discoInfoQuery(owner_.domain_, kDiscoId)->toXml());
}

void QuorXmppConnection::Network::goOnline() {
  phase_ = Phase::Online;
  backoff_ = options_.reconnectFirst;
  setStatus(QuorXmppConnectionStatus::Connected);
  // Sends that wait from an earlier link go out first, in the order they were made.
  std::vector<std::pair<uint64_t, std::string>> again;
  for (const auto& entry : waiting_) {
    if (!entry.second.written) again.emplace_back(entry.second.order, entry.first);
  }
  std::sort(again.begin(), again.end());
  const auto now = Clock::now();
  for (const auto& item : again) writeWaiting(waiting_.at(item.second), item.second, now);
  writeQueued(now);
}

// ---- sends

void QuorXmppConnection::Network::takeOutbox() {
  std::deque<Outgoing> taken;
  {
    std::lock_guard<std::mutex> lock(owner_.mutex_);
    taken.swap(owner_.outbox_);
  }
  for (auto& outgoing : taken) {
    if (!outgoing.raw.empty()) {
      if (phase_ == Phase::Online) {
        writeStanza(outgoing.raw);
      } else if (outgoing.outcome) {
        outgoing.outcome(QuorXmppErrorNotOnline, 0);
      }
      continue;
    }
    if (phase_ != Phase::Online && options_.outboxTimeout.count() <= 0) {
      if (outgoing.outcome) outgoing.outcome(QuorXmppErrorNotOnline, 0);
      continue;
    }
    queued_.push_back(std::move(outgoing));
  }
}

void QuorXmppConnection::Network::writeQueued(Clock::time_point now) {
  const std::size_t before = sm_.unacknowledged();
  while (!queued_.empty()) {
    Outgoing outgoing = std::move(queued_.front());
    queued_.pop_front();
    auto& payload = outgoing.payload;
    // A send keeps the id it was given (a message written again by a later run of the app),
    // else it gets a fresh one.
    if (payload.stanzaId.empty() || waiting_.count(payload.stanzaId)) {
      payload.stanzaId = QuorXmppStanza::uniqueId();
    }
    const auto message = QuorXmppStanza::payloadMessage(payload);
    if (!message) {
      if (outgoing.outcome) outgoing.outcome(QuorXmppErrorNotSendable, 0);
      continue;
    }
    std::string xml = message->toXml();
    if (xml.size() > (sendLimit_ > 0 ? sendLimit_ : options_.maxSendStanzaBytes)) {
      if (outgoing.outcome) outgoing.outcome(QuorXmppErrorTooLarge, 0);
      continue;
    }
    Waiting& waiting = waiting_[payload.stanzaId];
    waiting.outcome = std::move(outgoing.outcome);
    waiting.peer = payload.peer;
    waiting.xml = std::move(xml);
    waiting.order = nextOrder_++;
    waiting.made = outgoing.made;
    writeWaiting(waiting, payload.stanzaId, now);
  }
  // Ask for the server's count when the outcome depends on it, else now and then.
  if (sm_.isEnabled() && sm_.unacknowledged() > before &&
      (!owner_.serverStamps_ || sm_.unacknowledged() >= kAskForAckAfter)) {
    write(std::string("<r xmlns='") + QuorStreamManagement::kNamespace + "'/>");
  }
}

void QuorXmppConnection::Network::writeWaiting(Waiting& waiting, const std::string& id,
                                               Clock::time_point now) {
  writeStanza(waiting.xml, id);
  waiting.written = true;
  waiting.deadline = now + options_.sendTimeout;
  // Without the stamping module nor stream management, written is all there is to know.
  if (!owner_.serverStamps_ && !sm_.isEnabled()) finish(id, 0, QuorXmppStanza::wallClockMs());
}

void QuorXmppConnection::Network::finish(const std::string& id, int64_t errorCode, int64_t stamp) {
  const auto it = waiting_.find(id);
  if (it == waiting_.end()) return;
  Outcome outcome = std::move(it->second.outcome);
  waiting_.erase(it);
  if (outcome) outcome(errorCode, stamp);
}

void QuorXmppConnection::Network::acknowledge(const std::vector<std::string>& ids) {
  // With the stamping module the server's confirmation is the outcome, not its count.
  if (owner_.serverStamps_ || ids.empty()) return;
  const int64_t now = QuorXmppStanza::wallClockMs();
  for (const auto& id : ids) afterBarrier_.emplace_back(id, now);
  if (barrierId_.empty()) writeBarrier();
}

void QuorXmppConnection::Network::blameOldestUnsettled() {
  std::string oldest;
  uint64_t oldestOrder = std::numeric_limits<uint64_t>::max();
  for (const auto& entry : waiting_) {
    if (entry.second.written && entry.second.order < oldestOrder) {
      oldestOrder = entry.second.order;
      oldest = entry.first;
    }
  }
  if (oldest.empty()) return;
  if (++waiting_.at(oldest).streamEnds < kMostStreamEnds) return;
  owner_.events_.onLog(2, "xmpp",
                       "the server ended the stream on message " + oldest + " " +
                           std::to_string(kMostStreamEnds) + " times: it is not sent again");
  finish(oldest, QuorXmppErrorTooLarge, 0);
}

void QuorXmppConnection::Network::writeBarrier() {
  behindBarrier_.swap(afterBarrier_);
  afterBarrier_.clear();
  barrierId_ = kBarrierIdPrefix + std::to_string(++barriers_);
  // Any answer will do, a result or an error: the server sends it after what it sent before.
  writeStanza(std::string("<iq type='get' id='") + barrierId_ + "' to='" + owner_.domain_ +
              "'><ping xmlns='" + kPing + "'/></iq>");
}

void QuorXmppConnection::Network::passBarrier() {
  auto passed = std::move(behindBarrier_);
  behindBarrier_.clear();
  barrierId_.clear();
  // A send that a bounce failed meanwhile is no longer waiting: finish() skips it.
  for (const auto& [id, acknowledged] : passed) finish(id, 0, acknowledged);
  auto held = std::move(heldPayloads_);
  heldPayloads_.clear();
  for (auto& payload : held) owner_.events_.onPayload(std::move(payload));
  if (!afterBarrier_.empty() && socket_ >= 0) writeBarrier();
}

void QuorXmppConnection::Network::expire(Clock::time_point now) {
  std::vector<std::pair<std::string, int64_t>> late;
  for (const auto& entry : waiting_) {
    if (entry.second.deadline <= now) {
      late.emplace_back(entry.first,
                        entry.second.written ? QuorXmppErrorTimeout : QuorXmppErrorConnectionLost);
    }
  }
  for (const auto& item : late) finish(item.first, item.second, 0);
  while (!queued_.empty() && queued_.front().made + options_.outboxTimeout <= now) {
    Outgoing outgoing = std::move(queued_.front());
    queued_.pop_front();
    if (outgoing.outcome) outgoing.outcome(QuorXmppErrorNotOnline, 0);
  }
}

void QuorXmppConnection::Network::keepAlive(Clock::time_point now) {
  if ((phase_ == Phase::Connecting || phase_ == Phase::LoggingIn) &&
      now - attemptStart_ >= options_.loginTimeout) {
    lose("the login took too long");
    return;
  }
  if (phase_ != Phase::Online) return;
  if (probeSent_) {
    if (now - *probeSent_ >= options_.keepaliveTimeout) {
      lose("no answer from the server for " +
           std::to_string(
               std::chrono::duration_cast<std::chrono::seconds>(now - lastHeard_).count()) +
           " s");
    }
    return;
  }
  if (now - lastHeard_ < keepaliveInterval()) return;
  probeSent_ = now;
  if (sm_.isEnabled()) {
    write(std::string("<r xmlns='") + QuorStreamManagement::kNamespace + "'/>");
  } else {
    writeStanza(std::string("<iq type='get' id='") + kPingId + "' to='" + owner_.domain_ +
                "'><ping xmlns='" + kPing + "'/></iq>");
  }
}

std::chrono::milliseconds QuorXmppConnection::Network::keepaliveInterval() const {
  if (owner_.appState_.load() == QuorAppState::Foreground) return options_.keepaliveInterval;
  return std::max(options_.keepaliveInterval, options_.backgroundKeepaliveInterval);
}

// ---- the app's life cycle

void QuorXmppConnection::Network::followAppState(Clock::time_point now) {
  const QuorAppState wanted = owner_.appState_.load();
  if (wanted != followed_) {
    // Back from suspension: connect at once.
    if (followed_ == QuorAppState::Suspended) {
      nextAttempt_ = now;
      backoff_ = options_.reconnectFirst;
    }
    // Every stay out of the foreground enables push anew, so its count starts again.
    if (wanted == QuorAppState::Foreground) pushAsked_.reset();
    followed_ = wanted;
  }
  if (wanted != QuorAppState::Suspended) suspendBy_.reset();
  if (phase_ != Phase::Online) {
    // A login under way is given up: a suspended app has no link.
    if (wanted == QuorAppState::Suspended && socket_ >= 0) lose("the app is suspended");
    return;
  }
  const bool inactive = wanted != QuorAppState::Foreground;
  if (csiOffered_ && inactiveSaid_ != inactive) {
    write(std::string("<") + (inactive ? "inactive" : "active") + " xmlns='" +
          QuorXmppStanza::kClientStateNamespace + "'/>");
    inactiveSaid_ = inactive;
  }
  if (inactive && pushEnableId_.empty()) {
    QuorXmppPush push;
    {
      std::lock_guard<std::mutex> lock(owner_.mutex_);
      push = owner_.push_;
    }
    if (!push.service.empty() && !(pushAsked_ && *pushAsked_ == push)) enablePush(push);
  }
  if (wanted != QuorAppState::Suspended) return;
  if (!suspendBy_) suspendBy_ = now + options_.keepaliveTimeout;
  if (pushEnableId_.empty() || now >= *suspendBy_) {
    // Cut without ending the stream: the server keeps the session for resumption and pushes
    // what arrives meanwhile.
    flush();
    suspendBy_.reset();
    pushEnableId_.clear();
    if (socket_ >= 0) lose("the app is suspended");
  }
}

void QuorXmppConnection::Network::enablePush(const QuorXmppPush& push) {
  pushAsked_ = push;
  pushEnableId_ = kPushEnableIdPrefix + std::to_string(++pushRequests_);
  writeStanza(QuorXmppStanza::pushEnable(pushEnableId_, push, pushNode(push), owner_.bareJid_,
                                         QuorXmppStanza::wallClockMs())
                  ->toXml());
}

void QuorXmppConnection::Network::disablePush() {
  QuorXmppPush current;
  {
    std::lock_guard<std::mutex> lock(owner_.mutex_);
    current = owner_.push_;
  }
  // The current registration (an earlier run may have enabled it) and any other this run did.
  std::vector<QuorXmppPush> all = pushTaken_;
  if (!current.service.empty()) all.push_back(current);
  std::vector<QuorXmppPush> done;
  for (const auto& push : all) {
    if (std::find(done.begin(), done.end(), push) != done.end()) continue;
    done.push_back(push);
    writeStanza(
        QuorXmppStanza::pushDisable(kPushEnableIdPrefix + std::string("off"), push, pushNode(push))
            ->toXml());
  }
}

void QuorXmppConnection::Network::failEverything(int64_t writtenCode, int64_t unwrittenCode) {
  auto waiting = std::move(waiting_);
  waiting_.clear();
  for (auto& entry : waiting) {
    // Sends that wait for a link after a lost one were written on it.
    if (entry.second.outcome) entry.second.outcome(writtenCode, 0);
  }
  auto queued = std::move(queued_);
  queued_.clear();
  for (auto& outgoing : queued) {
    if (outgoing.outcome) outgoing.outcome(unwrittenCode, 0);
  }
}

// ---- received stanzas

void QuorXmppConnection::Network::onStanza(std::unique_ptr<QuorXmlElement> stanza) {
  // What follows a lost link in the bytes already read belongs to no stream.
  if (socket_ < 0) return;
  const std::string name = stanza->localName();
  const std::string& ns = stanza->attribute("xmlns");
  if (isStanza(name) && (ns.empty() || ns == "jabber:client")) {
    if (sm_.isEnabled()) sm_.handled();
    if (name == "message") {
      onMessage(*stanza);
    } else if (name == "iq") {
      onIq(*stanza);
    }
    return;
  }
  if (ns == QuorStreamManagement::kNamespace) {
    onStreamManagement(*stanza);
  } else if (ns == kSasl) {
    onSasl(*stanza);
  } else if (ns == kTls && name == "proceed" && !tls_) {
    tls_ = std::make_unique<QuorTlsLayer>(owner_.domain_, options_.trustSelfSignedCertificate);
    tls_->start();
    tls_->takeOutgoing(out_);
    if (tls_->state() == QuorTlsLayer::State::Failed) lose(tls_->error());
  } else if (ns == kTls) {
    lose("the server refused TLS");
  } else if (name == "features") {
    onFeatures(*stanza);
  } else if (name == "error") {
    const bool conflict = stanza->child("conflict", kStreamErrors) != nullptr;
    if (!conflict) blameOldestUnsettled();
    lose(
        conflict ? "another login took this resource" : "the server ended the stream with an error",
        conflict ? QuorXmppConnectionStatus::Replaced : QuorXmppConnectionStatus::Disconnected);
  }
}

void QuorXmppConnection::Network::onIq(const QuorXmlElement& iq) {
  const std::string& type = iq.attribute("type");
  const std::string& id = iq.attribute("id");
  if (type == "get" || type == "set") {
    // A request must have an answer: pings get their result, anything else "not implemented".
    QuorXmlElement answer("iq");
    answer.set("id", id);
    if (!iq.attribute("from").empty()) answer.set("to", iq.attribute("from"));
    if (type == "get" && iq.child("ping", kPing)) {
      answer.set("type", "result");
    } else {
      answer.set("type", "error");
      answer.add("error")
          .set("type", "cancel")
          .add("feature-not-implemented", "urn:ietf:params:xml:ns:xmpp-stanzas");
    }
    writeStanza(answer.toXml());
    return;
  }
  if (id.rfind(kSlotPrefix, 0) == 0) {
    SlotDone done;
    {
      std::lock_guard<std::mutex> lock(owner_.mutex_);
      const auto waiting = owner_.slotWaits_.find(id);
      if (waiting == owner_.slotWaits_.end()) return;
      done = std::move(waiting->second);
      owner_.slotWaits_.erase(waiting);
    }
    QuorXmppUploadSlot slot;
    if (type == "result" && QuorXmppStanza::readUploadSlot(iq, &slot)) return done(slot, "");
    const std::string reason = QuorXmppStanza::errorReason(iq);
    done({}, reason.empty() ? "the upload service gave no slot" : reason);
    return;
  }
  if (!barrierId_.empty() && id == barrierId_) {
    passBarrier();
  } else if (!pushEnableId_.empty() && id == pushEnableId_ && isFromServerOrSelf(iq)) {
    pushEnableId_.clear();
    if (type == "result" && pushAsked_) {
      if (std::find(pushTaken_.begin(), pushTaken_.end(), *pushAsked_) == pushTaken_.end()) {
        pushTaken_.push_back(*pushAsked_);
      }
      owner_.events_.onLog(4, "xmpp", "push notifications enabled at " + pushAsked_->service);
    } else if (type != "result") {
      const QuorXmlElement* error = iq.child("error");
      const std::string condition = error && !error->children().empty()
                                        ? error->children().front()->localName()
                                        : std::string("no reason given");
      owner_.events_.onLog(3, "xmpp",
                           "the server did not enable push notifications (" + condition + ")");
    }
  } else if (id.rfind(kArchiveQueryPrefix, 0) == 0 && isFromServerOrSelf(iq)) {
    bool complete = true;
    std::string last;
    if (type != "result" || !QuorXmppStanza::readArchiveEnd(iq, &complete, &last)) {
      owner_.events_.onLog(3, "xmpp", "the server's archive gave no page (" + type + ")");
      complete = true;
      last.clear();
    }
    owner_.events_.onArchiveEnd(complete, last);
  } else if (id == kBindId) {
    if (type != "result") {
      lose("the server refused to bind the resource " + owner_.resource_);
      return;
    }
    if (sessionRequired_) {
      QuorXmlElement session("iq");
      session.set("type", "set").set("id", kSessionId);
      session.add("session", kSession);
      write(session.toXml());
      return;
    }
    afterBind();
  } else if (id == kSessionId) {
    afterBind();
  } else if (id == kDiscoId && phase_ != Phase::Online) {
    const bool stamps =
        type == "result" && QuorXmppStanza::hasFeature(iq, QuorXmppPayloadNamespace);
    owner_.serverStamps_ = stamps;
    // Copies of what the account's other devices send and receive (XEP-0280), so that each
    // device shows the whole conversation.
    if (type == "result" && QuorXmppStanza::hasFeature(iq, QuorXmppStanza::kCarbonsNamespace)) {
      writeStanza(QuorXmppStanza::carbonsEnable(kCarbonsId)->toXml());
    }
    if (!stamps) {
      owner_.events_.onLog(3, "xmpp",
                           sm_.isEnabled()
                               ? "the server does not confirm customer-service messages; sends "
                                 "succeed once the server acknowledged them, stamped with this "
                                 "machine's clock"
                               : "the server confirms nothing; sends succeed once written, "
                                 "stamped with this machine's clock");
    }
    goOnline();
    // Its services, for the one that takes uploads.
    writeStanza(QuorXmppStanza::discoItemsQuery(owner_.domain_, kItemsId)->toXml());
  } else if (id == kItemsId && type == "result" && isFromServerOrSelf(iq)) {
    services_ = QuorXmppStanza::discoItems(iq, kServicesProbed);
    for (std::size_t i = 0; i < services_.size(); ++i) {
      writeStanza(
          QuorXmppStanza::discoInfoQuery(services_[i], kServiceInfoPrefix + std::to_string(i))
              ->toXml());
    }
  } else if (id.rfind(kServiceInfoPrefix, 0) == 0 && type == "result" &&
             std::find(services_.begin(), services_.end(), iq.attribute("from")) !=
                 services_.end() &&
             QuorXmppStanza::hasFeature(iq, QuorXmppStanza::kUploadNamespace)) {
    UploadService found;
    found.jid = QuorXmppStanza::bareJid(iq.attribute("from"));
    const std::string limit =
        QuorXmppStanza::formValue(iq, QuorXmppStanza::kUploadNamespace, "max-file-size");
    found.maxBytes = std::strtoull(limit.c_str(), nullptr, 10);
    std::lock_guard<std::mutex> lock(owner_.mutex_);
    owner_.upload_ = std::move(found);
  }
}

bool QuorXmppConnection::Network::isFromServerOrSelf(const QuorXmlElement& stanza) const {
  const std::string& from = stanza.attribute("from");
  return from.empty() || from == owner_.bareJid_ || from == owner_.domain_;
}

bool QuorXmppConnection::Network::readForwarded(const QuorXmlElement& inner,
                                                QuorXmppPayload* payload) const {
  // What others sent to the account, and what it sent itself (from another device, or before
  // the app was installed again), named by its recipient.
  if (inner.attribute("type") == "error" || !QuorXmppStanza::readPayload(inner, payload)) {
    return false;
  }
  if (payload->peer != owner_.bareJid_) return true;
  payload->peer = QuorXmppStanza::bareJid(inner.attribute("to"));
  payload->outgoing = true;
  return !payload->peer.empty() && payload->peer != owner_.bareJid_;
}

void QuorXmppConnection::Network::signalFrom(const QuorXmlElement& message) {
  const std::string peer = QuorXmppStanza::bareJid(message.attribute("from"));
  if (peer.empty() || peer == owner_.bareJid_ || peer == owner_.domain_) return;
  const std::string read = QuorXmppStanza::displayedId(message);
  if (!read.empty()) owner_.events_.onDisplayed(peer, read);
  if (const auto typing = QuorXmppStanza::readChatState(message))
    owner_.events_.onChatState(peer, *typing);
}

void QuorXmppConnection::Network::onMessage(const QuorXmlElement& message) {
  const std::string& type = message.attribute("type");
  const std::string& id = message.attribute("id");
  const std::string& from = message.attribute("from");
  if (type == "error") {
    // Only the server or the address the message went to may fail it: an error from anyone
    // else is ignored, whatever id it names.
    const auto it = waiting_.find(id);
    if (it != waiting_.end() && (from.empty() || from == owner_.domain_ ||
                                 QuorXmppStanza::bareJid(from) == it->second.peer)) {
      finish(id, QuorXmppStanza::errorCodeOf(message), 0);
    }
    return;
  }
  // Only the server itself confirms: a confirmation from any other sender is ignored.
  if (from.empty() || from == owner_.domain_) {
    std::string confirmedId;
    int64_t stamp = 0;
    if (QuorXmppStanza::readConfirmation(message, &confirmedId, &stamp)) {
      finish(confirmedId, 0, stamp);
      return;
    }
  }
  QuorXmppPayload payload;
  std::string archiveId;
  int64_t archiveStamp = 0;
  const QuorXmlElement* archived =
      isFromServerOrSelf(message)
          ? QuorXmppStanza::archivedMessage(message, kArchiveQueryPrefix, &archiveId, &archiveStamp)
          : nullptr;
  const QuorXmlElement* copied =
      !archived && from == owner_.bareJid_ ? QuorXmppStanza::carbonCopy(message) : nullptr;
  if (copied) {
    // Another device of the account sent or received it (XEP-0280): a line, or its read marker.
    if (QuorXmppStanza::isDisplayedMarker(*copied)) {
      if (QuorXmppStanza::bareJid(copied->attribute("from")) == owner_.bareJid_) {
        owner_.events_.onConversationRead(QuorXmppStanza::bareJid(copied->attribute("to")));
      }
      return;
    }
    if (!readForwarded(*copied, &payload)) return;
    payload.archiveId = QuorXmppStanza::archiveIdOf(*copied, owner_.bareJid_);
  } else if (archived) {
    if (!readForwarded(*archived, &payload)) return;
    payload.archiveId = archiveId;
    payload.archived = true;
    payload.offline = true;
    if (payload.stamp == 0) payload.stamp = archiveStamp;
  } else {
    if (!QuorXmppStanza::readPayload(message, &payload)) {
      signalFrom(message);
      return;
    }
    payload.archiveId = QuorXmppStanza::archiveIdOf(message, owner_.bareJid_);
  }
  if (!barrierId_.empty()) {
    heldPayloads_.push_back(std::move(payload));
    return;
  }
  owner_.events_.onPayload(std::move(payload));
}

}  // namespace quor
