#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

// What an operation of KXCSService did. Anything but Done means nothing was sent.
enum class KXCSServiceResult {
  Done,
  AlreadyStarted,    // start() while a service runs
  NotConnected,      // the desk has not answered the handshake (or the service is over)
  AgentNotOffered,   // askForAgent() in a robot-only service, or while an agent serves
  AlreadyWithAgent,  // askForAgent() while an agent serves or one is awaited
  Blocked,           // the desk blocked the customer
  NotChoosingGroup,  // chooseGroup() when no groups were offered
  GroupNotOffered,   // chooseGroup() with an id that is not among the offered groups
  RatingNotOffered,  // the configuration turns rating off for this kind of service
  NoDialogToRate,    // rateAgent() without a dialog id, when the desk never asked for one
  StarsNotOffered,   // rateAgent() with stars that are not among the evaluation options
  InvalidForm,       // leaveMessage() with values that fail the form (see the field errors)
  EmptyText,         // sendText() with an empty text
  InvalidText,       // a text that is not valid UTF-8 (nothing could write it)
  TooLarge,          // sendText() with a text over maxTextBytes() once encoded
  NotRetryable,      // retry() of a line that is not Failed or Unconfirmed, or unknown
  FilesNotOffered,   // sendFile() through a host that carries no files (or not now)
  FileUnreadable,    // sendFile() of a path that is not a readable, non-empty file
  TypeNotAccepted,   // sendFile() of a type outside acceptedFileTypes()
  NoSuchFile,        // cancelFile() or downloadFile() of a line that has no such transfer
};

// A file the customer sends. A plain value.
struct KXCSFileToSend {
  std::string path;      // read from disk as it is sent
  std::string name;      // shown to the desk; empty: the path's last part
  std::string mimeType;  // empty: found from the file's first bytes
};

// The customer's answer about the robot. A plain value.
struct KXCSRobotRating {
  KXString knowledgeId;  // the robot answer rated; absent: the service's identifiers
  bool resolved = false;
  KXString suggestion;
};

// The customer's rating of the human agent. A plain value.
struct KXCSAgentRating {
  KXString dialogId;  // absent: the dialog of the desk's last rating request
  int32_t stars = 0;  // one of the configuration's evaluation values, when it offers any
  KXString suggestion;
  uint64_t resolved = 0;  // the resolve status, sent when the desk asks for it
  KXString tags;          // with tags or extra the tagged rating goes out
  std::shared_ptr<const KXDictionary> extra;
};

// What leaveMessage() found: Done, or InvalidForm with one error per field (field name ->
// "required", "too long" or the failed check's name), or Done with webFormUrl set when the desk
// takes messages on a web page instead (nothing sent: open the page).
struct KXCSLeaveMessageCheck {
  KXCSServiceResult result = KXCSServiceResult::Done;
  std::map<std::string, std::string> fieldErrors;
  KXString webFormUrl;
};

}  // namespace quor
