// Whole services over a real XMPP server: the customer on QuorXmppHost, the desk simulator on
// the same server.
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "QuorPrivateServer/QuorChildProcess.h"
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

// The robot-first journey with a group, a rating and the desk's end runs over the server in
// Demo.XmppJourney (tests/check-demo.sh).

// Each service type from the start to the desk's end, over the server.
struct ServiceTypeCase {
  const char* profile;
  std::vector<std::string> eventsAfterStart;
  const char* firstShown;
};

void PrintTo(const ServiceTypeCase& serviceCase, std::ostream* out) { *out << serviceCase.profile; }

class XmppServiceTypes : public XmppFixture,
                         public ::testing::WithParamInterface<ServiceTypeCase> {};

TEST_P(XmppServiceTypes, StartTalkAndEnd) {
  startDesk(GetParam().profile);
  host = makeHost("alice", ":memory:", view);
  start("quor-shop", view);
  const auto& expected = GetParam().eventsAfterStart;
  ASSERT_TRUE(eventsReach(view, expected.size())) << ::testing::PrintToString(view.events);
  EXPECT_EQ(view.events, expected);
  say(*host, "quor-shop", "where is my order?");
  ASSERT_TRUE(shownReach(view, 2)) << ::testing::PrintToString(view.shown);
  EXPECT_EQ(view.shown[0], GetParam().firstShown);
  desk->step(host->bareJid(), [](QuorDeskSimulator& session) {
    session.endService("Bye now");
    return std::string();
  });
  ASSERT_TRUE(eventsReach(view, expected.size() + 1));
  EXPECT_EQ(view.events.back(), "quit(Bye now)");
}

INSTANTIATE_TEST_SUITE_P(
    AllTypes, XmppServiceTypes,
    ::testing::Values(
        ServiceTypeCase{R"({"serviceType": 1})",
                        {"success", "mode(1)"},
                        "Hi, I am Ava, the Quor Shop assistant. How can I help?"},
        ServiceTypeCase{R"({"serviceType": 2, "switchToHumanAtStart": true, "groups": null})",
                        {"success", "mode(2)", "mode(2)"},
                        "Hello, this is Lin from After-sales. Let me look at your order."},
        ServiceTypeCase{R"({"serviceType": 4, "switchToHumanAtStart": true, "groups": null})",
                        {"success", "mode(2)", "mode(2)"},
                        "Hello, this is Lin from After-sales. Let me look at your order."}));

#ifdef QUOR_CS_DEMO_PROGRAM
class DemoAgainstADesk : public XmppFixture {
 protected:
  // Runs the demo's journey as alice against the desk `deskJid` on this test's server; its
  // transcript, or "" when it did not complete.
  std::string journey(const std::string& deskJid) {
    std::string error;
    auto demo = launch(deskJid);
    const bool completed =
        demo && demo->waitForOutput("Journey complete.", 0, kPatience * 3, &error);
    EXPECT_TRUE(completed) << error;
    return completed ? QuorChildProcess::readFile(demo->outputPath()) : "";
  }
  std::unique_ptr<QuorChildProcess> launch(const std::string& deskJid) {
    std::string error;
    auto demo = QuorChildProcess::start(
        {QUOR_CS_DEMO_PROGRAM, "--server", "127.0.0.1:" + std::to_string(server->port()), "--desk",
         deskJid, "--account", "alice@localhost", "--password", "alice-pw"},
        scratch("demo"), &error);
    EXPECT_TRUE(demo) << error;
    return demo;
  }
  // A file of this test's own under the test's temporary directory, removed at the end.
  std::string scratch(const std::string& name) {
    files_.push_back(::testing::TempDir() + "/" + name + "-" + std::to_string(::getpid()) + ".txt");
    return files_.back();
  }
  void TearDown() override {
    XmppFixture::TearDown();
    for (const auto& path : files_) std::filesystem::remove(path);
  }

 private:
  std::vector<std::string> files_;
};

// The demo reaches a server and a desk that run already, as a developer points it at their own.
TEST_F(DemoAgainstADesk, AnExistingServerAndDesk) {
  startDesk();
  const std::string transcript = journey(QuorDeskJid::toJid("quor-shop", "localhost"));
  EXPECT_NE(transcript.find("Connecting to 127.0.0.1:"), std::string::npos) << transcript;
  EXPECT_NE(transcript.find("mode: human agent"), std::string::npos) << transcript;
  EXPECT_NE(transcript.find("Ava: Orders ship"), std::string::npos) << transcript;
}

// The demo waits for the start's own outcome: a desk that answers late is waited for, and a desk
// that does not exist fails the journey with the reason.
TEST_F(DemoAgainstADesk, WaitsForTheStartsOutcomeAndSaysWhyItFailed) {
  auto late = launch(QuorDeskJid::toJid("quor-shop", "localhost"));
  std::string error;
  // The demo logs in and sends its handshake meanwhile (its output is written when it ends);
  // the server keeps the handshake for the desk, which answers once it logs in.
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  startDesk();
  EXPECT_TRUE(late->waitForOutput("Journey complete.", 0, kPatience * 3, &error)) << error;

  auto missing = launch(QuorDeskJid::toJid("ghost-desk", "localhost"));
  ASSERT_TRUE(missing->waitForOutput("Journey failed", 0, kPatience, &error))
      << error << QuorChildProcess::readFile(missing->outputPath());
  const std::string transcript = QuorChildProcess::readFile(missing->outputPath());
  EXPECT_NE(transcript.find("ConnectionFailed, code 31005"), std::string::npos) << transcript;
}

// The desk of docs/protocol.md ("a desk in 50 lines"), written in Python from the protocol
// alone, serves the demo's customer.
TEST_F(DemoAgainstADesk, ThePythonDeskOfTheProtocolGuide) {
  std::string error;
  const std::string deskOutput = scratch("python-desk");
  auto desk =
      QuorChildProcess::start({"/usr/bin/python3", QUOR_CS_PYTHON_DESK, "python-desk@localhost",
                               "python-pw", "127.0.0.1", std::to_string(server->port())},
                              deskOutput, &error);
  ASSERT_TRUE(desk) << error;
  ASSERT_TRUE(desk->waitForOutput("desk: serving as", 0, kPatience, &error)) << error;
  const std::string transcript = journey("python-desk@localhost");
  EXPECT_NE(transcript.find("connected to Python Desk"), std::string::npos)
      << transcript << QuorChildProcess::readFile(deskOutput);
  EXPECT_NE(transcript.find("Echo: Hi, I am Echo. Say something!"), std::string::npos)
      << transcript;
  EXPECT_NE(transcript.find("Desk: You said: Where is my order?"), std::string::npos) << transcript;
  EXPECT_NE(transcript.find("Ada: Hello, this is Ada. How can I help?"), std::string::npos)
      << transcript;
  EXPECT_NE(transcript.find("mode: human agent"), std::string::npos) << transcript;
}
#endif

}  // namespace
}  // namespace quor::test
