#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace quor {

// How a QuorXmppConnection (and so a QuorXmppHost) reaches its server. A plain value.
struct QuorXmppOptions {
  // The account, "user@domain", and its password.
  std::string jid;
  std::string password;
  // Where to connect; empty takes the JID's domain (DNS SRV, then the domain itself).
  std::string server;
  uint16_t port = 0;  // 0: the default, 5222
  // TLS: used when the server offers it (the default), required, or never used.
  enum class Tls { WhenOffered, Required, Disabled };
  Tls tls = Tls::WhenOffered;
  // Accept a certificate that does not verify (a self-signed certificate of a local server).
  bool trustSelfSignedCertificate = false;
  // Reconnection after a lost or failed connection: the first wait, doubled up to the longest.
  std::chrono::milliseconds reconnectFirst{200};
  std::chrono::milliseconds reconnectLongest{10000};
  // A send that the server has not confirmed in this time fails with QuorXmppErrorTimeout.
  std::chrono::milliseconds sendTimeout{10000};
  // The resource of the connection: one per device, so that two devices of one account never
  // take turns. Empty: QuorXmppHost uses the one its store keeps for this device; a bare
  // QuorXmppConnection makes one for itself ("quor-cs-" and 12 random hex digits).
  std::string resource;
};

}  // namespace quor
