#include "QuorXmppDemo.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <vector>

#include "QuorXmppHost/QuorDeskJid.h"

namespace quor {
namespace {

constexpr const char* kDomain = "localhost";
constexpr auto kPatience = std::chrono::seconds(10);
// The journey waits this long without news before its next step.
constexpr auto kQuiet = std::chrono::milliseconds(300);

std::string localPart(const std::string& jid) { return jid.substr(0, jid.find('@')); }

}  // namespace

std::unique_ptr<QuorXmppDemo> QuorXmppDemo::start(const Options& options, std::string* error) {
  std::unique_ptr<QuorXmppDemo> demo(new QuorXmppDemo());
  const std::string deskJid = QuorDeskJid::toJid(options.deskId, kDomain);
  QuorPrivateServer::Options server;
  server.domain = kDomain;
  server.accounts = {{"mei", "mei-secret"}, {localPart(deskJid), "desk-secret"}};
  server.fileShare = true;  // /file and the console's attachments
  server.fileShareLimit = 10 * 1024 * 1024;
  demo->server_ = QuorPrivateServer::start(server, error);
  if (!demo->server_) return nullptr;
  std::printf("Private XMPP server on 127.0.0.1:%d; the desk is %s\n", demo->server_->port(),
              deskJid.c_str());
  if (!demo->startDesk(options, error)) return nullptr;
  // Tests check these two processes, and only these, when the demo has ended.
  std::printf("Started processes: server pid %d, desk pid %d\n",
              static_cast<int>(demo->server_->pid()), static_cast<int>(demo->desk_->pid()));

  if (!demo->startCustomer(demo->server_->account("mei", "mei-secret"), "", options.wire, error))
    return nullptr;
  return demo;
}

std::unique_ptr<QuorXmppDemo> QuorXmppDemo::connect(const QuorXmppOptions& account,
                                                    const std::string& deskDomain, bool wire,
                                                    std::string* error) {
  std::unique_ptr<QuorXmppDemo> demo(new QuorXmppDemo());
  std::printf("Connecting to %s:%d as %s\n", account.server.c_str(), account.port,
              account.jid.c_str());
  if (!demo->startCustomer(account, deskDomain, wire, error)) return nullptr;
  return demo;
}

bool QuorXmppDemo::startCustomer(const QuorXmppOptions& account, const std::string& deskDomain,
                                 bool wire, std::string* error) {
  QuorXmppHost::Options host;
  host.connection = account;
  host.deskDomain = deskDomain;
  // On the demo's own server, downloads go with the server's directory.
  if (server_) host.fileCacheDirectory = server_->directory() + "/files";
  host_ = QuorXmppHost::create(host, error);
  if (!host_) return false;
  host_->install();
  if (wire) {
    QuorXmppHost* customer = host_.get();
    host_->setWireObserver([customer](const QuorXmppPayload& payload, bool fromClient) {
      const std::string line = std::string("    ") + (fromClient ? ">> " : "<< ") +
                               payload.objectName + " " + payload.body.value_or("(no body)");
      customer->post([line] { std::printf("%s\n", line.c_str()); });
    });
  }
  host_->loadExtensionModule();
  host_->connect();
  if (!host_->waitUntilOnline(kPatience)) {
    if (error) *error = "the customer could not log in as " + account.jid;
    return false;
  }
  return true;
}

bool QuorXmppDemo::startDesk(const Options& options, std::string* error) {
  // In the server's directory, which goes with the server.
  deskLog_ = server_->directory() + "/desk.log";
  std::vector<std::string> arguments = {"env",
                                        "QUOR_CS_DESK_PASSWORD=desk-secret",
                                        options.deskProgram,
                                        "--jid",
                                        QuorDeskJid::toJid(options.deskId, kDomain),
                                        "--state",
                                        server_->directory() + "/desk.sqlite",
                                        "--server",
                                        "127.0.0.1",
                                        "--port",
                                        std::to_string(server_->port())};
  if (!options.profilePath.empty()) {
    arguments.push_back("--profile");
    arguments.push_back(options.profilePath);
  }
  if (!options.console.empty()) {
    arguments.push_back("--console");
    arguments.push_back(options.console);
  }
  desk_ = QuorChildProcess::start(arguments, deskLog_, error);
  if (!desk_) return false;
  if (desk_->waitForOutput("serving as", 0, kPatience, error)) {
    // The desk printed its console's links before it logged in: on its fresh state, the one
    // with which the first agent signs up goes last.
    std::ifstream log(deskLog_);
    for (std::string line; std::getline(log, line);) {
      for (const std::string mark : {"agent console at ", "the first one signs up at "}) {
        const auto at = line.find(mark);
        if (at != std::string::npos) consoleLink_ = line.substr(at + mark.size());
      }
    }
    return true;
  }
  if (error) *error = "the desk did not log in: " + *error;
  return false;
}

QuorXmppDemo::~QuorXmppDemo() {
  if (host_) {
    host_->logout();
    QuorHostBase::uninstall();
    host_.reset();
  }
  desk_.reset();
  server_.reset();
}

void QuorXmppDemo::settle() {
  for (;;) {
    host_->waitForDelivery();
    host_->mainRunLoop().runUntilIdle();
    if (!host_->mainRunLoop().runOnce(
            std::chrono::duration_cast<std::chrono::milliseconds>(kQuiet)))
      return;
  }
}

}  // namespace quor
