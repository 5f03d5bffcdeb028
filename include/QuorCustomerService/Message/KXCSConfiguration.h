#pragma once

#include <cstdint>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"
#include "QuorCustomerService/Message/KXEvaluateItem.h"

namespace quor {

// The desk's configuration of a service as its handshake response gives it: the one record that
// the response holds and that KXCustomerServiceConfig hands to the app. A plain value; item
// lists are shared.
struct KXCSConfiguration {
  KXString companyName;
  bool isBlack = false;
  bool robotSessionNoEva = false;
  bool humanSessionNoEva = false;
  KXEvaluateItemList humanEvaluateItems;
  int32_t adminTipTime = 0;
  KXString adminTipWord;
  int32_t userTipTime = 0;
  KXString userTipWord;
  uint64_t evaEntryPoint = 0;
  uint64_t evaType = 0;
  int32_t reportResolveStatus = 0;
  uint64_t leaveMessageType = 0;
  int32_t disableLocation = 0;
  KXString leaveMessageWebUrl;
  KXCSLeaveMessageItemList leaveMessageNativeInfo;
  KXString announceMsg;
  KXString announceClickUrl;
};

}  // namespace quor
