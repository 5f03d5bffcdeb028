#include "QuorDemoApp.h"

#include "QuorTerminalInput.h"

#include <unistd.h>
#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>
#include <unordered_set>

namespace quor {
namespace {

// How long the demo waits for the desk's answer to its handshake.
constexpr auto kStartTimeout = std::chrono::seconds(15);
// How often an idle terminal chat runs what the service reported.
constexpr auto kIdleTurn = std::chrono::milliseconds(50);

// Whether the terminal shows the prompt ("> ") with nothing printed after it: a line printed
// then takes the prompt's place, and the chat shows the prompt again (a terminal clears it, a
// pipe moves to a new line).
bool prompting = false;

void show(const std::string& line) {
  if (prompting) std::fputs(isatty(STDOUT_FILENO) ? "\r\x1b[K" : "\n", stdout);
  prompting = false;
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void status(const std::string& line) { show("  * " + line); }

}  // namespace

// What the customer sees: every report of the service, printed as it comes.
class QuorDemoApp::Screen : public KXCSServiceObserver {
 public:
  void onStateChanged(const KXCSServiceStatus& s) override {
    using State = KXCSServiceState;
    switch (s.state) {
      case State::Connected:
        config = s.config;
        status("connected to " +
               (config ? config->companyName().value_or("the desk") : "the desk"));
        if (config && config->announceMsg()) status("announcement: " + *config->announceMsg());
        if (s.reason == KXCSServiceReason::Blocked) status("the desk says: " + s.text);
        break;
      case State::Robot:
        status(
            std::string("mode: ") +
            (s.canAskForAgent ? "robot first, an agent can be asked for" : "robot only") +
            (s.reason == KXCSServiceReason::NoAgentAvailable ? " (no agent was available)" : ""));
        break;
      case State::ChoosingGroup: {
        std::string names;
        for (const auto& group : *s.groups) {
          names += (names.empty() ? "" : ", ") + group->name().value_or("?") + " [" +
                   group->groupId().value_or("") + "]" + (group->online() ? "" : " (offline)");
        }
        status("choose a group: " + names);
        groups = s.groups;
        break;
      }
      case State::WaitingForAgent:
        status("waiting for an agent");
        break;
      case State::Agent:
        status("mode: human agent");
        break;
      case State::Ended:
        status("service ended: " + (s.text.empty() ? toString(s.reason) : s.text));
        ended = true;
        break;
      case State::Failed:
        status("could not connect (" + std::to_string(s.code) + "): " + s.text);
        failed = true;
        break;
      case State::NotStarted:
      case State::Connecting:
        break;
    }
  }
  void onRatingRequested(const KXString& dialogId) override {
    status("the desk asks for a rating of " + dialogId.value_or("the dialog"));
  }
  void onMessageLeft(bool sent, int64_t value) override {
    status(sent ? "message left (id " + std::to_string(value) + ")"
                : "leaving the message failed: " + std::to_string(value));
  }
  void onMessage(const KXCSConversationMessage& line) override {
    // A file shows as its name, type and size; the desk's with the command that fetches it.
    const std::string said = !line.file
                                 ? line.text
                                 : "[file] " + line.file->name + " (" + line.file->mimeType + ", " +
                                       std::to_string(line.file->size) + " bytes)" +
                                       (line.author == KXCSMessageAuthor::Customer
                                            ? ""
                                            : ": /download " + std::to_string(line.sequence));
    switch (line.author) {
      case KXCSMessageAuthor::Customer:
        show("You: " + said);
        break;
      case KXCSMessageAuthor::Notice:
        show("  -- " + line.text + " --");
        break;
      case KXCSMessageAuthor::LeaveMessageInvitation:
        show("  -- " + line.text + " (the desk invites a message) --");
        break;
      case KXCSMessageAuthor::Robot:
      case KXCSMessageAuthor::Agent:
        show((line.senderName.empty() ? std::string("Desk") : line.senderName) + ": " + said);
        break;
    }
  }
  void onFileDownloaded(uint64_t, const KXCSFile& file, int64_t code) override {
    status(code == 0 ? "saved " + file.name + " (" + file.mimeType + ") to " + file.localPath
                     : "the file did not come (" + std::to_string(code) + ")");
  }
  void onMessageDelivery(const KXCSConversationMessage& line) override {
    if (line.delivery == KXCSDelivery::Failed)
      status("not sent (" + std::to_string(line.errorCode) + "): " + line.text);
    if (line.delivery == KXCSDelivery::Unconfirmed)
      status("not confirmed yet, sent again (" + std::to_string(line.errorCode) +
             "): " + line.text);
  }

