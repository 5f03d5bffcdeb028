#include "QuorPrivateServer/QuorTcpProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace quor {
namespace {

int loopbackSocket() { return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

sockaddr_in loopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

void sendAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
    if (sent <= 0) return;
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
}

void closeWithReset(int fd) {
  const linger reset{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  ::close(fd);
}

}  // namespace

class QuorTcpProxy::Loop {
 public:
  struct Link {
    int client;
    int server;
    std::string held;
  };

  int listener = -1;
  int wake = -1;
  int port = 0;
  int targetPort = 0;
  mutable std::mutex mutex;
  std::vector<Link> links;
  // Dropped links, closed with a reset by the loop (the only thread that closes) once due.
  std::vector<std::pair<Link, std::chrono::steady_clock::time_point>> dropping;
  bool blackHole = false;
  bool hold = false;
  bool stopping = false;
  std::string fromClients;
  std::size_t accepted = 0;
  std::thread thread;

  ~Loop() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      stopping = true;
    }
    poke();
    if (thread.joinable()) thread.join();
    for (auto& link : links) {
      ::close(link.client);
      ::close(link.server);
    }
    for (auto& entry : dropping) {
      ::close(entry.first.client);
      ::close(entry.first.server);
    }
    if (listener >= 0) ::close(listener);
    if (wake >= 0) ::close(wake);
  }

  void poke() const {
    const uint64_t one = 1;
    (void)!::write(wake, &one, sizeof one);
  }

  void run() {
    std::vector<char> buffer(64 * 1024);
    for (;;) {
      std::vector<pollfd> fds = {{listener, POLLIN, 0}, {wake, POLLIN, 0}};
      int timeout = -1;
      {
        std::lock_guard<std::mutex> lock(mutex);
        if (stopping) return;
        closeDueDrops();
        for (const auto& link : links) {
          fds.push_back({link.client, POLLIN, 0});
          fds.push_back({link.server, POLLIN, 0});
        }
        if (!dropping.empty()) timeout = 5;
      }
      if (::poll(fds.data(), fds.size(), timeout) < 0) continue;
      if (fds[1].revents & POLLIN) {
        uint64_t drained;
        (void)!::read(wake, &drained, sizeof drained);
      }
      if (fds[0].revents & POLLIN) acceptOne();
      std::lock_guard<std::mutex> lock(mutex);
      for (std::size_t i = 2; i < fds.size(); ++i) {
        // A link dropped meanwhile is no longer read.
        if (!fds[i].revents || !isLinked(fds[i].fd)) continue;
        const ssize_t got = ::recv(fds[i].fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
          closeLinkOf(fds[i].fd);
          continue;
        }
        if (got < 0) continue;
        forward(fds[i].fd, buffer.data(), static_cast<std::size_t>(got));
      }
    }
  }

  void acceptOne() {
    const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    const int server = loopbackSocket();
    const sockaddr_in target = loopbackAddress(targetPort);
    if (server < 0 ||
        ::connect(server, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
      ::close(client);
      if (server >= 0) ::close(server);
      return;
    }
    std::lock_guard<std::mutex> lock(mutex);
    links.push_back({client, server, {}});
    ++accepted;
  }

  // Under the lock.
  void forward(int from, const char* data, std::size_t size) {
    if (blackHole) return;
    for (auto& link : links) {
      if (from == link.client) {
        fromClients.append(data, size);
        sendAll(link.server, data, size);
      } else if (from == link.server) {
        if (hold) {
          link.held.append(data, size);
        } else {
          sendAll(link.client, data, size);
        }
      }
    }
  }

  // Under the lock.
  bool isLinked(int fd) const {
    for (const auto& link : links) {
      if (link.client == fd || link.server == fd) return true;
    }
    return false;
  }

  // Under the lock.
  void closeDueDrops() {
    const auto now = std::chrono::steady_clock::now();
    for (auto it = dropping.begin(); it != dropping.end();) {
      if (it->second > now) {
        ++it;
        continue;
      }
      closeWithReset(it->first.client);
      closeWithReset(it->first.server);
      it = dropping.erase(it);
    }
  }

  // Under the lock.
  void closeLinkOf(int fd) {
    for (auto it = links.begin(); it != links.end(); ++it) {
      if (it->client == fd || it->server == fd) {
        ::close(it->client);
        ::close(it->server);
        links.erase(it);
        return;
      }
    }
  }
};

std::unique_ptr<QuorTcpProxy> QuorTcpProxy::start(int targetPort) {
  auto loop = std::make_unique<Loop>();
  loop->targetPort = targetPort;
  loop->wake = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  loop->listener = loopbackSocket();
  sockaddr_in address = loopbackAddress(0);
  socklen_t length = sizeof address;
  if (loop->wake < 0 || loop->listener < 0 ||
      ::bind(loop->listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(loop->listener, 16) != 0 ||
      ::getsockname(loop->listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return nullptr;
  }
  loop->port = ntohs(address.sin_port);
  Loop* running = loop.get();
  loop->thread = std::thread([running] { running->run(); });
  return std::unique_ptr<QuorTcpProxy>(new QuorTcpProxy(std::move(loop)));
}

QuorTcpProxy::QuorTcpProxy(std::unique_ptr<Loop> loop) : loop_(std::move(loop)) {}
QuorTcpProxy::~QuorTcpProxy() = default;

int QuorTcpProxy::port() const { return loop_->port; }

void QuorTcpProxy::setBlackHole(bool on) {
  std::lock_guard<std::mutex> lock(loop_->mutex);
  loop_->blackHole = on;
}

void QuorTcpProxy::holdToClient(bool on) {
  std::lock_guard<std::mutex> lock(loop_->mutex);
  loop_->hold = on;
  if (on) return;
  for (auto& link : loop_->links) {
    sendAll(link.client, link.held.data(), link.held.size());
    link.held.clear();
  }
}

void QuorTcpProxy::injectToClient(const std::string& bytes) {
  std::lock_guard<std::mutex> lock(loop_->mutex);
  if (!loop_->links.empty()) sendAll(loop_->links.back().client, bytes.data(), bytes.size());
}

std::string QuorTcpProxy::fromClients() const {
  std::lock_guard<std::mutex> lock(loop_->mutex);
  return loop_->fromClients;
}

void QuorTcpProxy::dropAll() {
  std::lock_guard<std::mutex> lock(loop_->mutex);
  // The clients read the end of the stream and write on; what they write then is refused.
  const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
  for (auto& link : loop_->links) {
    ::shutdown(link.client, SHUT_WR);
    loop_->dropping.emplace_back(std::move(link), due);
  }
  loop_->links.clear();
  loop_->poke();
}

std::size_t QuorTcpProxy::accepted() const {
  std::lock_guard<std::mutex> lock(loop_->mutex);
  return loop_->accepted;
}

}  // namespace quor
