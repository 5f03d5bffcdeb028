#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quor {

// Who wrote a line of a service's conversation.
enum class KXCSMessageAuthor {
  Customer,  // sent by the app with KXCSService::sendText()
  Robot,     // a text of the desk while no agent serves (the robot's greeting among them)
  Agent,     // a text of the desk while a human agent serves (the agent's greeting among them)
  Notice,    // a notice shown to the customer: the desk's closing text, a refusal
  // The desk invites the customer to leave a message (KX:CsPLM; the text is its invitation):
  // show the leave-message form (KXCSService::leaveMessage()).
  LeaveMessageInvitation,
};

// Where a line stands. The desk's lines are Received; the customer's are Sending until the
// host reports the send, then Sent (the server took it), Failed (it cannot have arrived), or
// Unconfirmed (it was written and may still arrive: the link went before the server confirmed
// it; it is sent once more under its id, and becomes Sent when that is confirmed). A Sent line
// becomes Read when the desk read it (from a host that carries read receipts).
enum class KXCSDelivery { Received, Sending, Sent, Failed, Unconfirmed, Read };

// The picture or other file of a line. A plain value.
struct KXCSFile {
  std::string name;      // as the sender gave it: show it, never use it as a path
  std::string mimeType;  // as the sender gave it; a downloaded file's type is checked
  uint64_t size = 0;     // in bytes
  uint32_t width = 0;    // pixels, for a picture whose size is known; else 0
  uint32_t height = 0;
  std::string url;  // where it is fetched from; empty while the customer's file uploads
  // The customer's file that was sent, or where downloadFile() saved a received one; else "".
  std::string localPath;
};

// One line of the conversation, as the observer gets it. A plain value.
struct KXCSConversationMessage {
  // The service's own number for the line: 1, 2, 3 ... in the order the lines were reported,
  // over all starts of the service. A delivery update carries the number of its line.
  uint64_t sequence = 0;
  KXCSMessageAuthor author = KXCSMessageAuthor::Robot;
  KXCSDelivery delivery = KXCSDelivery::Received;
  std::string text;
  // The sender's display name when the desk gave one (the robot's name), else empty.
  std::string senderName;
  // The host's message id: for a received line the id its store keeps it under (the
  // repository's hosts store a message before the library sees it; 0 from a host that gives
  // none), for a sent line the id that comes with its outcome. Its sent time (received lines),
  // and the host's error code (Failed, Unconfirmed).
  int64_t messageId = 0;
  int64_t sentTime = 0;
  int64_t errorCode = 0;
  // A line that is a picture or file (its text is then empty).
  std::optional<KXCSFile> file;
};

}  // namespace quor
