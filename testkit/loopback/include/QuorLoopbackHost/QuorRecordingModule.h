#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"

namespace quor {

// An extension module for tests, loaded beside the library's: it holds nothing and records what
// its host tells it, each as a line ("KX:TxtMsg live", "KX:TxtMsg offline"; "5 quor-shop" read).
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

  // The messages offered, in order.
  std::vector<std::string> offered();
  // The conversations another device read, in order.
  std::vector<std::string> read();

 private:
  std::mutex mutex_;
  std::vector<std::string> offered_;
  std::vector<std::string> read_;
};

}  // namespace quor
