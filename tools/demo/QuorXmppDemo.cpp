#include "QuorXmppDemo.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "QuorXmppHost/QuorDeskJid.h"

namespace quor {
namespace {

constexpr const char* kDomain = "localhost";
constexpr auto kPatience = std::chrono::seconds(10);
// The journey waits this long without news before its next step.
constexpr auto kQuiet = std::chrono::milliseconds(300);

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string localPart(const std::string& jid) { return jid.substr(0, jid.find('@')); }

}  // namespace

std::unique_ptr<QuorXmppDemo> QuorXmppDemo::start(const Options& options, std::string* error) {
  std::unique_ptr<QuorXmppDemo> demo(new QuorXmppDemo());
  const std::string deskJid = QuorDeskJid::toJid(options.deskId, kDomain);
  QuorPrivateServer::Options server;
  server.domain = kDomain;
  server.accounts = {{"mei", "mei-secret"}, {localPart(deskJid), "desk-secret"}};
  demo->server_ = QuorPrivateServer::start(server, error);
  if (!demo->server_) return nullptr;
  std::printf("Private XMPP server on 127.0.0.1:%d; the desk is %s\n", demo->server_->port(),
              deskJid.c_str());
  if (!demo->startDesk(options, error)) return nullptr;

  QuorXmppHost::Options host;
  host.connection.jid = demo->server_->jid("mei");
  host.connection.password = "mei-secret";
  host.connection.server = "127.0.0.1";
  host.connection.port = static_cast<uint16_t>(demo->server_->port());
  demo->host_ = QuorXmppHost::create(host, error);
  if (!demo->host_) return nullptr;
  demo->host_->install();
  if (options.wire) {
    QuorXmppHost* customer = demo->host_.get();
    demo->host_->setWireObserver([customer](const QuorXmppPayload& payload, bool fromClient) {
      const std::string line = std::string("    ") + (fromClient ? ">> " : "<< ") +
                               payload.objectName + " " + payload.body.value_or("(no body)");
      customer->post([line] { std::printf("%s\n", line.c_str()); });
    });
  }
  demo->host_->loadExtensionModule();
  demo->host_->connect();
  if (!demo->host_->waitUntilOnline(kPatience)) {
    if (error) *error = "the customer could not log in";
    return nullptr;
  }
  return demo;
}

bool QuorXmppDemo::startDesk(const Options& options, std::string* error) {
  char path[] = "/tmp/quor-cs-desk-XXXXXX";
  const int logFd = ::mkstemp(path);
  if (logFd < 0) {
    if (error) *error = "cannot make the desk's log file";
    return false;
  }
  deskLog_ = path;
  const std::string port = std::to_string(server_->port());
  const std::string jid = QuorDeskJid::toJid(options.deskId, kDomain);
  std::vector<std::string> arguments = {options.deskProgram, "--jid",       jid,
                                        "--password",        "desk-secret", "--server",
                                        "127.0.0.1",         "--port",      port};
  if (!options.profilePath.empty()) {
    arguments.push_back("--profile");
    arguments.push_back(options.profilePath);
  }
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const pid_t parent = ::getpid();
  desk_ = ::fork();
  if (desk_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);
    ::dup2(logFd, STDERR_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(logFd);
  if (desk_ < 0) {
    if (error) *error = "cannot start the desk";
    return false;
  }
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < deadline) {
    if (readFile(deskLog_).find("serving as") != std::string::npos) return true;
    int status = 0;
    if (::waitpid(desk_, &status, WNOHANG) == desk_) {
      desk_ = -1;
      if (error) *error = "the desk exited: " + readFile(deskLog_);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (error) *error = "the desk did not log in: " + readFile(deskLog_);
  return false;
}

QuorXmppDemo::~QuorXmppDemo() {
  if (host_) {
    QuorHostBase::uninstall();
    host_.reset();
  }
  if (desk_ > 0) {
    ::kill(desk_, SIGTERM);
    int status = 0;
    ::waitpid(desk_, &status, 0);
  }
  if (!deskLog_.empty()) ::unlink(deskLog_.c_str());
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
