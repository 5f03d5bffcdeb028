#pragma once

#include "QuorCustomerService/Host/KXTypes.h"

namespace quor {

// The three identifiers of a service as the desk gave them in its handshake response ("uid",
// "sid" as the cid, "pid"), read and written together: the session keeps them, and the
// requests that name the service (agent request, rating, suspend) carry them. A plain value.
struct KXCSServiceIdentifiers {
  KXString uid;
  KXString cid;
  KXString pid;
};

}  // namespace quor
