#pragma once

#include <functional>
#include <memory>
#include <string>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorHostBase/QuorHostBase.h"

namespace quor {

// The demo's application: it shows what the library and the host hand it, acts for the
// customer, and plays the scripted journey or a terminal chat. It works on any host of this
// repository; `settle` waits until the host and the desk have nothing more to say.
//
// Threads: everything runs on the main thread, which settle() drains.
class QuorDemoApp {
 public:
  QuorDemoApp(QuorHostBase& host, std::string deskId, std::function<void()> settle);

  // The scripted journey; 0 when it went through, 1 when the service could not start.
  int runJourney();
  // A terminal chat with the desk until /quit, the end of input or the end of the service.
  int runInteractive();

 private:
  bool start();
  void say(const std::string& text);
  void askForAgent();
  void chooseGroup(const std::string& groupId);
  void rate(int stars, const std::string& suggestion);
  void leaveMessage(const KXDictionary& form);
  void stop();
  static void show(const KXMessage& message);

  QuorHostBase& host_;
  const std::string deskId_;
  const std::function<void()> settle_;
  KXCustomerServiceClient& client_;
  std::shared_ptr<KXCustomerServiceConfig> config_;
  KXCustomerServiceGroupList groups_;
  KXString pendingDialog_;
  bool ended_ = false;
  bool failed_ = false;
};

}  // namespace quor
