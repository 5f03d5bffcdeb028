// TLS for an XMPP stream after STARTTLS (OpenSSL on memory buffers): the connection moves the
// encrypted bytes between this layer and its socket itself, so every socket call stays in one
// place (non-blocking, without SIGPIPE) and no descriptor ever reaches OpenSSL.
#pragma once

#include <string>

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

namespace quor {

class QuorTlsLayer {
 public:
  // A client session for `domain`; the certificate must verify for it unless `trustAnyCertificate`.
  QuorTlsLayer(const std::string& domain, bool trustAnyCertificate);
  ~QuorTlsLayer();
  QuorTlsLayer(const QuorTlsLayer&) = delete;
  QuorTlsLayer& operator=(const QuorTlsLayer&) = delete;

  enum class State { Handshaking, Open, Failed };
  State state() const { return state_; }
  // Why the session failed.
  const std::string& error() const { return error_; }

  // Encrypted bytes from the socket; the plain text they carried is appended to `plain`.
  void receive(const char* data, std::size_t size, std::string& plain);
  // Plain text to send (once open).
  void send(const std::string& plain);
  // Encrypted bytes to write on the socket, appended to `out`.
  void takeOutgoing(std::string& out);
  // Starts the handshake (its first bytes are then in takeOutgoing()).
  void start();

 private:
  void advance(std::string* plain);
  void failWith(const std::string& what);

  SSL_CTX* context_ = nullptr;
  SSL* ssl_ = nullptr;
  State state_ = State::Handshaking;
  std::string error_;
};

}  // namespace quor
