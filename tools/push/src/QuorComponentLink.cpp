#include "QuorComponentLink.h"

#include <netdb.h>
#include <netinet/in.h>
#include <openssl/sha.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "QuorXmlStream.h"

namespace quor {
namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kComponent = "jabber:component:accept";
constexpr const char* kStreams = "http://etherx.jabber.org/streams";
// A handshake that takes longer than this is given up and tried again.
constexpr std::chrono::seconds kHandshakeTimeout{10};

std::string sha1Hex(const std::string& text) {
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
  std::string hex;
  char part[3];
  for (const unsigned char byte : digest) {
    std::snprintf(part, sizeof part, "%02x", byte);
    hex += part;
  }
  return hex;
}

}  // namespace

// Everything the link's thread owns: the socket, the stream and the reconnection schedule.
class QuorComponentLink::Network : private QuorXmlStream::Handler {
 public:
  explicit Network(QuorComponentLink& owner)
      : owner_(owner), stream_(*this, {owner.options_.maxStanzaBytes, 32}) {}
  ~Network() override { close(); }

  void run() {
    backoff_ = owner_.options_.reconnectFirst;
    for (;;) {
      std::vector<std::string> outbox;
      {
        std::lock_guard<std::mutex> lock(owner_.mutex_);
        if (owner_.stopping_) break;
        outbox.swap(owner_.outbox_);
      }
      const auto now = Clock::now();
      if (socket_ < 0 && now >= nextAttempt_) connect();
      if (socket_ >= 0 && !owner_.online_ && now - attemptStart_ > kHandshakeTimeout) {
        lose("the handshake took too long");
      }
      if (owner_.online_) {
        for (auto& xml : outbox) out_ += xml;
      }
      flush();
      pollfd fds[2] = {{owner_.wakeFd_, POLLIN, 0}, {socket_, POLLIN, 0}};
      if (!out_.empty()) fds[1].events |= POLLOUT;
      const nfds_t count = socket_ >= 0 ? 2 : 1;
      // Online, the link waits for bytes or a send; else for the next attempt or the handshake.
      int timeout = -1;
      if (!owner_.online_) {
        const auto next = socket_ >= 0 ? attemptStart_ + kHandshakeTimeout : nextAttempt_;
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - now);
        timeout = static_cast<int>(std::clamp<long long>(wait.count() + 1, 1, 10000));
      }
      ::poll(fds, count, timeout);
      if (fds[0].revents & POLLIN) {
        uint64_t drained;
        (void)!::read(owner_.wakeFd_, &drained, sizeof drained);
      }
      if (count == 2 && (fds[1].revents & (POLLIN | POLLHUP | POLLERR))) read();
    }
    if (socket_ >= 0) {
      out_ += "</stream:stream>";
      flush();
    }
    close();
  }

 private:
  void connect() {
    attemptStart_ = Clock::now();
    const auto& options = owner_.options_;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(options.server.c_str(), std::to_string(options.port).c_str(), &hints,
                      &found) == 0) {
      for (addrinfo* address = found; address && socket_ < 0; address = address->ai_next) {
        const int fd = ::socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC, 0);
        if (fd < 0) continue;
        if (::connect(fd, address->ai_addr, address->ai_addrlen) == 0) {
          socket_ = fd;
        } else {
          ::close(fd);
        }
      }
      ::freeaddrinfo(found);
    }
    if (socket_ < 0) {
      lose("cannot connect to " + options.server + ":" + std::to_string(options.port));
      return;
    }
    stream_.reset();
    out_ = std::string("<?xml version='1.0'?><stream:stream xmlns='") + kComponent +
           "' xmlns:stream='" + kStreams + "' to='" + options.domain + "'>";
  }

  void read() {
    char buffer[65536];
    for (;;) {
      const ssize_t got = ::recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
      if (got == 0) {
        lose("the server closed the connection");
        return;
      }
      if (got < 0) {
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
          lose(std::string("reading failed: ") + std::strerror(errno));
        }
        return;
      }
      if (!stream_.feed(buffer, static_cast<std::size_t>(got))) {
        if (socket_ >= 0) lose("the server sent " + stream_.error());
        return;
      }
      if (socket_ < 0) return;
    }
  }

  void flush() {
    while (socket_ >= 0 && !out_.empty()) {
      const ssize_t sent = ::send(socket_, out_.data(), out_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return;
        lose(std::string("writing failed: ") + std::strerror(errno));
        return;
      }
      out_.erase(0, static_cast<std::size_t>(sent));
    }
  }

  void lose(const std::string& why) {
    const bool wasOnline = owner_.online_;
    close();
    nextAttempt_ = Clock::now() + backoff_;
    backoff_ = std::min(backoff_ * 2, owner_.options_.reconnectLongest);
    if (owner_.onLog_) owner_.onLog_((wasOnline ? "link lost: " : "no link: ") + why);
  }

  void close() {
    if (socket_ >= 0) ::close(socket_);
    socket_ = -1;
    out_.clear();
    setOnline(false);
  }

  void setOnline(bool online) {
    {
      std::lock_guard<std::mutex> lock(owner_.mutex_);
      if (owner_.online_ == online) return;
      owner_.online_ = online;
    }
    owner_.onlineChanged_.notify_all();
  }

  void onStreamStart(const QuorXmlElement& header) override {
    out_ +=
        "<handshake>" + sha1Hex(header.attribute("id") + owner_.options_.secret) + "</handshake>";
  }

  void onStanza(std::unique_ptr<QuorXmlElement> stanza) override {
    const std::string name = stanza->localName();
    if (name == "handshake") {
      backoff_ = owner_.options_.reconnectFirst;
      setOnline(true);
      if (owner_.onLog_) owner_.onLog_("serving as " + owner_.options_.domain);
    } else if (name == "error") {
      const std::string condition =
          stanza->children().empty() ? "no reason" : stanza->children().front()->localName();
      lose("the server ended the stream (" + condition + ")");
    } else if (owner_.online_ && owner_.onStanza_) {
      owner_.onStanza_(*stanza);
    }
  }

  void onStreamEnd() override {
    if (socket_ >= 0) lose("the server ended the stream");
  }

  QuorComponentLink& owner_;
  QuorXmlStream stream_;
  int socket_ = -1;
  std::string out_;
  Clock::time_point attemptStart_;
  Clock::time_point nextAttempt_ = Clock::now();
  std::chrono::milliseconds backoff_{0};
};

QuorComponentLink::QuorComponentLink(Options options, StanzaHandler onStanza, LogHandler onLog)
    : options_(std::move(options)), onStanza_(std::move(onStanza)), onLog_(std::move(onLog)) {
  wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

QuorComponentLink::~QuorComponentLink() {
  stop();
  if (wakeFd_ >= 0) ::close(wakeFd_);
}

void QuorComponentLink::start() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (thread_.joinable()) return;
  stopping_ = false;
  thread_ = std::thread([this] {
    Network network(*this);
    network.run();
  });
}

void QuorComponentLink::stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!thread_.joinable()) return;
    stopping_ = true;
  }
  wake();
  thread_.join();
  std::lock_guard<std::mutex> lock(mutex_);
  thread_ = std::thread();
  outbox_.clear();
}

void QuorComponentLink::send(std::string xml) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_ || !online_) return;
    outbox_.push_back(std::move(xml));
  }
  wake();
}

bool QuorComponentLink::waitUntilOnline(std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return onlineChanged_.wait_for(lock, timeout, [this] { return online_.load(); });
}

void QuorComponentLink::wake() {
  const uint64_t one = 1;
  if (wakeFd_ >= 0) (void)!::write(wakeFd_, &one, sizeof one);
}

}  // namespace quor
