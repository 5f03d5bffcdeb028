#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace quor {

// Where the app stands in its platform's life cycle; the app tells the host when it changes.
enum class QuorAppState : int32_t {
  // On screen: the server sends everything at once.
  Foreground = 0,
  // Off screen but running: the server is told (XEP-0352) and holds back what can wait, the
  // keepalive slows down, and push notifications are enabled.
  Background = 1,
  // About to be frozen by the system: push is enabled, then the link is cut without ending the
  // stream, so that the server keeps the session (and pushes what arrives) until the app is back
  // in the foreground and resumes it. No reconnection while suspended.
  Suspended = 2,
};

// A device's push registration (XEP-0357): where the server sends a notification while the app
// sleeps. The app gets the node and token from its own server and the platform (the FCM or APNs
// token). A plain value; an empty `service` means no push.
struct QuorXmppPush {
  std::string service;  // the push service's JID, "push.example.com"
  std::string node;     // the device's node at that service; "" takes the connection's resource
  std::string token;    // the device's token, handed back in every notification
  std::string secret;   // a secret the push service checks, when it has one
  bool operator==(const QuorXmppPush& other) const {
    return service == other.service && node == other.node && token == other.token &&
           secret == other.secret;
  }
};

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
  // A send written on a live link that the server has not confirmed in this time fails with
  // QuorXmppErrorTimeout.
  std::chrono::milliseconds sendTimeout{10000};
  // How long a send may wait for a link: made while offline, or in flight when the link was
  // lost (it is written again, once, on the next link). Counted from the send; past it the send
  // fails with QuorXmppErrorNotOnline (never written) or QuorXmppErrorConnectionLost. 0: sends
  // fail at once while offline and when the link is lost.
  std::chrono::milliseconds outboxTimeout{60000};
  // XEP-0198 stream management when the server offers it: acknowledgements and resumption of
  // the session after a lost link. Off only for servers whose support is broken.
  bool streamManagement = true;
  // Keepalive: after this long without a byte from the server the connection asks it for an
  // answer (a stream-management request, else a ping); without one within keepaliveTimeout the
  // link is taken as dead and the connection reconnects. A dead link is noticed within their
  // sum (30 s by default); an idle connection wakes only for these.
  std::chrono::milliseconds keepaliveInterval{20000};
  std::chrono::milliseconds keepaliveTimeout{10000};
  // The keepalive interval in the background (the longer of the two is used): a phone's radio
  // wakes for every probe, and the server's own pings keep the link known to be alive.
  std::chrono::milliseconds backgroundKeepaliveInterval{180000};
  // A login (TCP, TLS, authentication, binding) that takes longer than this is given up and
  // tried again.
  std::chrono::milliseconds loginTimeout{15000};
  // The largest stanza the server may send, in bytes on the wire; a larger one (or one nested
  // deeper than 32 elements) ends the connection as the server's error.
  std::size_t maxStanzaBytes = 1024 * 1024;
  // The largest message this client writes, in bytes on the wire: a server ends the stream on
  // a stanza over its limit (256 KiB by default in Prosody and ejabberd), so a larger send
  // fails with QuorXmppErrorTooLarge without being written. A lower limit the server announces
  // (XEP-0478) takes its place.
  std::size_t maxSendStanzaBytes = 255 * 1024;
  // The resource of the connection: one per device, so that two devices of one account never
  // take turns. Empty: QuorXmppHost uses the one its store keeps for this device; a bare
  // QuorXmppConnection makes one for itself ("quor-cs-" and 12 random hex digits).
  std::string resource;
  // Push notifications while the app is in the background or suspended; the host can change it
  // later (the platform's token often comes after the start).
  QuorXmppPush push;
};

}  // namespace quor
