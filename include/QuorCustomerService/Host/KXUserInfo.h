#pragma once

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's user record: user id, display name and portrait URL.
// A plain record: build it on any thread; do not share a record that is still being changed.
class QUOR_CS_EXPORT KXUserInfo {
 public:
  KXUserInfo() = default;
  // initWithUserId:name:portrait:
  KXUserInfo(KXString userId, KXString name, KXString portrait);

  const KXString& userId() const { return userId_; }
  void setUserId(KXString userId) { userId_ = std::move(userId); }
  const KXString& name() const { return name_; }
  void setName(KXString name) { name_ = std::move(name); }
  const KXString& portraitUri() const { return portraitUri_; }
  void setPortraitUri(KXString portraitUri) { portraitUri_ = std::move(portraitUri); }

 private:
  KXString userId_;
  KXString name_;
  KXString portraitUri_;
};

}  // namespace quor