  std::shared_ptr<KXCustomerServiceConfig> config;
  KXCustomerServiceGroupList groups;
  bool ended = false;
  bool failed = false;
};

QuorDemoApp::QuorDemoApp(std::string deskId, std::function<void()> settle,
                         const KXDictionary* profile)
    : deskId_(std::move(deskId)),
      settle_(std::move(settle)),
      profile_(profile ? *profile : KXDictionary()),
      screen_(std::make_shared<Screen>()),
      service_(KXCSService::make(deskId_, screen_)) {}

QuorDemoApp::~QuorDemoApp() {
  service_.reset();
  settle_();
}

void QuorDemoApp::refused(KXCSServiceResult result) {
  status(std::string("not now: ") + KXCSService::resultName(result));
}

bool QuorDemoApp::start() {
  auto info = std::make_shared<KXCustomerServiceInfo>();
  info->setUserId("customer-7");
  info->setName("Mei");
  info->setPage("orders");
  std::printf("Opening customer service with desk %s\n", deskId_.c_str());
  service_->start(info, kStartTimeout);
  // The start's own outcome, however long the desk takes within the timeout: its answer, a
  // failure or the timeout.
  settle_();
  while (service_->status().state == KXCSServiceState::Connecting) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    settle_();
  }
  const KXCSServiceStatus status = service_->status();
  if (status.state == KXCSServiceState::Failed) {
    std::printf("The service did not start: %s (%s, code %lld)\n", status.text.c_str(),
                KXCSService::reasonName(status.reason), static_cast<long long>(status.code));
  }
  return !screen_->failed && screen_->config;
}

void QuorDemoApp::say(const std::string& text) {
  const auto result = service_->sendText(text);
  if (result != KXCSServiceResult::Done) refused(result);
  settle_();
}

void QuorDemoApp::askForAgent() {
  std::printf("You: (asks for a human agent)\n");
  const auto result = service_->askForAgent();
  if (result != KXCSServiceResult::Done) refused(result);
  settle_();
}

void QuorDemoApp::chooseGroup(const std::string& groupId) {
  std::printf("You: (chooses the group %s)\n", groupId.c_str());
  const auto result = service_->chooseGroup(groupId);
  if (result != KXCSServiceResult::Done) refused(result);
  settle_();
}

void QuorDemoApp::rate(int stars, const std::string& suggestion) {
  std::printf("You: (rates the agent %d stars: \"%s\")\n", stars, suggestion.c_str());
  KXCSAgentRating rating;
  rating.stars = stars;
  rating.suggestion = suggestion;
  rating.resolved = 1;
  const auto result = service_->rateAgent(rating);
  if (result != KXCSServiceResult::Done) refused(result);
  settle_();
}

void QuorDemoApp::leaveMessage(const KXDictionary& form) {
  std::printf("You: (leaves a message: %s)\n", form.dump().c_str());
  const auto check = service_->leaveMessage(form);
  for (const auto& [field, problem] : check.fieldErrors) status(field + ": " + problem);
  if (check.webFormUrl) status("the desk takes messages on " + *check.webFormUrl);
  if (check.result != KXCSServiceResult::Done) refused(check.result);
  settle_();
}

void QuorDemoApp::sendFile(const std::string& path) {
  // Its type from its bytes; the service refuses at once what the desk's server would not take.
  const auto result = service_->sendFile({path, "", ""});
  if (result != KXCSServiceResult::Done) refused(result);
  settle_();
}

void QuorDemoApp::download(const std::string& sequence) {
  char* end = nullptr;
  const unsigned long long number = std::strtoull(sequence.c_str(), &end, 10);
  if (sequence.empty() || *end != '\0') {
    std::printf("  * /download takes the number a file's line shows: /download N\n");
    return;
  }
  const auto result = service_->downloadFile(number);
  if (result != KXCSServiceResult::Done) refused(result);
  settle_();
}

void QuorDemoApp::stop() {
  std::printf("You: (closes the service)\n");
  service_->end();
  settle_();
}

int QuorDemoApp::runJourney() {
  if (!start()) {
    std::printf("Journey failed: the service did not start.\n");
    return 1;
  }
  for (const auto& question : robotQuestions()) say(question);
  askForAgent();
  if (screen_->groups && !screen_->groups->empty())
    chooseGroup(*screen_->groups->back()->groupId());
  if (profile_.is_null()) {
    say("I would like to return order 1024.");
    say("When do I get my money back?");
  } else {
    say("Could you look into this for me?");
    say("Thank you. What happens next?");
  }
  rate(bestStars(), "Quick and friendly");
  // One value per field the desk names, appended: the dictionary's insert would search its keys
  // for every field.
  KXDictionary form = KXDictionary::object();
  std::unordered_set<std::string> named;
  const auto& config = screen_->config;
  if (config && config->leaveMessageNativeInfo()) {
    for (const auto& field : *config->leaveMessageNativeInfo()) {
      const std::string name = field && field->name() ? *field->name() : "field";
      if (!named.insert(name).second) continue;
      form.get_ref<KXDictionary::object_t&>().emplace_back(
          name, name == "phone"  ? "13800000000"
                : name == "name" ? "Mei"
                                 : "Please call me after 6 pm.");
    }
  }
  leaveMessage(form);
  if (!screen_->ended) stop();
  std::printf("Journey complete.\n");
  return 0;
}

int QuorDemoApp::runInteractive() {
  if (!start()) return 1;
  std::printf(
      "Type a message, or: /human, /group ID, /rate STARS [TEXT], /leave TEXT, /file PATH, "
      "/download N, /stop, /quit\n");
  // The desk's lines show as they come, also while the customer types nothing: the lines are
  // read on their own thread, and the main thread runs the service's reports meanwhile.
  QuorTerminalInput input;
  while (!screen_->ended) {
    if (!prompting) {
      std::printf("> ");
      std::fflush(stdout);
      prompting = true;
    }
    const auto line = input.next(kIdleTurn);
    if (!line) {
      if (input.ended()) break;
      settle_();
      continue;
    }
    prompting = false;
    if (!handle(*line)) break;
  }
  if (prompting) std::printf("\n");
  return 0;
}

bool QuorDemoApp::handle(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  std::string rest;
  std::getline(words >> std::ws, rest);
  if (command == "/quit") return false;
  if (command == "/help") {
    std::printf(
        "/human, /group ID, /rate STARS [TEXT], /leave TEXT, /file PATH, /download N, /stop, "
        "/quit\n");
  } else if (command == "/human") {
    askForAgent();
  } else if (command == "/group") {
    chooseGroup(rest);
  } else if (command == "/rate") {
    rateFromInput(rest);
  } else if (command == "/leave") {
    leaveMessage({{"content", rest}});
  } else if (command == "/file") {
    sendFile(rest);
  } else if (command == "/download") {
    download(rest);
  } else if (command == "/stop") {
    stop();
    return false;
  } else if (!line.empty()) {
    say(line);
  }
  return true;
}

std::vector<std::string> QuorDemoApp::robotQuestions() const {
  if (profile_.is_null()) return {"Where is my order?", "Can I return a parcel?"};
  std::vector<std::string> questions;
  const auto robot = profile_.find("robot");
  if (robot != profile_.end() && robot->is_object()) {
    const auto answers = robot->find("answers");
    if (answers != robot->end() && answers->is_array()) {
      for (const auto& answer : *answers) {
        const auto keywords = answer.is_object() ? answer.find("keywords") : answer.end();
        if (answer.is_object() && keywords != answer.end() && keywords->is_array() &&
            !keywords->empty() && keywords->front().is_string()) {
          questions.push_back("A question about " + keywords->front().get<std::string>() +
                              ", please.");
        }
      }
    }
  }
  if (questions.empty()) questions.push_back("Hello, can you help me?");
  return questions;
}

int QuorDemoApp::bestStars() const {
  int best = 0;
  const auto& config = screen_->config;
  if (config && config->humanEvaluateItems()) {
    for (const auto& option : *config->humanEvaluateItems()) {
      if (option) best = std::max(best, static_cast<int>(option->value()));
    }
  }
  return best > 0 ? best : 5;
}

void QuorDemoApp::rateFromInput(const std::string& input) {
  std::istringstream words(input);
  std::string starsText;
  words >> starsText;
  std::string suggestion;
  std::getline(words >> std::ws, suggestion);
  char* end = nullptr;
  const long stars = std::strtol(starsText.c_str(), &end, 10);
  if (starsText.empty() || *end != '\0' || stars < 0 || stars > 100) {
    std::printf("  * /rate takes a number of stars: /rate STARS [TEXT]\n");
    return;
  }
  rate(static_cast<int>(stars), suggestion);
}

}  // namespace quor
