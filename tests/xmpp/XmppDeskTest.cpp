// The desk program keeps what it is given: killed in the middle of a burst and started again on
// its state file, it answers every question that the server accepted, each once.
#include <signal.h>

#include <fstream>
#include <map>
#include <set>

#include "QuorPrivateServer/QuorChildProcess.h"
#include "XmppFixture.h"
#include "support/RawXmppCustomer.h"

namespace quor::test {
namespace {

TEST_F(XmppFixture, ADeskTakesNothingOverItsLimitAndServesTheSameCustomerOn) {
  startDesk(R"({"robot":{"echo":true},"serviceType":1})");
  RawXmppCustomer alice(accountOptions("alice", "alice-pw"));
  ASSERT_TRUE(alice.connection().waitUntilOnline(kPatience));
  const std::string desk = server->jid(deskLocalPart());
  alice.send(desk, "KX:TxtMsg", R"({"content":")" + std::string(70 * 1024, 'z') + R"("})");
  alice.send(desk, "KX:TxtMsg", R"({"content":"small"})");
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (alice.answers().count("You said: small") == 0 &&
         std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(alice.answered(), 1u);  // only the small one
}

// On each server: Prosody hands what the dead desk's session held to its next login on the same
// resource; ejabberd keeps it in the archive and the offline store.
class XmppDeskProgram : public XmppOnEachServer {
 protected:
  void TearDown() override {
    // What the desk did, for a failure's reader.
    if (HasFailure() && server)
      std::cerr << QuorChildProcess::readFile(server->directory() + "/desk.log");
    XmppOnEachServer::TearDown();
  }
  std::unique_ptr<QuorChildProcess> startDeskProgram(const std::string& state) {
    const std::string profile = server->directory() + "/echo.json";
    std::ofstream(profile) << R"({"deskId":"quor-shop","serviceType":1,"robot":{"echo":true}})";
    std::string error;
    auto program = QuorChildProcess::start(
        {"env", "QUOR_CS_DESK_PASSWORD=desk-pw", QUOR_CS_DESK_PROGRAM, "--jid",
         server->jid(deskLocalPart()), "--state", state, "--profile", profile, "--server",
         "127.0.0.1", "--port", std::to_string(server->port()), "--verbose"},
        server->directory() + "/desk.log", &error);
    EXPECT_TRUE(program) << error;
    if (program) {
      EXPECT_TRUE(program->waitForOutput("serving as", logSize_, std::chrono::seconds(20), &error))
          << error;
      logSize_ = QuorChildProcess::readFile(server->directory() + "/desk.log").size();
    }
    return program;
  }
  std::size_t logSize_ = 0;
};

TEST_P(XmppDeskProgram, AKilledDeskAnswersEveryQuestionOnceAfterItsRestart) {
  constexpr int kQuestions = 600;
  const std::string state = storePath("killed-desk");
  auto desk = startDeskProgram(state);
  ASSERT_TRUE(desk);
  RawXmppCustomer alice(accountOptions("alice", "alice-pw"));
  ASSERT_TRUE(alice.connection().waitUntilOnline(kPatience));
  for (int i = 0; i < kQuestions; ++i) {
    alice.send(server->jid(deskLocalPart()), "KX:TxtMsg",
               R"({"content":"q)" + std::to_string(i) + R"("})");
  }
  const auto until = [&](std::size_t count, std::chrono::seconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (alice.answered() < count && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return alice.answered() >= count;
  };
  ASSERT_TRUE(until(kQuestions / 5, std::chrono::minutes(2)));
  desk->stop(SIGKILL);  // in the middle of the burst: nothing is said goodbye
  EXPECT_LT(alice.answered(), static_cast<std::size_t>(kQuestions));
  desk = startDeskProgram(state);
  ASSERT_TRUE(desk);
  // Outcomes, not speed: a loaded or emulated machine may take minutes to read the archive back
  // and write the answers the server confirms late.
  EXPECT_TRUE(until(kQuestions, std::chrono::minutes(6)));
  const auto answers = alice.answers();
  std::set<std::string> twice;
  for (const auto& [text, count] : answers) {
    if (count != 1) twice.insert(text);
  }
  EXPECT_THAT(twice, ::testing::IsEmpty());
  std::vector<int> missing;
  for (int i = 0; i < kQuestions; ++i) {
    if (answers.count("You said: q" + std::to_string(i)) == 0) missing.push_back(i);
  }
  EXPECT_THAT(missing, ::testing::IsEmpty());
}

QUOR_INSTANTIATE_ON_EACH_SERVER(XmppDeskProgram);

}  // namespace
}  // namespace quor::test
