// The error codes a QuorXmppHost hands to a send's error closure (and so to the library's
// callbacks, unchanged).
#pragma once

#include <cstdint>

namespace quor {

// The host was not online when the send was made (connecting, reconnecting or stopped).
constexpr int64_t QuorXmppErrorNotOnline = 31001;
// The connection dropped after the message was written and before the server confirmed it.
constexpr int64_t QuorXmppErrorConnectionLost = 31002;
// The server did not confirm the message within the send timeout.
constexpr int64_t QuorXmppErrorTimeout = 31003;
// The server returned an error stanza for the message.
constexpr int64_t QuorXmppErrorRejected = 31004;
// The server returned an error stanza saying the recipient does not exist or cannot take it
// (item-not-found, service-unavailable, recipient-unavailable, remote-server-not-found).
constexpr int64_t QuorXmppErrorNoSuchRecipient = 31005;
// The message could not be written: no content or body, a body that is not valid XML text, or
// a target id that maps to no JID.
constexpr int64_t QuorXmppErrorNotSendable = 31006;
// The host was destroyed or logged out while the send waited for its confirmation.
constexpr int64_t QuorXmppErrorStopped = 31007;

}  // namespace quor
