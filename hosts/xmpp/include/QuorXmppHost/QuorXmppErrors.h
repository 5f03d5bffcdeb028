// The error codes a QuorXmppHost hands to a send's error closure (and so to the library's
// callbacks, unchanged).
#pragma once

#include <cstdint>

namespace quor {

// No link came within the outbox timeout of the send, so it was never written (at once with no
// outbox, or when the host is not started).
constexpr int64_t QuorXmppErrorNotOnline = 31001;
// The message was written, the link dropped before the server confirmed it, and no later link
// confirmed it within the outbox timeout (also what waits when another login took the resource).
constexpr int64_t QuorXmppErrorConnectionLost = 31002;
// Written on a live link, the message was not confirmed within the send timeout.
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
// The message is larger than the server takes (QuorXmppOptions::maxSendStanzaBytes, or the
// server's announced limit): it was never written, since a server ends the stream on it. Also
// a message the server ended the stream on twice: it is not written a third time.
constexpr int64_t QuorXmppErrorTooLarge = 31008;
// A file was not sent: the server has no upload service or refused a slot for it, or the
// upload failed (the log says why). Nothing was written to the link.
constexpr int64_t QuorXmppErrorUploadFailed = 31009;
// The app cancelled the file's transfer (or the host stopped during it); nothing was sent.
constexpr int64_t QuorXmppErrorCancelled = 31010;
// A received file could not be fetched (no file cache, the server's error, more bytes than
// the message named, a full disk); nothing is left in the cache.
constexpr int64_t QuorXmppErrorDownloadFailed = 31011;

}  // namespace quor
