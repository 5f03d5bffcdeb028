// The console's HTTP side without a browser: the token, the API's answers to bad requests, and
// the live event stream, also while the console stops. The desk is not connected; the board is
// fed directly, as the desk's network thread would.
#include <gmock/gmock.h>
#include <httplib.h>

#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "QuorDeskConsole/QuorDeskConsole.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"

namespace quor {
namespace {

using ::testing::HasSubstr;

const std::string kToken = "test-token-0123456789abcdef0123456";

QuorXmppOptions unconnected() {
  QuorXmppOptions options;
  options.jid = "desk@localhost";
  options.password = "unused";
  return options;
}

class DeskConsole : public ::testing::Test {
 protected:
  void SetUp() override {
    QuorDeskConsole::Options options;
    options.token = kToken;
    console_ = std::make_unique<QuorDeskConsole>(desk_, options);
    std::string error;
    ASSERT_TRUE(console_->start(&error)) << error;
    client_ = std::make_unique<httplib::Client>("127.0.0.1", console_->port());
  }

  void handshake(const std::string& customer, const std::string& name) {
    console_->board().record(
        {customer, 1000, true, "KX:CsHs", R"({"userInfo":{"name":")" + name + R"("}})", "", ""});
  }

  QuorXmppDesk desk_{QuorDeskSimulator::defaultProfile(), unconnected()};
  std::unique_ptr<QuorDeskConsole> console_;
  std::unique_ptr<httplib::Client> client_;
};

TEST_F(DeskConsole, ServesNothingWithoutItsToken) {
  for (const std::string path : {"/", "/console.js", "/console.css", "/api/state",
                                 "/api/conversation?customer=x", "/api/events", "/nothing"}) {
    const char* join = path.find('?') == std::string::npos ? "?" : "&";
    for (const std::string& given : std::vector<std::string>{
             "", "token=", "token=wrong", "token=" + kToken + "0", "token=" + kToken.substr(1)}) {
      const auto answer = client_->Get(path + join + given);
      ASSERT_TRUE(answer) << path;
      EXPECT_EQ(answer->status, 403) << path << join << given;
      EXPECT_THAT(answer->body, HasSubstr("needs its link with the token"));
    }
  }
  const auto page = client_->Get("/?token=" + kToken);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_THAT(page->get_header_value("Content-Security-Policy"), HasSubstr("script-src 'self'"));
  EXPECT_THAT(page->body, HasSubstr(kToken));  // the page's own requests carry it
  const auto state = client_->Get("/api/state", {{"X-Quor-Token", kToken}});
  ASSERT_TRUE(state);
  EXPECT_EQ(state->status, 200);
  EXPECT_EQ(state->get_header_value("Content-Type"), "application/json; charset=utf-8");
}

TEST_F(DeskConsole, AnswersEveryBadRequestWithAReason) {
  const std::string deep(100000, '[');
  const struct {
    std::string body;
    int status;
    std::string reason;
  } cases[] = {
      {"", 400, "not a JSON object"},
      {"not json", 400, "not a JSON object"},
      {"[1]", 400, "not a JSON object"},
      {deep, 400, "not a JSON object"},
      {"{}", 409, "log in with your name first"},
      {R"({"agent":5,"do":"take"})", 409, "log in with your name first"},
      {R"({"agent":"Ada","customer":"nobody@localhost","do":"take"})", 409, "not with the desk"},
      {R"({"agent":"Ada","customer":"nobody@localhost","do":"dance"})", 409, "not with the desk"},
      {R"({"agent":"Ada","customer":"nobody@localhost","do":"read"})", 200, "\"ok\":true"},
  };
  for (const auto& c : cases) {
    const auto answer =
        client_->Post("/api/act?token=" + kToken, c.body, "application/json; charset=utf-8");
    ASSERT_TRUE(answer) << c.body.substr(0, 40);
    EXPECT_EQ(answer->status, c.status) << c.body.substr(0, 40);
    EXPECT_THAT(answer->body, HasSubstr(c.reason)) << c.body.substr(0, 40);
  }
  const auto missing = client_->Get("/api/conversation?customer=nobody&token=" + kToken);
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->status, 404);
}

TEST_F(DeskConsole, StreamsWhatHappensAndStopsWithItsStreamsOpen) {
  std::mutex lock;
  std::string received;
  std::promise<void> sawMei;
  std::atomic<bool> told{false};
  // A page that follows the stream from a garbled position: it gets every event from the start.
  std::thread page([&] {
    client_->Get("/api/events?token=" + kToken, {{"Last-Event-ID", "garbage"}},
                 [&](const char* data, size_t size) {
                   std::lock_guard<std::mutex> hold(lock);
                   received.append(data, size);
                   if (received.find("Mei <b>") != std::string::npos && !told.exchange(true)) {
                     sawMei.set_value();
                   }
                   return true;
                 });
  });
  handshake("mei@localhost", "Mei <b>");
  ASSERT_EQ(sawMei.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  {
    std::lock_guard<std::mutex> hold(lock);
    EXPECT_THAT(received, HasSubstr("retry: 1000\n\n"));
    EXPECT_THAT(received, HasSubstr("id: 1\ndata: "));
  }
  console_->stop();  // returns although the page still follows; the stream ends
  page.join();
}

TEST_F(DeskConsole, SaysWhyItCannotListen) {
  QuorDeskConsole::Options taken;
  taken.port = console_->port();
  QuorDeskConsole second(desk_, taken);
  std::string error;
  EXPECT_FALSE(second.start(&error));
  EXPECT_EQ(error, "cannot listen on 127.0.0.1:" + std::to_string(console_->port()));
}

TEST_F(DeskConsole, StopsRightAfterItStarts) {
  for (int round = 0; round < 50; ++round) {
    QuorDeskConsole brief(desk_, {});
    std::string error;
    ASSERT_TRUE(brief.start(&error)) << error;
    brief.stop();  // a hang here is the fault
  }
}

}  // namespace
}  // namespace quor
