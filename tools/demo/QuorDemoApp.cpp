#include "QuorDemoApp.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unordered_set>

namespace quor {
namespace {

const char* modeName(KXCSModeType mode) {
  switch (mode) {
    case KXCSModeNoService:
      return "no service";
    case KXCSModeRobotOnly:
      return "robot only";
    case KXCSModeHuman:
      return "human agent";
    case KXCSModeRobotFirst:
      return "robot first, an agent can be asked for";
  }
  return "unknown";
}

void status(const std::string& line) { std::printf("  * %s\n", line.c_str()); }

}  // namespace

QuorDemoApp::QuorDemoApp(QuorHostBase& host, std::string deskId, std::function<void()> settle,
                         const KXDictionary* profile)
    : host_(host),
      deskId_(std::move(deskId)),
      settle_(std::move(settle)),
      profile_(profile ? *profile : KXDictionary()),
      client_(KXCustomerServiceClient::sharedCustomerServiceClient()) {
  host_.addMessageListener([](const std::shared_ptr<KXMessage>& message) { show(*message); });
}

bool QuorDemoApp::start() {
  auto info = std::make_shared<KXCustomerServiceInfo>();
  info->setUserId("customer-7");
  info->setName("Mei");
  info->setPage("orders");
  std::printf("Opening customer service with desk %s\n", deskId_.c_str());
  client_.startCustomerService(
      deskId_, info,
      [this](std::shared_ptr<KXCustomerServiceConfig> config) {
        config_ = config;
        status("connected to " + config->companyName().value_or("the desk"));
        if (config->announceMsg()) status("announcement: " + *config->announceMsg());
      },
      [this](int64_t code, const std::string& text) {
        status("could not connect (" + std::to_string(code) + "): " + text);
        failed_ = true;
      },
      [](KXCSModeType mode) { status(std::string("mode: ") + modeName(mode)); },
      [this](const KXString& dialogId) {
        status("the desk asks for a rating of " + dialogId.value_or("the dialog"));
        pendingDialog_ = dialogId;
      },
      [this](const KXCustomerServiceGroupList& groups) {
        std::string names;
        for (const auto& group : *groups) {
          names += (names.empty() ? "" : ", ") + group->name().value_or("?") + " [" +
                   group->groupId().value_or("") + "]" + (group->online() ? "" : " (offline)");
        }
        status("choose a group: " + names);
        groups_ = groups;
      },
      [this](const std::string& text) {
        status("service ended: " + text);
        ended_ = true;
      });
  client_.getHumanEvaluateCustomerServiceConfig([](const std::shared_ptr<const KXDictionary>&) {});
  settle_();
  return !failed_ && config_;
}

void QuorDemoApp::say(const std::string& text) {
  std::printf("You: %s\n", text.c_str());
  host_.sendMessage(KXConversationTypeCustomerService, deskId_,
                    KXTextMessage::messageWithContent(text), std::nullopt, std::nullopt, nullptr,
                    nullptr);
  settle_();
}

void QuorDemoApp::askForAgent() {
  std::printf("You: (asks for a human agent)\n");
  client_.switchToHumanMode(deskId_);
  settle_();
}

void QuorDemoApp::chooseGroup(const std::string& groupId) {
  std::printf("You: (chooses the group %s)\n", groupId.c_str());
  client_.selectCustomerServiceGroup(deskId_, groupId);
  settle_();
}

void QuorDemoApp::rate(int stars, const std::string& suggestion) {
  std::printf("You: (rates the agent %d stars: \"%s\")\n", stars, suggestion.c_str());
  client_.evaluateCustomerService(deskId_, pendingDialog_, stars, suggestion, 1);
  settle_();
}

void QuorDemoApp::leaveMessage(const KXDictionary& form) {
  std::printf("You: (leaves a message: %s)\n", form.dump().c_str());
  client_.leaveMessageCustomerService(
      deskId_, std::make_shared<const KXDictionary>(form),
      [this](int64_t id) {
        host_.post([id] { status("message left (id " + std::to_string(id) + ")"); });
      },
      [this](int64_t code, int64_t) {
        host_.post([code] { status("leaving the message failed: " + std::to_string(code)); });
      });
  settle_();
}

void QuorDemoApp::stop() {
  std::printf("You: (closes the service)\n");
  client_.stopCustomerService(deskId_);
  settle_();
}

int QuorDemoApp::runJourney() {
  if (!start()) {
    std::printf("Journey failed: the service did not start.\n");
    return 1;
  }
  for (const auto& question : robotQuestions()) say(question);
  askForAgent();
  if (groups_ && !groups_->empty()) chooseGroup(*groups_->back()->groupId());
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
  if (config_ && config_->leaveMessageNativeInfo()) {
    for (const auto& field : *config_->leaveMessageNativeInfo()) {
      const std::string name = field && field->name() ? *field->name() : "field";
      if (!named.insert(name).second) continue;
      form.get_ref<KXDictionary::object_t&>().emplace_back(
          name, name == "phone"  ? "13800000000"
                : name == "name" ? "Mei"
                                 : "Please call me after 6 pm.");
    }
  }
  leaveMessage(form);
  if (!ended_) stop();
  std::printf("Journey complete.\n");
  return 0;
}

int QuorDemoApp::runInteractive() {
  if (!start()) return 1;
  std::printf(
      "Type a message, or: /human, /group ID, /rate STARS [TEXT], /leave TEXT, /stop, /quit\n");
  std::string line;
  while (!ended_ && std::printf("> ") && std::fflush(stdout) == 0 && std::getline(std::cin, line)) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    std::string rest;
    std::getline(words >> std::ws, rest);
    if (command == "/quit") break;
    if (command == "/help") {
      std::printf("/human, /group ID, /rate STARS [TEXT], /leave TEXT, /stop, /quit\n");
    } else if (command == "/human") {
      askForAgent();
    } else if (command == "/group") {
      chooseGroup(rest);
    } else if (command == "/rate") {
      rateFromInput(rest);
    } else if (command == "/leave") {
      leaveMessage({{"content", rest}});
    } else if (command == "/stop") {
      stop();
      break;
    } else if (!line.empty()) {
      say(line);
    }
  }
  return 0;
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
  if (config_ && config_->humanEvaluateItems()) {
    for (const auto& option : *config_->humanEvaluateItems()) {
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
  std::string offered;
  bool allowed =
      !config_ || !config_->humanEvaluateItems() || config_->humanEvaluateItems()->empty();
  if (config_ && config_->humanEvaluateItems()) {
    for (const auto& option : *config_->humanEvaluateItems()) {
      if (!option) continue;
      allowed = allowed || option->value() == stars;
      offered += (offered.empty() ? "" : ", ") + std::to_string(option->value());
    }
  }
  if (!allowed) {
    std::printf("  * the desk offers only these ratings: %s\n", offered.c_str());
    return;
  }
  rate(static_cast<int>(stars), suggestion);
}

void QuorDemoApp::show(const KXMessage& message) {
  if (auto* text = dynamic_cast<KXTextMessage*>(message.content().get())) {
    const auto& sender = text->senderUserInfo();
    const std::string name = sender && sender->name() ? *sender->name() : "Desk";
    std::printf("%s: %s\n", name.c_str(), text->content().value_or("").c_str());
  } else if (auto* notice =
                 dynamic_cast<KXInformationNotificationMessage*>(message.content().get())) {
    std::printf("  -- %s --\n", notice->message().value_or("").c_str());
  } else if (auto* digest = message.content().get(); digest && digest->conversationDigest()) {
    std::printf("  [%s] %s\n", digest->objectName().c_str(), digest->conversationDigest()->c_str());
  }
}

}  // namespace quor
