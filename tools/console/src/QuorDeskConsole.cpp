#include "QuorDeskConsole/QuorDeskConsole.h"

#include <httplib.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>

#include "KXJsonTree.h"
#include "QuorConsoleAssets.h"

namespace quor {
namespace {

constexpr auto kKeepAlive = std::chrono::seconds(15);
// Enough HTTP threads for the open pages' event streams (one each) and their requests.
constexpr std::size_t kHttpThreads = 32;
// A token that guessing cannot find: the random ones have 32 hex digits (128 bits).
constexpr std::size_t kShortestToken = 32;

std::string randomToken() {
  std::random_device device;
  static const char* const kHex = "0123456789abcdef";
  std::string token;
  for (int i = 0; i < 32; ++i) token += kHex[device() % 16];
  return token;
}

// Compares without stopping at the first difference.
bool sameToken(const std::string& given, const std::string& token) {
  if (given.size() != token.size()) return false;
  unsigned char difference = 0;
  for (std::size_t i = 0; i < token.size(); ++i) difference |= given[i] ^ token[i];
  return difference == 0;
}

std::string text(const KXDictionary& object, const char* key) {
  if (!object.is_object()) return "";
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get<std::string>() : "";
}

void sendJson(httplib::Response& response, const KXDictionary& value, int status = 200) {
  response.status = status;
  response.set_content(value.dump(-1, ' ', false, KXDictionary::error_handler_t::replace),
                       "application/json; charset=utf-8");
}

}  // namespace

QuorDeskConsole::QuorDeskConsole(QuorXmppDesk& desk, Options options)
    : desk_(desk), options_(std::move(options)), board_(options_.limits) {
  if (options_.token.empty()) options_.token = randomToken();
}

QuorDeskConsole::~QuorDeskConsole() { stop(); }

std::string QuorDeskConsole::link() const {
  const bool v6 = options_.address.find(':') != std::string::npos;
  return "http://" + (v6 ? "[" + options_.address + "]" : options_.address) + ":" +
         std::to_string(port_) + "/?token=" + options_.token;
}

bool QuorDeskConsole::start(std::string* error) {
  if (options_.token.size() < kShortestToken) {
    if (error)
      *error = "the console's token must have at least " + std::to_string(kShortestToken) +
               " characters (a random one is made when none is given)";
    return false;
  }
  server_ = std::make_unique<httplib::Server>();
  server_->new_task_queue = [] { return new httplib::ThreadPool(kHttpThreads); };
  // The library's default adds SO_REUSEPORT, with which a second console (a desk started twice)
  // would bind the same port and take half of the pages' requests. SO_REUSEADDR alone still lets
  // a restarted desk take its port back at once.
  server_->set_socket_options([](socket_t socket) {
    int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  });
  routes();
  port_ = options_.port == 0
              ? server_->bind_to_any_port(options_.address)
              : (server_->bind_to_port(options_.address, options_.port) ? options_.port : -1);
  if (port_ <= 0) {
    if (error)
      *error = "cannot listen on " + options_.address + ":" + std::to_string(options_.port);
    server_.reset();
    return false;
  }
  // The board starts from what the desk kept, then follows it live.
  desk_.store().eachRecord([this](const QuorDeskStore::Record& record) { board_.record(record); });
  desk_.servedByPeople([this](const QuorDeskStore::Record& record) { board_.record(record); });
  auto listening = std::make_shared<std::atomic<bool>>(true);
  thread_ = std::thread([this, listening] {
    server_->listen_after_bind();
    *listening = false;
  });
  // Until the server runs, its stop() would do nothing and the thread would serve for ever: a
  // stop() right after start() must find it running.
  while (!server_->is_running() && *listening) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

void QuorDeskConsole::stop() {
  if (!server_) return;
  desk_.servedByPeople(nullptr);
  board_.close();
  server_->stop();
  if (thread_.joinable()) thread_.join();
  server_.reset();
}

void QuorDeskConsole::routes() {
  using httplib::Request;
  using httplib::Response;
  server_->set_default_headers({
      {"Content-Security-Policy",
       "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
       "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
      {"X-Content-Type-Options", "nosniff"},
      {"Referrer-Policy", "no-referrer"},
      {"Cache-Control", "no-store"},
  });
  // Nothing is served without the token.
  server_->set_pre_routing_handler([this](const Request& request, Response& response) {
    std::string given = request.get_param_value("token");
    if (given.empty()) given = request.get_header_value("X-Quor-Token");
    if (sameToken(given, options_.token)) return httplib::Server::HandlerResponse::Unhandled;
    response.status = 403;
    response.set_content(
        "This agent console needs its link with the token: the desk printed it when it started.\n",
        "text/plain; charset=utf-8");
    return httplib::Server::HandlerResponse::Handled;
  });
  server_->Get("/", [this](const Request&, Response& response) {
    std::string page(console::kIndexHtml);
    const std::string mark = "{{TOKEN}}";
    for (auto at = page.find(mark); at != std::string::npos; at = page.find(mark, at)) {
      page.replace(at, mark.size(), options_.token);
    }
    response.set_content(page, "text/html; charset=utf-8");
  });
  server_->Get("/console.js", [](const Request&, Response& response) {
    response.set_content(console::kConsoleJs, "text/javascript; charset=utf-8");
  });
  server_->Get("/console.css", [](const Request&, Response& response) {
    response.set_content(console::kConsoleCss, "text/css; charset=utf-8");
  });
  server_->Get("/api/state",
               [this](const Request&, Response& response) { sendJson(response, board_.state()); });
  server_->Get("/api/conversation", [this](const Request& request, Response& response) {
    const KXDictionary found = board_.conversation(request.get_param_value("customer"));
    if (found.is_null()) return sendJson(response, {{"error", "no such customer"}}, 404);
    sendJson(response, found);
  });
  server_->Get("/api/events", [this](const Request& request, Response& response) {
    std::string from = request.get_header_value("Last-Event-ID");
    if (from.empty()) from = request.get_param_value("after");
    uint64_t after = 0;
    try {
      after = from.empty() ? 0 : std::stoull(from);
    } catch (...) {
      after = 0;
    }
    auto last = std::make_shared<uint64_t>(after);
    response.set_chunked_content_provider(
        "text/event-stream", [this, last](std::size_t offset, httplib::DataSink& sink) {
          // At once, so that the page knows the stream is open; then the events as they come.
          if (offset == 0) return sink.write("retry: 1000\n\n", 13);
          std::string out;
          bool reload = false;
          const auto events = board_.eventsAfter(*last, kKeepAlive, &reload);
          if (reload) {
            out += "event: reload\ndata: {}\n\n";
            sink.write(out.data(), out.size());
            return false;  // the page reloads its state and follows again
          }
          for (const auto& event : events) {
            out += "id: " + std::to_string(++*last) + "\ndata: " + event + "\n\n";
          }
          if (out.empty()) out = ": keep-alive\n\n";
          return sink.write(out.data(), out.size());
        });
  });
  server_->Post("/api/act", [this](const Request& request, Response& response) {
    const auto parsed = KXJsonTree::parse(request.body, KXJsonTree::kMaxDepth);
    if (!parsed || !parsed->is_object()) {
      return sendJson(response, {{"error", "the request is not a JSON object"}}, 400);
    }
    const std::string problem = act(*parsed);
    if (problem.empty()) return sendJson(response, {{"ok", true}});
    sendJson(response, {{"error", problem}}, 409);
  });
}

std::string QuorDeskConsole::act(const KXDictionary& request) {
  const std::string agent = text(request, "agent");
  const std::string customer = text(request, "customer");
  const std::string what = text(request, "do");
  const std::string said = text(request, "text");
  if (agent.empty()) return "log in with your name first";
  if (what == "read") {
    board_.markRead(customer);
    return "";
  }
  // The desk decides, one step at a time: one agent wins a Take, and only the agent who took a
  // customer writes to them, hands them back or ends their service.
  return desk_.step(customer, [&](QuorDeskSimulator& session) -> std::string {
    if (what == "take") {
      const std::string greeting =
          said.empty() ? "Hello, this is " + agent + ". How can I help?" : said;
      if (session.takeByAgent(agent, greeting)) return "";
      return session.takenBy().empty() ? "the customer is not waiting any more"
                                       : "the customer was taken by " + session.takenBy();
    }
    if (what == "decline") {
      const auto status = request.find("status");
      const bool refuse = status != request.end() && status->is_number_integer() &&
                          status->get<int64_t>() == KXCSChangeModeRefused;
      return session.declineAgent(refuse ? KXCSChangeModeRefused : KXCSChangeModeNoAgent)
                 ? ""
                 : "the customer is not waiting any more";
    }
    if (session.takenBy() != agent) {
      return session.takenBy().empty() ? "take the customer first"
                                       : "the customer is served by " + session.takenBy();
    }
    if (what == "say") {
      if (said.find_first_not_of(" \t\r\n") == std::string::npos) return "nothing to send";
      session.say(said);
    } else if (what == "rate") {
      session.requestEvaluation();
    } else if (what == "back") {
      session.endService(said, KXCSTerminateBackToRobot);
    } else if (what == "end") {
      session.endService(said, KXCSTerminateEndService);
    } else if (what == "invite") {
      session.inviteLeaveMessage(said.empty() ? "Leave us a message and we will get back to you."
                                              : said);
    } else {
      return "unknown action";
    }
    return "";
  });
}

}  // namespace quor
