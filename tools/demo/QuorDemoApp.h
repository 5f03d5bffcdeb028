#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QuorCustomerService/QuorCustomerService.h"

namespace quor {

// The demo's application: a support screen on the session API (KXCSService). It prints what
// the service reports (states, the conversation's lines, rating requests), acts for the
// customer, and plays the scripted journey or a terminal chat. It works on any installed host;
// `settle` waits until the host and the desk have nothing more to say.
//
// Threads: everything runs on the main thread, which settle() drains.
class QuorDemoApp {
 public:
  // `profile` is the desk's profile when the user chose one: the journey is then made from it
  // (its robot's keywords, its groups, its evaluation options); null plays the shop's script.
  QuorDemoApp(std::string deskId, std::function<void()> settle,
              const KXDictionary* profile = nullptr);
  ~QuorDemoApp();

  // The scripted journey; 0 when it went through, 1 when the service could not start.
  int runJourney();
  // A terminal chat with the desk until /quit, the end of input or the end of the service.
  int runInteractive();

 private:
  class Screen;

  bool start();
  void say(const std::string& text);
  void askForAgent();
  void chooseGroup(const std::string& groupId);
  void rate(int stars, const std::string& suggestion);
  // One line of the terminal chat: a command or a text; false when the chat ends.
  bool handle(const std::string& line);
  // The stars typed after /rate: the service checks them against the desk's options.
  void rateFromInput(const std::string& input);
  // The customer's questions: the shop's, or one per robot answer of the chosen profile.
  std::vector<std::string> robotQuestions() const;
  int bestStars() const;
  void leaveMessage(const KXDictionary& form);
  // /file PATH and /download N of the terminal chat.
  void sendFile(const std::string& path);
  void download(const std::string& sequence);
  void stop();
  // Prints a refusal of the service ("not now: AlreadyWithAgent").
  static void refused(KXCSServiceResult result);

  const std::string deskId_;
  const std::function<void()> settle_;
  const KXDictionary profile_;
  std::shared_ptr<Screen> screen_;
  std::shared_ptr<KXCSService> service_;
};

}  // namespace quor
