#pragma once

#include <cstdint>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

// The namespace of the customer-service payload element <cs xmlns='...' name='OBJECT NAME'>
// that carries one message content's body (its JSON text) in an XMPP <message>.
constexpr const char* QuorXmppPayloadNamespace = "urn:quor:customer-service:0";

// The <body> of every customer-service message, marked as a fallback (XEP-0428): what a client
// that knows only bodies shows, and what lets servers push, copy and summarise the message. The
// content itself travels only in the payload element.
constexpr const char* QuorXmppFallbackBody = "[customer service message]";

// One customer-service message as it crosses XMPP. A plain value.
struct QuorXmppPayload {
  std::string peer;  // the other end's bare JID: the recipient of a send, the sender of a receipt
  std::string objectName;  // the content's object name
  KXData body;             // the content's bytes; absent travels as a payload without text
  std::string sender;      // the sending user's id inside the service (optional)
  std::string stanzaId;    // the stanza id; a send without one gets a fresh, random one
  int64_t stamp = 0;       // the server's time in ms (the stamping module), else the delay stamp
  bool offline = false;    // delivered from the server's offline store or its archive
  std::string archiveId;   // its id in the receiving account's archive (XEP-0359), when archived
  bool archived = false;   // read from that archive (QuorXmppConnection::queryArchive())
  // Sent by this account itself (another of its devices, or an earlier install of the app):
  // `peer` is then the recipient.
  bool outgoing = false;
};

// The connection state a QuorXmppConnection reports, and a QuorXmppHost passes to the loaded
// extension modules (notifyConnectionStatusChanged).
enum class QuorXmppConnectionStatus : int64_t {
  Connected = 0,
  Connecting = 1,
  Disconnected = 2,  // lost or failed; reconnecting with backoff
  SignedOut = 3,     // stopped by the application
  Replaced = 4,      // another login of the account took this resource; no reconnection
  Refused = 5,       // the server refused the login (a wrong password, no such account); no
                     // reconnection until the host connects again
};

}  // namespace quor
