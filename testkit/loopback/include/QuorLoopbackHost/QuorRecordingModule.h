#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"

namespace quor {

// An extension module for tests, loaded beside the library's: it holds nothing and records what
// its host tells it, each as a line: messages offered ("KX:TxtMsg live", "KX:TxtMsg offline"),
// conversations read elsewhere ("5 quor-shop"), and the other side's signals ("quor-shop typing",
// "quor-shop stopped", "quor-shop read 12").
// The host calls it on its own threads; the records are guarded, so a test reads them from any
// thread.
class QuorRecordingModule : public QuorIMLibExtensionModule {
 public:
  void destroyModule() override {}
  std::vector<KXMessageContentType> getSignalMessageClassList() override { return {}; }
  bool didHoldReceivedMessage(const std::shared_ptr<KXMessage>& message, bool offline) override;
  void setAppKey(const KXString&) override {}
  void setConfiguration(const std::shared_ptr<KXNaviDataInfo>&) override {}
  void setUserId(const KXString&) override {}
  void setCurrentToken(const KXString&) override {}
  void notifyConnectionStatusChanged(int64_t) override {}
  void notifyLogoutEvent() override {}
  void notifyConversationRead(int32_t conversationType, const KXString& targetId) override;
  void notifyTypingStatus(int32_t conversationType, const KXString& targetId, bool typing) override;
  void notifyReadReceipt(int32_t conversationType, const KXString& targetId,
                         int64_t messageId) override;

  // The messages offered, in order.
  std::vector<std::string> offered();
  // The conversations another device read, in order.
  std::vector<std::string> read();
  // The other side's typing and read receipts, in order.
  std::vector<std::string> signals();

 private:
  std::mutex mutex_;
  std::vector<std::string> offered_;
  std::vector<std::string> read_;
  std::vector<std::string> signals_;
};

}  // namespace quor
