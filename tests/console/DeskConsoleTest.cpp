// The console's HTTP side without a browser: the token, the API's answers to bad requests, and
// the live event stream, also while the console stops. The desk is not connected; the board is
// fed directly, as the desk's network thread would.
#include <gmock/gmock.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "QuorDeskConsole/QuorDeskConsole.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"

namespace quor {
namespace {

using ::testing::HasSubstr;

QuorXmppOptions unconnected() {
  QuorXmppOptions options;
  options.jid = "desk@localhost";
  options.password = "unused";
  return options;
}

// The session cookie of a login or setup answer; "" when none was set.
std::string sessionOf(const httplib::Result& answer) {
  if (!answer) return "";
  const std::string set = answer->get_header_value("Set-Cookie");
  return set.substr(0, set.find(';'));
}

class DeskConsole : public ::testing::Test {
 protected:
  void SetUp() override {
    console_ = std::make_unique<QuorDeskConsole>(desk_, QuorDeskConsole::Options());
    std::string error;
    ASSERT_TRUE(console_->start(&error)) << error;
    client_ = std::make_unique<httplib::Client>("127.0.0.1", console_->port());
  }

  // Ada's logged-in client.
  std::unique_ptr<httplib::Client> ada() {
    if (console_->agents().names().empty()) {
      EXPECT_EQ(console_->agents().add("Ada", "ada-password"), "");
    }
    const std::string cookie = sessionOf(client_->Post(
        "/api/login", R"({"name":"Ada","password":"ada-password"})", "application/json"));
    EXPECT_NE(cookie, "");
    auto made = std::make_unique<httplib::Client>("127.0.0.1", console_->port());
    made->set_default_headers({{"Cookie", cookie}});
    return made;
  }

  void handshake(const std::string& customer, const std::string& name) {
    console_->board().record(
        {customer, 1000, true, "KX:CsHs", R"({"userInfo":{"name":")" + name + R"("}})", "", ""});
  }

  QuorXmppDesk desk_{QuorDeskSimulator::defaultProfile(), unconnected()};
  std::unique_ptr<QuorDeskConsole> console_;
  std::unique_ptr<httplib::Client> client_;
};

TEST_F(DeskConsole, ServesNoDataWithoutALoginAndTheFirstAgentSignsUpOnce) {
  const auto page = client_->Get("/");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_THAT(page->get_header_value("Content-Security-Policy"), HasSubstr("script-src 'self'"));
  const std::vector<std::string> cookies = {"", "quor_cs_agent=", "quor_cs_agent=wrong",
                                            "quor_cs_agent=" + std::string(64, '0')};
  for (const std::string path :
       {"/api/state", "/api/conversation?customer=x", "/api/events", "/api/nothing"}) {
    for (const auto& cookie : cookies) {
      const auto answer = client_->Get(path, {{"Cookie", cookie}});
      ASSERT_TRUE(answer) << path;
      EXPECT_EQ(answer->status, 401) << path << " " << cookie;
      EXPECT_EQ(answer->get_header_value("Cross-Origin-Resource-Policy"), "same-origin");
    }
  }

  // A fresh desk: a one-time link makes the first agent, with a password that is not weak.
  const std::string link = console_->setupLink();
  ASSERT_THAT(link, HasSubstr("#setup="));
  const std::string code = link.substr(link.find('=') + 1);
  auto setUp = [&](const std::string& given, const std::string& password) {
    const KXDictionary body = {{"code", given}, {"name", "Ada"}, {"password", password}};
    return client_->Post("/api/setup", body.dump(), "application/json");
  };
  EXPECT_THAT(setUp("wrong", "ada-password")->body, HasSubstr("used already"));
  EXPECT_THAT(setUp(code, "short")->body, HasSubstr("at least 10"));
  const std::string cookie = sessionOf(setUp(code, "ada-password"));
  ASSERT_THAT(cookie, HasSubstr("quor_cs_agent="));
  EXPECT_EQ(setUp(code, "ada-password")->status, 409);  // once
  EXPECT_EQ(console_->setupLink(), "");
  const auto state = client_->Get("/api/state", {{"Cookie", cookie}});
  ASSERT_TRUE(state);
  EXPECT_EQ(state->status, 200);
  EXPECT_EQ(state->get_header_value("Content-Type"), "application/json; charset=utf-8");

  // Logins: a wrong password or name gets nothing; a logout ends the session.
  for (const char* wrong : {R"({"name":"Ada","password":"ada-passwore"})",
                            R"({"name":"Bo","password":"ada-password"})", "{}"}) {
    const auto refused = client_->Post("/api/login", wrong, "application/json");
    EXPECT_EQ(refused->status, 401) << wrong;
    EXPECT_EQ(sessionOf(refused), "") << wrong;
  }
  client_->Post("/api/logout", {{"Cookie", cookie}}, "{}", "application/json");
  EXPECT_EQ(client_->Get("/api/state", {{"Cookie", cookie}})->status, 401);
}

TEST_F(DeskConsole, AnotherPageCanNeitherActNorPostPlainText) {
  auto agent = ada();
  const std::string act = R"({"customer":"nobody@localhost","do":"read"})";
  const std::string own = "http://127.0.0.1:" + std::to_string(console_->port());
  const struct {
    std::string origin, type;
    int status;
  } cases[] = {
      {"http://127.0.0.1:8081", "application/json", 403},  // another local page, same site
      {"null", "application/json", 403},
      {own, "text/plain", 415},  // a simple request needs no preflight: refused
      {own, "application/x-www-form-urlencoded", 415},
      {"", "text/plain;charset=UTF-8", 415},
      {own, "application/json", 200},
      {"", "application/json", 200},  // not a browser: the cookie alone speaks
  };
  for (const auto& c : cases) {
    httplib::Headers headers;
    if (!c.origin.empty()) headers.emplace("Origin", c.origin);
    const auto answer = agent->Post("/api/act", headers, act, c.type.c_str());
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, c.status) << c.origin << " " << c.type;
  }
}

TEST_F(DeskConsole, AnswersEveryBadRequestWithAReason) {
  const std::string deep(60000, '[');
  const struct {
    std::string body;
    int status;
    std::string reason;
  } cases[] = {
      {"", 400, "not a JSON object"},
      {"not json", 400, "not a JSON object"},
      {"[1]", 400, "not a JSON object"},
      {deep, 400, "not a JSON object"},
      {std::string(100000, ' '), 413, ""},  // beyond the longest body
      {"{}", 409, "not with the desk"},
      {R"({"agent":5,"do":"take"})", 409, "not with the desk"},
      {R"({"customer":"nobody@localhost","do":"take"})", 409, "not with the desk"},
      {R"({"customer":"nobody@localhost","do":"dance"})", 409, "not with the desk"},
      {R"({"customer":"nobody@localhost","do":"read"})", 200, "\"ok\":true"},
  };
  auto agent = ada();
  for (const auto& c : cases) {
    const auto answer = agent->Post("/api/act", c.body, "application/json; charset=utf-8");
    ASSERT_TRUE(answer) << c.body.substr(0, 40);
    EXPECT_EQ(answer->status, c.status) << c.body.substr(0, 40);
    EXPECT_THAT(answer->body, HasSubstr(c.reason)) << c.body.substr(0, 40);
  }
  const auto missing = agent->Get("/api/conversation?customer=nobody");
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->status, 404);

