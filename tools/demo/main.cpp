// quor-cs-demo: a customer journey against the desk simulator, printed as a conversation.
//
//   quor-cs-demo                  the scripted journey, no input needed
//   quor-cs-demo --interactive    a terminal chat with the desk (type /help)
//   quor-cs-demo --profile FILE   another desk profile
//   quor-cs-demo --wire           also print every message that crosses the channel
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"

namespace {

using namespace quor;

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

// Prints every message crossing the channel with its body.
class WirePrinter : public QuorLoopbackObserver {
 public:
  void onWire(const QuorWireMessage& message, bool fromClient) override {
    std::printf("    %s %s %s\n", fromClient ? ">>" : "<<", message.objectName.c_str(),
                message.body.value_or("(no body)").c_str());
  }
};

// The application: it shows what the library and the host hand it, and acts for the customer.
class DemoApp {
 public:
  DemoApp(std::shared_ptr<QuorLoopbackHost> host, std::shared_ptr<QuorDeskSimulator> desk)
      : host_(std::move(host)),
        desk_(std::move(desk)),
        client_(KXCustomerServiceClient::sharedCustomerServiceClient()) {
    host_->addMessageListener([](const std::shared_ptr<KXMessage>& message) { show(*message); });
  }

  void start() {
    auto info = std::make_shared<KXCustomerServiceInfo>();
    info->setUserId("customer-7");
    info->setName("Mei");
    info->setPage("orders");
    std::printf("Opening customer service with desk %s\n", desk_->deskId().c_str());
    client_.startCustomerService(
        desk_->deskId(), info,
        [this](std::shared_ptr<KXCustomerServiceConfig> config) {
          config_ = config;
          status("connected to " + config->companyName().value_or("the desk"));
          if (config->announceMsg()) status("announcement: " + *config->announceMsg());
        },
        [](int64_t code, const std::string& text) {
          status("could not connect (" + std::to_string(code) + "): " + text);
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
    client_.getHumanEvaluateCustomerServiceConfig(
        [](const std::shared_ptr<const KXDictionary>&) {});
    settle();
  }

  void say(const std::string& text) {
    std::printf("You: %s\n", text.c_str());
    host_->sendMessage(KXConversationTypeCustomerService, desk_->deskId(),
                       KXTextMessage::messageWithContent(text), std::nullopt, std::nullopt, nullptr,
                       nullptr);
    settle();
  }

  void askForAgent() {
    std::printf("You: (asks for a human agent)\n");
    client_.switchToHumanMode(desk_->deskId());
    settle();
  }

  void chooseGroup(const std::string& groupId) {
    std::printf("You: (chooses the group %s)\n", groupId.c_str());
    client_.selectCustomerServiceGroup(desk_->deskId(), groupId);
    settle();
  }

  void rate(int stars, const std::string& suggestion) {
    std::printf("You: (rates the agent %d stars: \"%s\")\n", stars, suggestion.c_str());
    client_.evaluateCustomerService(desk_->deskId(), pendingDialog_, stars, suggestion, 1);
    settle();
  }

  void leaveMessage(const KXDictionary& form) {
    std::printf("You: (leaves a message: %s)\n", form.dump().c_str());
    client_.leaveMessageCustomerService(
        desk_->deskId(), std::make_shared<const KXDictionary>(form),
        [this](int64_t id) {
          host_->post([id] { status("message left (id " + std::to_string(id) + ")"); });
        },
        [this](int64_t code, int64_t) {
          host_->post([code] { status("leaving the message failed: " + std::to_string(code)); });
        });
    settle();
  }

  void stop() {
    std::printf("You: (closes the service)\n");
    client_.stopCustomerService(desk_->deskId());
    settle();
  }

  void settle() { host_->settle(); }

  bool ended() const { return ended_; }
  const KXCustomerServiceGroupList& groups() const { return groups_; }
  const std::shared_ptr<KXCustomerServiceConfig>& config() const { return config_; }

 private:
  static void show(const KXMessage& message) {
    if (auto* text = dynamic_cast<KXTextMessage*>(message.content().get())) {
      const auto& sender = text->senderUserInfo();
      const std::string name = sender && sender->name() ? *sender->name() : "Desk";
      std::printf("%s: %s\n", name.c_str(), text->content().value_or("").c_str());
    } else if (auto* notice =
                   dynamic_cast<KXInformationNotificationMessage*>(message.content().get())) {
      std::printf("  -- %s --\n", notice->message().value_or("").c_str());
    } else if (auto* digest = message.content().get(); digest && digest->conversationDigest()) {
      std::printf("  [%s] %s\n", digest->objectName().c_str(),
                  digest->conversationDigest()->c_str());
    }
  }

  std::shared_ptr<QuorLoopbackHost> host_;
  std::shared_ptr<QuorDeskSimulator> desk_;
  KXCustomerServiceClient& client_;
  std::shared_ptr<KXCustomerServiceConfig> config_;
  KXCustomerServiceGroupList groups_;
  KXString pendingDialog_;
  bool ended_ = false;
};

void runJourney(DemoApp& app) {
  app.start();
  app.say("Where is my order?");
  app.say("Can I return a parcel?");
  app.askForAgent();
  if (app.groups() && !app.groups()->empty()) app.chooseGroup(*app.groups()->back()->groupId());
  app.say("I would like to return order 1024.");
  app.say("When do I get my money back?");
  app.rate(5, "Quick and friendly");
  KXDictionary form = KXDictionary::object();
  if (app.config() && app.config()->leaveMessageNativeInfo()) {
    for (const auto& field : *app.config()->leaveMessageNativeInfo()) {
      const std::string name = field->name().value_or("field");
      form[name] = name == "phone"  ? "13800000000"
                   : name == "name" ? "Mei"
                                    : "Please call me after 6 pm.";
    }
  }
  app.leaveMessage(form);
  if (!app.ended()) app.stop();
  std::printf("Journey complete.\n");
}

void runInteractive(DemoApp& app) {
  app.start();
  std::printf(
      "Type a message, or: /human, /group ID, /rate STARS [TEXT], /leave TEXT, /stop, /quit\n");
  std::string line;
  while (!app.ended() && std::printf("> ") && std::fflush(stdout) == 0 &&
         std::getline(std::cin, line)) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    std::string rest;
    std::getline(words >> std::ws, rest);
    if (command == "/quit") break;
    if (command == "/help") {
      std::printf("/human, /group ID, /rate STARS [TEXT], /leave TEXT, /stop, /quit\n");
    } else if (command == "/human") {
      app.askForAgent();
    } else if (command == "/group") {
      app.chooseGroup(rest);
    } else if (command == "/rate") {
      int stars = 0;
      std::istringstream(rest) >> stars;
      const auto space = rest.find(' ');
      app.rate(stars, space == std::string::npos ? "" : rest.substr(space + 1));
    } else if (command == "/leave") {
      app.leaveMessage({{"content", rest}});
    } else if (command == "/stop") {
      app.stop();
      break;
    } else if (!line.empty()) {
      app.say(line);
    }
  }
}

int usage(const char* problem) {
  std::fprintf(stderr,
               "quor-cs-demo: %s\nusage: quor-cs-demo [--interactive] [--profile FILE] [--wire]\n",
               problem);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  bool interactive = false;
  bool wire = false;
  std::string profilePath;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--interactive") {
      interactive = true;
    } else if (arg == "--wire") {
      wire = true;
    } else if (arg == "--profile") {
      if (i + 1 >= argc) return usage("--profile needs a file");
      profilePath = argv[++i];
    } else if (arg == "--help" || arg == "-h") {
      std::printf("usage: quor-cs-demo [--interactive] [--profile FILE] [--wire]\n");
      return 0;
    } else {
      return usage(("unknown option " + arg).c_str());
    }
  }

  std::string error;
  auto desk = profilePath.empty()
                  ? QuorDeskSimulator::fromProfile(QuorDeskSimulator::defaultProfile(), &error)
                  : QuorDeskSimulator::fromFile(profilePath, &error);
  if (!desk) {
    std::fprintf(stderr, "quor-cs-demo: %s\n", error.c_str());
    return 2;
  }

  auto host = std::make_shared<QuorLoopbackHost>();
  host->install();
  if (wire) host->setObserver(std::make_shared<WirePrinter>());
  host->loadExtensionModule();
  desk->attach(host);
  {
    DemoApp app(host, desk);
    if (interactive) {
      runInteractive(app);
    } else {
      runJourney(app);
    }
  }
  QuorLoopbackHost::uninstall();
  return 0;
}
