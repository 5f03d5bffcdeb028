#include "QuorTlsLayer.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

namespace quor {

QuorTlsLayer::QuorTlsLayer(const std::string& domain, bool trustAnyCertificate) {
  context_ = SSL_CTX_new(TLS_client_method());
  if (!context_) {
    failWith("no TLS context");
    return;
  }
  SSL_CTX_set_min_proto_version(context_, TLS1_2_VERSION);
  if (!trustAnyCertificate) {
    SSL_CTX_set_default_verify_paths(context_);
    SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, nullptr);
  }
  ssl_ = SSL_new(context_);
  if (!ssl_) {
    failWith("no TLS session");
    return;
  }
  SSL_set_tlsext_host_name(ssl_, domain.c_str());
  if (!trustAnyCertificate) SSL_set1_host(ssl_, domain.c_str());
  SSL_set_bio(ssl_, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
  SSL_set_connect_state(ssl_);
}

QuorTlsLayer::~QuorTlsLayer() {
  if (ssl_) SSL_free(ssl_);
  if (context_) SSL_CTX_free(context_);
}

void QuorTlsLayer::start() { advance(nullptr); }

void QuorTlsLayer::receive(const char* data, std::size_t size, std::string& plain) {
  if (state_ == State::Failed) return;
  BIO_write(SSL_get_rbio(ssl_), data, static_cast<int>(size));
  advance(&plain);
}

void QuorTlsLayer::send(const std::string& plain) {
  if (state_ != State::Open || plain.empty()) return;
  if (SSL_write(ssl_, plain.data(), static_cast<int>(plain.size())) <= 0) failWith("TLS write");
}

void QuorTlsLayer::takeOutgoing(std::string& out) {
  if (!ssl_) return;
  BIO* outgoing = SSL_get_wbio(ssl_);
  char buffer[16384];
  int got;
  while ((got = BIO_read(outgoing, buffer, sizeof buffer)) > 0) {
    out.append(buffer, static_cast<std::size_t>(got));
  }
}

void QuorTlsLayer::advance(std::string* plain) {
  if (state_ == State::Handshaking) {
    const int done = SSL_do_handshake(ssl_);
    if (done != 1) {
      const int why = SSL_get_error(ssl_, done);
      if (why != SSL_ERROR_WANT_READ && why != SSL_ERROR_WANT_WRITE) failWith("TLS handshake");
      return;
    }
    state_ = State::Open;
  }
  if (!plain) return;
  char buffer[16384];
  for (;;) {
    const int got = SSL_read(ssl_, buffer, sizeof buffer);
    if (got > 0) {
      plain->append(buffer, static_cast<std::size_t>(got));
      continue;
    }
    const int why = SSL_get_error(ssl_, got);
    if (why != SSL_ERROR_WANT_READ && why != SSL_ERROR_WANT_WRITE) failWith("TLS read");
    return;
  }
}

void QuorTlsLayer::failWith(const std::string& what) {
  state_ = State::Failed;
  const unsigned long code = ERR_get_error();
  char text[256] = "";
  if (code) ERR_error_string_n(code, text, sizeof text);
  error_ = what + (code ? std::string(": ") + text : "");
  ERR_clear_error();
  if (ssl_) {
    const long verify = SSL_get_verify_result(ssl_);
    if (verify != X509_V_OK)
      error_ += std::string(" (") + X509_verify_cert_error_string(verify) + ")";
  }
}

}  // namespace quor