  // A body of unsaid length (not read); a file unnamed, or for a customer the agent does not serve
  // (its bytes read and dropped, so the answer comes whole).
  const auto unsaid = agent->Post(
      "/api/act",
      [](std::size_t, httplib::DataSink& sink) {
        sink.write("{}", 2);
        sink.done();
        return true;
      },
      "application/json");
  // Refused before the body is read: the answer, or the link closed while the client writes.
  EXPECT_TRUE(!unsaid || unsaid->status == 411) << unsaid->status;
  const std::string bytes(200000, 'x');
  const auto unnamed = agent->Post("/api/attach?customer=nobody@localhost", "xx", "image/png");
  ASSERT_TRUE(unnamed);
  EXPECT_EQ(unnamed->status, 400);
  EXPECT_THAT(unnamed->body, HasSubstr("name the file"));
  const auto notServed = agent->Post("/api/attach?customer=nobody@localhost",
                                     {{"X-File-Name", "a.png"}}, bytes, "image/png");
  ASSERT_TRUE(notServed);
  EXPECT_EQ(notServed->status, 409);
  EXPECT_THAT(notServed->body, HasSubstr("take the customer first"));
}

TEST_F(DeskConsole, StreamsWhatHappensAndStopsWithItsStreamsOpen) {
  std::mutex lock;
  std::string received;
  std::promise<void> sawMei;
  std::atomic<bool> told{false};
  // A page that follows the stream from a garbled position: it gets every event from the start.
  auto agent = ada();
  std::thread page([&] {
    agent->Get("/api/events", {{"Last-Event-ID", "garbage"}}, [&](const char* data, size_t size) {
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

TEST_F(DeskConsole, IdleAndManyClientsDoNotStopItServingOthers) {
  auto agent = ada();
  // 40 peers that start a request and then say nothing.
  std::vector<int> idle;
  for (int i = 0; i < 40; ++i) {
    const int peer = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(console_->port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(peer, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const char start[] = "GET /api/state HTTP/1.1\r\nHost: x";
    ASSERT_GT(::send(peer, start, sizeof start - 1, 0), 0);
    idle.push_back(peer);
  }
  // As many pages as may follow the desk, and one more.
  std::vector<std::unique_ptr<httplib::Client>> pages;
  std::vector<std::thread> following;
  std::atomic<int> refused{0};
  for (std::size_t i = 0; i <= QuorDeskConsole::Options().eventStreams; ++i) {
    pages.push_back(ada());
    // A stream waits between keep-alives longer than the client's usual read timeout; on a slow
    // machine the logins of the later pages take that long too.
    pages.back()->set_read_timeout(std::chrono::minutes(5));
    following.emplace_back([&refused, page = pages.back().get()] {
      const auto answer = page->Get("/api/events", [](const char*, size_t) { return true; });
      if (answer && answer->status == 503) ++refused;
    });
  }
  const auto state = agent->Get("/api/state");
  ASSERT_TRUE(state);
  EXPECT_EQ(state->status, 200);
  // The idle peers are let go after the read timeout: they hold no thread.
  for (const int peer : idle) {
    timeval patience{10, 0};
    ::setsockopt(peer, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char answer[512];
    ssize_t got;
    while ((got = ::recv(peer, answer, sizeof answer, 0)) > 0) {
    }
    EXPECT_EQ(got, 0);  // the console ended the connection
    ::close(peer);
  }
  // The one page too many is answered 503 while the others follow (a slow machine may take a
  // while to read all the requests); the others end with the console.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (refused == 0 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  console_->stop();
  for (auto& page : following) page.join();
  EXPECT_EQ(refused, 1);
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
