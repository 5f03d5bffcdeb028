// The one table of the library's message types: for each type its descriptor, where it stands
// in the host registration and in the signal list, and how the client's dispatch handles it.
// The module's lists and the client's dispatch order and result all read from it.
#pragma once

#include <vector>

#include "QuorCustomerService/Host/KXMessageContentType.h"

namespace quor {

// How the client handles a received content (one handler per control type).
enum class KXControl {
  None,
  ChangeModeResponse,
  Terminate,
  HandShakeResponse,
  Update,
  PullEvaluate
};

class KXMessageTypeTable {
 public:
  struct Entry {
    KXMessageContentType type;
    int registrationRank;  // position in the host registration, from 1; 0: not registered
    int signalRank;        // position in the signal list, from 1; 0: not a signal
    int dispatchRank;      // position in the dispatch's type tests, from 1; 0: not tested
    KXControl control;     // the handler of a control type
    bool consumed;         // the dispatch's answer for a current message of this type
    bool (*isInstance)(const KXMessageContent* content);  // this type or a subclass
  };

  static const std::vector<Entry>& entries();

  // The registered types, in registration order.
  static std::vector<KXMessageContentType> registered();
  // The signal types, in signal-list order.
  static std::vector<KXMessageContentType> signals();
  // The control entry that a received content matches first in dispatch order; null for a
  // content that is no control message.
  static const Entry* controlOf(const KXMessageContent* content);
};

}  // namespace quor
