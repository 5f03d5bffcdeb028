#pragma once

#include <utility>

#include "QuorCustomerService/Message/KXCSServiceIdentifiers.h"

namespace quor {

// The identifiers a message carries (uid, cid, pid) with the accessors every such message
// has, written once for all of them. Not thread-safe: like the messages it is part of.
class KXCSServiceIdentified {
 public:
  const KXString& uid() const { return ids_.uid; }
  void setUid(KXString uid) { ids_.uid = std::move(uid); }
  // The desk's "sid".
  const KXString& cid() const { return ids_.cid; }
  void setCid(KXString cid) { ids_.cid = std::move(cid); }
  const KXString& pid() const { return ids_.pid; }
  void setPid(KXString pid) { ids_.pid = std::move(pid); }
  const KXCSServiceIdentifiers& identifiers() const { return ids_; }
  void setIdentifiers(KXCSServiceIdentifiers ids) { ids_ = std::move(ids); }

 protected:
  KXCSServiceIdentifiers ids_;
};

}  // namespace quor
