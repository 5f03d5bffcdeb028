#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

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
  // `profile` is the desk's profile when the user chose one: the journey is then made from it
  // (its robot's keywords, its groups, its evaluation options); null plays the shop's script.
  QuorDemoApp(QuorHostBase& host, std::string deskId, std::function<void()> settle,
              const KXDictionary* profile = nullptr);

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
  // The stars typed after /rate, checked: a whole number among the desk's options.
  void rateFromInput(const std::string& input);
  // The customer's questions: the shop's, or one per robot answer of the chosen profile.
  std::vector<std::string> robotQuestions() const;
  int bestStars() const;
  void leaveMessage(const KXDictionary& form);
  void stop();
  static void show(const KXMessage& message);

  QuorHostBase& host_;
  const std::string deskId_;
  const std::function<void()> settle_;
  const KXDictionary profile_;
  KXCustomerServiceClient& client_;
  std::shared_ptr<KXCustomerServiceConfig> config_;
  KXCustomerServiceGroupList groups_;
  KXString pendingDialog_;
  bool ended_ = false;
  bool failed_ = false;
};

}  // namespace quor
