// The console over a private server: the desk decides who takes a customer and who may act on
// them, and a restart of the desk keeps every conversation, its taker and the inbox.
#include <gmock/gmock.h>
#include <httplib.h>

#include <filesystem>
#include <future>
#include <thread>

#include "QuorDeskConsole/QuorDeskConsole.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "support/RawXmppCustomer.h"

namespace quor::test {
namespace {

using ::testing::HasSubstr;

constexpr auto kPatience = std::chrono::seconds(15);

bool eventually(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

class DeskConsoleServed : public ::testing::Test {
 protected:
  void SetUp() override {
    QuorPrivateServer::Options options;
    options.accounts = {{"mei", "mei-pw"}, {"shop", "shop-pw"}};
    std::string error;
    server_ = QuorPrivateServer::start(options, &error);
    ASSERT_TRUE(server_) << error;
    state_ = server_->directory() + "/desk.sqlite";
    startDesk();
    mei_ = std::make_unique<RawXmppCustomer>(server_->account("mei", "mei-pw"));
    ASSERT_TRUE(mei_->connection().waitUntilOnline(kPatience));
  }
  void TearDown() override { stopDesk(); }

  void startDesk() {
    KXDictionary profile = QuorDeskSimulator::defaultProfile();
    profile["end"]["afterLeaveMessage"] = false;
    desk_ = std::make_unique<QuorXmppDesk>(profile, server_->account("shop", "shop-pw"));
    std::string error;
    ASSERT_TRUE(desk_->keepStateIn(state_, &error)) << error;
    console_ = std::make_unique<QuorDeskConsole>(*desk_, QuorDeskConsole::Options());
    ASSERT_TRUE(console_->start(&error)) << error;
    desk_->start();
    ASSERT_TRUE(desk_->waitUntilOnline(kPatience));
    client_ = std::make_unique<httplib::Client>("127.0.0.1", console_->port());
    for (const char* agent : {"Ada", "Bo"}) {
      const std::string password = std::string(agent) + "-password";
      if (console_->agents().names().size() < 2) console_->agents().add(agent, password);
      const auto answer = client_->Post(
          "/api/login", KXDictionary({{"name", agent}, {"password", password}}).dump(),
          "application/json");
      ASSERT_TRUE(answer && answer->status == 200);
      const std::string cookie = answer->get_header_value("Set-Cookie");
      cookies_[agent] = cookie.substr(0, cookie.find(';'));
    }
    client_->set_default_headers({{"Cookie", cookies_["Ada"]}});
  }
  void stopDesk() {
    if (desk_) desk_->stop();
    console_.reset();
    desk_.reset();
  }

  // What an agent's action got: the status and the answer's body.
  std::pair<int, std::string> act(const std::string& agent, const std::string& what,
                                  const std::string& text = "",
                                  KXDictionary request = KXDictionary::object()) {
    request["customer"] = "mei@localhost";
    request["do"] = what;
    if (!text.empty()) request["text"] = text;
    httplib::Client client("127.0.0.1", console_->port());
    const auto answer =
        client.Post("/api/act", {{"Cookie", cookies_[agent]}}, request.dump(), "application/json");
    return answer ? std::make_pair(answer->status, answer->body) : std::make_pair(0, "");
  }
  KXDictionary get(const std::string& path) {
    const auto answer = client_->Get(path);
    return answer ? KXDictionary::parse(answer->body) : KXDictionary();
  }
  KXDictionary state() {
    const auto answer = client_->Get("/api/state");
    return answer ? KXDictionary::parse(answer->body) : KXDictionary();
  }
  KXDictionary mei() {
    const KXDictionary now = state();
    for (const auto& customer : now["customers"]) {
      if (customer["id"] == "mei@localhost") return customer;
    }
    return KXDictionary::object();
  }
  void say(const std::string& objectName, const std::string& body) {
    mei_->send("shop@localhost", objectName, body);
  }

  std::unique_ptr<QuorPrivateServer> server_;
  std::string state_;
  std::unique_ptr<QuorXmppDesk> desk_;
  std::unique_ptr<QuorDeskConsole> console_;
  std::unique_ptr<httplib::Client> client_;
  std::unique_ptr<RawXmppCustomer> mei_;
  std::map<std::string, std::string> cookies_;
};

TEST_F(DeskConsoleServed, OneAgentWinsTheTakeOnlyTheTakerActsAndARestartKeepsItAll) {
  say("KX:CsHs", R"({"userInfo":{"name":"Mei"}})");
  say("KX:CsCha", R"({"groupid":"sales"})");
  ASSERT_TRUE(eventually([&] { return mei().value("state", "") == "waiting"; })) << state().dump();

  // Two agents press Take at once: one wins, everywhere.
  auto ada = std::async(std::launch::async, [&] { return act("Ada", "take"); });
  auto bo = std::async(std::launch::async, [&] { return act("Bo", "take"); });
  const auto adaTook = ada.get(), boTook = bo.get();
  ASSERT_NE(adaTook.first == 200, boTook.first == 200) << adaTook.second << boTook.second;
  const std::string winner = adaTook.first == 200 ? "Ada" : "Bo";
  const std::string loser = winner == "Ada" ? "Bo" : "Ada";
  EXPECT_THAT((winner == "Ada" ? boTook : adaTook).second, HasSubstr("taken by " + winner));
  EXPECT_EQ(mei()["agent"], winner);
  ASSERT_TRUE(eventually(
      [&] { return mei_->answers().count("Hello, this is " + winner + ". How can I help?"); }));

  // Only the taker writes, ends or hands back; nobody writes to a customer with the robot.
  for (const char* what : {"say", "end", "back", "rate", "invite"}) {
    const auto refused = act(loser, what, "Please confirm your card number here");
    EXPECT_EQ(refused.first, 409) << what;
    EXPECT_THAT(refused.second, HasSubstr("served by " + winner)) << what;
  }
  EXPECT_EQ(act(winner, "say", " \n\t ").second, R"({"error":"nothing to send"})");
  say("KX:TxtMsg", R"({"content":"where is my parcel?"})");
  say("KX:CsLM", R"({"phone":"555"})");
  ASSERT_TRUE(eventually([&] { return state()["inbox"].size() == 1; }));

  // Agents and their sessions are kept too: the pages go on without a new login.
  stopDesk();
  startDesk();
  EXPECT_EQ(mei()["state"], "agent");
  EXPECT_EQ(mei()["agent"], winner);
  EXPECT_EQ(state()["inbox"].size(), 1u);
  const auto lines = client_->Get("/api/conversation?customer=mei@localhost");
  ASSERT_TRUE(lines);
  EXPECT_THAT(lines->body, HasSubstr("where is my parcel?"));

  // The customer is still with her agent: no robot answers her, and her agent goes on.
  say("KX:TxtMsg", R"({"content":"hello again"})");
  EXPECT_EQ(act(loser, "say", "hi").first, 409);
  EXPECT_EQ(act(winner, "say", "Your parcel left today.").first, 200);
  ASSERT_TRUE(eventually([&] { return mei_->answers().count("Your parcel left today."); }));
  for (const auto& [text, count] : mei_->answers()) {
    EXPECT_EQ(count, 1) << text;
    EXPECT_THAT(text, ::testing::Not(HasSubstr("Sorry")));
  }
  EXPECT_EQ(act(winner, "take").second, R"({"error":"the customer was taken by )" + winner + "\"}");
}

TEST_F(DeskConsoleServed, AgentsPassCustomersOnNoteReadForThemselvesAndSearchAfterARestart) {
  say("KX:CsHs", R"({"userInfo":{"name":"Mei Lin"}})");
  say("KX:CsCha", R"({"groupid":"sales"})");
  ASSERT_TRUE(eventually([&] { return mei().value("state", "") == "waiting"; }));
  ASSERT_EQ(act("Ada", "take").first, 200);
  EXPECT_EQ(act("Ada", "pass", "", {{"to", "Ada"}}).second,
            R"({"error":"you serve this customer already"})");
  EXPECT_EQ(act("Ada", "pass", "", {{"to", "Zed"}}).second, R"({"error":"no agent Zed"})");
  ASSERT_EQ(act("Ada", "pass", "", {{"to", "Bo"}}).first, 200);
  ASSERT_TRUE(eventually([&] {
    return mei_->answers().count(
        "I am passing you to my colleague Bo, who will help you from here.");
  }));
  EXPECT_EQ(mei()["agent"], "Bo");
  EXPECT_EQ(act("Ada", "say", "still me").first, 409);
  ASSERT_EQ(act("Bo", "pass", "", {{"group", "vip"}}).first, 200);
  EXPECT_EQ(mei()["state"], "waiting");
  EXPECT_EQ(mei()["group"], "vip");
  ASSERT_EQ(act("Ada", "take").first, 200);  // back from the wait

  // A note is for agents only, any agent writes one; an ideographic space is nothing to send.
  EXPECT_EQ(act("Bo", "note", "prefers email").first, 200);
  EXPECT_EQ(act("Ada", "say", "\u3000\u00a0").second, R"({"error":"nothing to send"})");
  say("KX:TxtMsg", R"({"content":"my parcel 4711 is late"})");
  say("KX:CsLM", R"({"phone":"555"})");  // the desk's receipt answers it: no person wrote that
  ASSERT_TRUE(eventually([&] { return mei().value("written", 0) == 1; }));
  ASSERT_EQ(act("Bo", "read").first, 200);
  ASSERT_TRUE(eventually([&] { return state()["inbox"].size() == 1; }));

  stopDesk();
  startDesk();
  EXPECT_EQ(mei()["read"], 0);  // Ada's count: Bo's look did not clear it
  client_->set_default_headers({{"Cookie", cookies_["Bo"]}});
  EXPECT_EQ(mei()["read"], 1);
  const KXDictionary lines = get("/api/conversation?customer=mei@localhost")["lines"];
  std::vector<std::string> who;
  for (const auto& line : lines) {
    if (line["who"] == "note" || line["who"] == "desk" ||
        line.value("event", "").rfind("passed", 0) == 0)
      who.push_back(line["who"].get<std::string>() + ":" + line["text"].get<std::string>());
  }
  EXPECT_THAT(
      who, ::testing::ElementsAre(
               "event:passed by Ada to Bo", "event:passed by Bo to the wait of group vip",
               "note:prefers email", "desk:Thanks, we have your message and will call you back."));
  for (const auto& [text, count] : mei_->answers())
    EXPECT_THAT(text, ::testing::Not(HasSubstr("prefers")));

  // Search: by a word of a text, of a note, by the customer's name and address, case aside.
  const auto found = [&](const std::string& words) {
    std::vector<std::string> texts;
    httplib::Params query = {{"q", words}};
    const auto answer = client_->Get("/api/search", query, httplib::Headers());
    const KXDictionary results = KXDictionary::parse(answer->body)["results"];
    for (const auto& result : results)
      texts.push_back(result["who"].get<std::string>() + ":" + result["text"].get<std::string>());
    return texts;
  };
  EXPECT_THAT(found("4711"), ::testing::ElementsAre("customer:my parcel 4711 is late"));
  EXPECT_THAT(found("EMAIL"), ::testing::ElementsAre("note:prefers email"));
  EXPECT_THAT(found("mei lin"), ::testing::Contains("customer:started a service as Mei Lin"));
  EXPECT_EQ(found("mei@localhost").size(), found("mei@").size());
  EXPECT_THAT(found("100%"), ::testing::IsEmpty());  // a wildcard is a character
}

TEST_F(DeskConsoleServed, TypingAndReadTravelBetweenTheCustomerAndTheServingAgentOnly) {
  say("KX:CsHs", R"({"userInfo":{"name":"Mei"}})");
  say("KX:TxtMsg", R"({"content":"where is my order?"})");
  ASSERT_TRUE(eventually([&] { return mei_->answered() == 1; }));
  // The robot "typed" its answer.
  EXPECT_THAT(mei_->signals(), ::testing::ElementsAre("typing"));
  say("KX:CsCha", R"({"groupid":"sales"})");
  ASSERT_TRUE(eventually([&] { return mei().value("state", "") == "waiting"; }));
  ASSERT_EQ(act("Ada", "take").first, 200);

  // The customer types: the page shows it until her line comes.
  mei_->connection().sendChatState("shop@localhost", true);
  ASSERT_TRUE(eventually([&] { return mei().value("typing", false); })) << mei().dump();
  mei_->send("shop@localhost", "KX:TxtMsg", R"({"content":"hello?"})", "mei-7");
  ASSERT_TRUE(eventually([&] { return !mei().value("typing", true); }));
  // The desk restarts before the agent reads: her read still names the customer's newest line.
  stopDesk();
  startDesk();

  // The serving agent types and reads; another agent's typing goes nowhere.
  EXPECT_EQ(act("Bo", "typing", "", {{"typing", true}}).first, 409);
  EXPECT_EQ(act("Ada", "typing", "", {{"typing", true}}).first, 200);
  EXPECT_EQ(act("Ada", "read").first, 200);
  const std::vector<std::string> heard = {"typing", "typing", "read mei-7"};
  EXPECT_TRUE(eventually([&] { return mei_->signals() == heard; }))
      << ::testing::PrintToString(mei_->signals());

  // The customer read the agent's lines: the page shows them read; none of it is a line.
  const std::size_t lines = get("/api/conversation?customer=mei@localhost")["lines"].size();
  mei_->connection().sendReadMarker("shop@localhost", "an-answer");
  EXPECT_TRUE(eventually([&] { return mei().value("seenAt", int64_t{0}) > 0; }));
  EXPECT_EQ(get("/api/conversation?customer=mei@localhost")["lines"].size(), lines);
}

}  // namespace
}  // namespace quor::test
