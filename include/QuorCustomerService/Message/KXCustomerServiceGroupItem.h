#pragma once

#include <memory>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// One agent group offered by the desk in its handshake response. Filled by the decoder and
// then only read; records in the lists handed to the application are shared, treat them as
// read-only.
class QUOR_CS_EXPORT KXCustomerServiceGroupItem {
 public:
  const KXString& groupId() const { return groupId_; }
  void setGroupId(KXString groupId) { groupId_ = std::move(groupId); }
  const KXString& name() const { return name_; }
  void setName(KXString name) { name_ = std::move(name); }
  bool online() const { return online_; }
  void setOnline(bool online) { online_ = online; }

 private:
  KXString groupId_;
  KXString name_;
  bool online_ = false;
};

// A shared, read-only list of groups; a null pointer is an absent list.
using KXCustomerServiceGroupList =
    std::shared_ptr<const std::vector<std::shared_ptr<KXCustomerServiceGroupItem>>>;

}  // namespace quor
