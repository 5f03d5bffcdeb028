#include "QuorDeskConsole/QuorDeskConsole.h"

#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>

#include "KXJsonMembers.h"
#include "KXJsonTree.h"
#include "QuorConsoleAssets.h"
#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorHostBase/QuorFileCache.h"

namespace quor {
namespace {

// A page's stream hears from the desk at least this often: a closed page is noticed then.
constexpr auto kKeepAlive = std::chrono::seconds(5);
// Enough HTTP threads for the pages' event streams and requests, with room beside slow peers.
constexpr std::size_t kHttpThreads = 64;
constexpr std::size_t kLongestBody = 64 * 1024;
constexpr const char* kCookie = "quor_cs_agent";
constexpr const char* kAttachPath = "/api/attach";
// The attached file's name, percent-encoded UTF-8 (encodeURIComponent).
constexpr const char* kFileNameHeader = "X-File-Name";
// The files that wait while they go up, in Options::uploadDirectory.
constexpr const char* kSpoolPrefix = "attached-";
// The largest file the console fetches to show or hand out; a larger one is refused (413).
constexpr uint64_t kLargestShownFile = 25 * 1024 * 1024;

// The Content-Disposition of a file served under `name`: the name made safe (no path, no quote,
// no line break), an ASCII fallback and the UTF-8 form percent-encoded.
std::string disposition(bool inlinePicture, const std::string& name) {
  const std::string safe = QuorFileCache::safeName(name);
  std::string ascii, encoded;
  static const char* hex = "0123456789ABCDEF";
  for (unsigned char c : safe) {
    ascii += c < 0x80 && c != '"' && c != '\\' && c != '%' ? static_cast<char>(c) : '_';
    const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                       c == '.' || c == '-' || c == '_';
    if (plain) {
      encoded += static_cast<char>(c);
    } else {
      encoded += '%';
      encoded += hex[c >> 4];
      encoded += hex[c & 15];
    }
  }
  return std::string(inlinePicture ? "inline" : "attachment") + "; filename=\"" + ascii +
         "\"; filename*=UTF-8''" + encoded;
}

// The value of the cookie `name` in a Cookie header; "" when absent.
std::string cookieValue(const std::string& header, const std::string& name) {
  std::size_t at = 0;
  while (at < header.size()) {
    const std::size_t end = std::min(header.find(';', at), header.size());
    std::size_t start = header.find_first_not_of(' ', at);
    if (start < end && header.compare(start, name.size() + 1, name + "=") == 0)
      return header.substr(start + name.size() + 1, end - start - name.size() - 1);
    at = end + 1;
  }
  return "";
}

// Whether `text` holds nothing to read: only white space (Unicode's, as a browser's trim() and
// CJK input methods make it, and the zero-width ones) or nothing.
bool blank(const std::string& text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x80) {
      if (std::string(" \t\r\n\v\f").find(static_cast<char>(byte)) == std::string::npos)
        return false;
      ++at;
      continue;
    }
    const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
    uint32_t point = byte & (length == 4 ? 0x07 : length == 3 ? 0x0F : 0x1F);
    for (std::size_t i = 1; i < length && at + i < text.size(); ++i)
      point = (point << 6) | (static_cast<unsigned char>(text[at + i]) & 0x3F);
    const bool space = point == 0x85 || point == 0xA0 || point == 0x1680 ||
                       (point >= 0x2000 && point <= 0x200B) || point == 0x2028 || point == 0x2029 ||
                       point == 0x202F || point == 0x205F || point == 0x3000 || point == 0xFEFF;
    if (!space) return false;
    at += length;
  }
  return true;
}

// A file of its own for bytes on their way through the console (an attached file going up, a
// file handed to a page), so that memory does not grow with them; removed with the spool.
class Spool {
 public:
  explicit Spool(const std::string& directory) : path_(directory + "/" + kSpoolPrefix + "XXXXXX") {
    std::error_code failed;
    std::filesystem::create_directories(directory, failed);
    descriptor_ = ::mkstemp(path_.data());
  }
  ~Spool() {
    if (descriptor_ < 0) return;
    ::close(descriptor_);
    ::unlink(path_.c_str());
  }
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;
  bool ok() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int descriptor_ = -1;
};

void sendJson(httplib::Response& response, const KXDictionary& value, int status = 200) {
  response.status = status;
  response.set_content(value.dump(-1, ' ', false, KXDictionary::error_handler_t::replace),
                       "application/json; charset=utf-8");
}

}  // namespace

QuorDeskConsole::QuorDeskConsole(QuorXmppDesk& desk, Options options)
    : desk_(desk), options_(std::move(options)), board_(options_.limits), agents_(desk.store()) {}

QuorDeskConsole::~QuorDeskConsole() { stop(); }

std::string QuorDeskConsole::link() const {
  const bool v6 = options_.address.find(':') != std::string::npos;
  return "http://" + (v6 ? "[" + options_.address + "]" : options_.address) + ":" +
         std::to_string(port_) + "/";
}

std::string QuorDeskConsole::setupLink() {
  const std::string code = agents_.setupCode();
  // In the fragment: it never reaches a server's log or another page's Referer.
  return code.empty() ? "" : link() + "#setup=" + code;
}

bool QuorDeskConsole::start(std::string* error) {
  server_ = std::make_unique<httplib::Server>();
  server_->new_task_queue = [] { return new httplib::ThreadPool(kHttpThreads); };
  // A peer that sends its request slowly, or idles between requests, gives its thread up soon.
  server_->set_read_timeout(options_.readTimeout);
  server_->set_write_timeout(std::chrono::seconds(5));
  server_->set_keep_alive_timeout(5);
  server_->set_payload_max_length(kLargestShownFile);
  // The library's default adds SO_REUSEPORT, with which a second console (a desk started twice)
  // would bind the same port and take half of the pages' requests. SO_REUSEADDR alone still lets
  // a restarted desk take its port back at once.
  server_->set_socket_options([](socket_t socket) {
    int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  });
  routes();
  // What a killed console left of files on their way up.
  std::error_code failed;
  if (!options_.uploadDirectory.empty()) {
    for (std::filesystem::directory_iterator it(options_.uploadDirectory, failed), end;
         !failed && it != end; it.increment(failed)) {
      if (it->path().filename().string().rfind(kSpoolPrefix, 0) == 0)
        std::filesystem::remove(it->path(), failed);
    }
  }
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
  desk_.watchSignals(
      {[this](const std::string& customer, bool typing) { board_.typing(customer, typing); },
       [this](const std::string& customer) { board_.seen(customer, QuorConsoleBoard::now()); }});
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
  desk_.watchSignals({});
  board_.close();
  server_->stop();
  if (thread_.joinable()) thread_.join();
  server_.reset();
}

std::string QuorDeskConsole::agentOf(const httplib::Request& request) const {
  return agents_.agentOf(cookieValue(request.get_header_value("Cookie"), kCookie));
}

std::string QuorDeskConsole::refusal(const httplib::Request& request, int* status) const {
  if (request.method != "GET" && request.method != "HEAD") {
    // Another page may post here, and the browser would send the agent's cookie along (same
    // site): its Origin gives it away, and it cannot send JSON without asking first.
    const std::string origin = request.get_header_value("Origin");
    if (!origin.empty() && origin != "http://" + request.get_header_value("Host")) {
      *status = 403;
      return "only the console's own page may act";
    }
    // A file goes as its bytes: the header that names it is what no other page can send
    // without asking first.
    if (request.path == kAttachPath) {
      if (!request.has_header(kFileNameHeader)) {
        *status = 400;
        return std::string("name the file (") + kFileNameHeader + ")";
      }
    } else if (request.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
      *status = 415;
      return "send JSON (Content-Type: application/json)";
    }
  }
  // The server reads up to a file's size: every other body is at most kLongestBody, and says
  // its length.
  if (request.path != kAttachPath && request.has_header("Transfer-Encoding")) {
    *status = 411;
    return "send the request's length";
  }
  if (request.path != kAttachPath &&
      request.get_header_value<uint64_t>("Content-Length") > kLongestBody) {
    *status = 413;
    return "the request is too long";
  }
  const bool open = request.path.rfind("/api/", 0) != 0 || request.path == "/api/login" ||
                    request.path == "/api/setup" || request.path == "/api/me";
  if (!open && agentOf(request).empty()) {
    *status = 401;
    return "log in first";
  }
  return "";
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
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Cross-Origin-Opener-Policy", "same-origin"},
  });
  server_->set_pre_routing_handler([this](const Request& request, Response& response) {
    int status = 0;
    const std::string refused = refusal(request, &status);
    if (refused.empty()) return httplib::Server::HandlerResponse::Unhandled;
    sendJson(response, {{"error", refused}}, status);
    return httplib::Server::HandlerResponse::Handled;
  });
  server_->Get("/", [](const Request&, Response& response) {
    response.set_content(console::kIndexHtml, "text/html; charset=utf-8");
  });
  server_->Get("/console.js", [](const Request&, Response& response) {
    response.set_content(console::kConsoleJs, "text/javascript; charset=utf-8");
  });
  server_->Get("/console-texts.js", [](const Request&, Response& response) {
    response.set_content(console::kConsoleTextsJs, "text/javascript; charset=utf-8");
  });
  server_->Get("/console.css", [](const Request&, Response& response) {
    response.set_content(console::kConsoleCss, "text/css; charset=utf-8");
  });
  auto bodyOf = [](const Request& request) {
    const auto parsed = KXJsonTree::parse(request.body, KXJsonTree::kMaxDepth);
    return parsed && parsed->is_object() ? *parsed : KXDictionary();
  };
  auto session = [](Response& response, const std::string& cookie, const std::string& agent) {
    response.set_header(
        "Set-Cookie",
        std::string(kCookie) + "=" + cookie + "; Path=/; HttpOnly; SameSite=Strict; Max-Age=" +
            std::to_string(std::chrono::seconds(QuorConsoleAgents::kSessionLife).count()));
    sendJson(response, {{"agent", agent}});
  };
  server_->Get("/api/me", [this](const Request& request, Response& response) {
    const std::string agent = agentOf(request);
    if (agent.empty()) {
      return sendJson(response, {{"error", "log in first"}, {"setup", agents_.names().empty()}},
                      401);
    }
    sendJson(response, {{"agent", agent}});
  });
  server_->Post("/api/login", [this, bodyOf, session](const Request& request, Response& response) {
    const KXDictionary body = bodyOf(request);
    const std::string name = KXJsonMembers::text(body, "name");
    const std::string cookie = agents_.logIn(name, KXJsonMembers::text(body, "password"));
    if (cookie.empty()) return sendJson(response, {{"error", "wrong name or password"}}, 401);
    session(response, cookie, name);
  });
  server_->Post("/api/setup", [this, bodyOf, session](const Request& request, Response& response) {
    const KXDictionary body = bodyOf(request);
    std::string cookie;
    const std::string problem =
        agents_.setUp(KXJsonMembers::text(body, "code"), KXJsonMembers::text(body, "name"),
                      KXJsonMembers::text(body, "password"), &cookie);
    if (!problem.empty()) return sendJson(response, {{"error", problem}}, 409);
    session(response, cookie, KXJsonMembers::text(body, "name"));
  });
  server_->Post("/api/logout", [this](const Request& request, Response& response) {
    agents_.logOut(cookieValue(request.get_header_value("Cookie"), kCookie));
    response.set_header("Set-Cookie",
                        std::string(kCookie) + "=; Path=/; HttpOnly; SameSite=Strict; Max-Age=0");
    sendJson(response, {{"ok", true}});
  });
  server_->Get("/api/state", [this](const Request& request, Response& response) {
    KXDictionary state = board_.state(agentOf(request));
    state["agents"] = agents_.names();
    KXDictionary groups = KXDictionary::array();
    for (const auto& group : KXJsonMembers::list(desk_.profile(), "groups")) {
      groups.push_back(
          {{"id", KXJsonMembers::text(group, "id")}, {"name", KXJsonMembers::text(group, "name")}});
    }
    state["groups"] = groups;
    state["replies"] = replies();
    sendJson(response, state);
  });
  server_->Get("/api/search", [this](const Request& request, Response& response) {
    sendJson(response, search(request.get_param_value("q")));
  });
  server_->Get("/api/conversation", [this](const Request& request, Response& response) {
    const KXDictionary found =
        board_.conversation(request.get_param_value("customer"), agentOf(request));
    if (found.is_null()) return sendJson(response, {{"error", "no such customer"}}, 404);
    sendJson(response, found);
  });
  // A file of a conversation, fetched by the desk and served so that no browser runs it: what
  // its bytes show to be a PNG, JPEG, GIF or WebP picture inline as that picture (never SVG or
  // HTML), anything else as a download; only files the board shows.
  server_->Get("/api/file", [this](const Request& request, Response& response) {
    const std::string url = request.get_param_value("url");
    const KXDictionary file = board_.fileOf(request.get_param_value("customer"), url);
    if (file.is_null()) return sendJson(response, {{"error", "no such file"}}, 404);
    // Fetched into a spool and handed out in pieces: a page's file costs no memory of its size.
    auto spool = std::make_shared<Spool>(spoolDirectory());
    if (!spool->ok())
      return sendJson(response, {{"error", "the console cannot keep the file while it goes"}}, 500);
    const std::string failed = desk_.fetchFile(url, kLargestShownFile, spool->path());
    if (failed == "larger than announced")
      return sendJson(response, {{"error", "the file is too large to serve here"}}, 413);
    if (!failed.empty())
      return sendJson(response, {{"error", "the file could not be fetched: " + failed}}, 502);
    std::error_code unknown;
    const uint64_t size = std::filesystem::file_size(spool->path(), unknown);
    const std::string type = KXCSFileType::sniff(spool->path()).type;
    const bool picture =
        type == "image/png" || type == "image/jpeg" || type == "image/gif" || type == "image/webp";
    // "nosniff" comes with every answer of the console; the sandbox keeps a file opened in its
    // own tab from running anything.
    response.set_header("Content-Security-Policy", "default-src 'none'; sandbox");
    response.set_header("Cache-Control", "private, max-age=86400");
    response.set_header("Content-Disposition",
                        disposition(picture, KXJsonMembers::text(file, "name")));
    response.set_content_provider(
        size, picture ? type : "application/octet-stream",
        [spool](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
          char piece[64 * 1024];
          const ssize_t read = ::pread(spool->descriptor(), piece, std::min(length, sizeof piece),
                                       static_cast<off_t>(offset));
          return read > 0 && sink.write(piece, static_cast<std::size_t>(read));
        },
        [spool](bool) {});
  });
  server_->Post(kAttachPath, [this](const Request& request, Response& response,
                                    const httplib::ContentReader& reader) {
    int status = 200;
    const std::string problem = attach(
        request, [&](const auto& receive) { return reader(receive); }, &status);
    if (problem.empty()) return sendJson(response, {{"ok", true}});
    sendJson(response, {{"error", problem}}, status);
  });
  server_->Get("/api/events", [this](const Request& request, Response& response) {
    if (eventStreams_.fetch_add(1) >= options_.eventStreams) {
      --eventStreams_;
      return sendJson(response, {{"error", "too many pages follow the desk: close some"}}, 503);
    }
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
        "text/event-stream",
        [this, last](std::size_t offset, httplib::DataSink& sink) {
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
        },
        [this](bool) { --eventStreams_; });
  });
  server_->Post("/api/act", [this](const Request& request, Response& response) {
    const auto parsed = KXJsonTree::parse(request.body, KXJsonTree::kMaxDepth);
    if (!parsed || !parsed->is_object()) {
      return sendJson(response, {{"error", "the request is not a JSON object"}}, 400);
    }
    const std::string problem = act(agentOf(request), *parsed);
    if (problem.empty()) return sendJson(response, {{"ok", true}});
    sendJson(response, {{"error", problem}}, 409);
  });
}

std::string QuorDeskConsole::act(const std::string& agent, const KXDictionary& request) {
  const std::string customer = KXJsonMembers::text(request, "customer");
  const std::string what = KXJsonMembers::text(request, "do");
  const std::string said = KXJsonMembers::text(request, "text");
  if (agent.empty()) return "log in first";
  if (what == "read") {
    read(agent, customer);
    return "";
  }
  if (what == "note") return note(agent, customer, said);
  if (what == "typing") {
    // Only the serving agent's typing reaches the customer; it is never kept.
    if (board_.servedBy(customer) != agent) return "take the customer first";
    const auto typing = request.find("typing");
    desk_.sendTyping(customer,
                     typing != request.end() && typing->is_boolean() && typing->get<bool>());
    return "";
  }
  if (what == "pass") return pass(agent, customer, request);
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
      if (blank(said)) return "nothing to send";
      session.say(said);
    } else if (what == "rate") {
      session.requestEvaluation();
    } else if (what == "back") {
      session.endService(blank(said) ? "" : said, KXCSTerminateBackToRobot);
    } else if (what == "end") {
      session.endService(blank(said) ? "" : said, KXCSTerminateEndService);
    } else if (what == "invite") {
      session.inviteLeaveMessage(said.empty() ? "Leave us a message and we will get back to you."
                                              : said);
    } else {
      return "unknown action";
    }
    return "";
  });
}

std::string QuorDeskConsole::spoolDirectory() const {
  if (!options_.uploadDirectory.empty()) return options_.uploadDirectory;
  std::error_code failed;
  return std::filesystem::temp_directory_path(failed).string();
}

std::string QuorDeskConsole::attach(
    const httplib::Request& request,
    const std::function<bool(const std::function<bool(const char*, std::size_t)>&)>& read,
    int* status) {
  const std::string agent = agentOf(request);
  const std::string customer = request.get_param_value("customer");
  const uint64_t limit = std::min<uint64_t>(desk_.maxFileBytes(), kLargestShownFile);
  const std::string tooLarge = "the file is larger than " + std::to_string(limit) + " bytes";
  // Refused before its bytes: they are read and dropped, so that the page hears why (a browser
  // that is still sending when the link closes hears nothing).
  *status = 409;
  std::string refused = board_.servedBy(customer) != agent ? "take the customer first"
                        : limit == 0                       ? "the server takes no files"
                                                           : "";
  if (refused.empty() && request.get_header_value<uint64_t>("Content-Length") > limit) {
    *status = 413;
    refused = tooLarge;
  }
  if (!refused.empty()) {
    read([](const char*, std::size_t) { return true; });
    return refused;
  }
  std::string name = QuorFileCache::safeName(
      httplib::detail::decode_url(request.get_header_value(kFileNameHeader), false));
  if (name.empty()) name = "file";

  // The bytes wait in a file of their own while they go up, whatever their size.
  const Spool spool(spoolDirectory());
  const int descriptor = spool.descriptor();
  const std::string& path = spool.path();
  *status = 500;
  if (!spool.ok()) return "the console cannot keep the file while it goes";
  uint64_t size = 0;
  bool over = false, unwritten = false;
  read([&](const char* data, std::size_t length) {
    size += length;
    over = size > limit;
    for (std::size_t at = 0; !over && !unwritten && at < length;) {
      const ssize_t wrote = ::write(descriptor, data + at, length - at);
      unwritten = wrote <= 0;
      at += wrote > 0 ? static_cast<std::size_t>(wrote) : 0;
    }
    return !over && !unwritten;
  });
  *status = 413;
  if (over) return tooLarge;
  *status = 500;
  if (unwritten) return "the console cannot keep the file while it goes";
  *status = 400;
  if (size == 0) return "the file is empty";

  // Its type from its bytes: the page's word counts only for plain text.
  const std::string type =
      KXCSFileType::trusted(request.get_header_value("Content-Type"), KXCSFileType::sniff(path));
  *status = 415;
  if (!KXCSFileType::accepted(KXCSFileType::defaultAccepted(), type))
    return "only pictures (PNG, JPEG, GIF, WebP), PDF and plain text are sent";
  KXDictionary file;
  const std::string notSent = desk_.uploadFile(path, name, type, &file);
  *status = 502;
  if (!notSent.empty()) return notSent;
  *status = 409;
  return desk_.step(customer, [&](QuorDeskSimulator& session) -> std::string {
    if (session.takenBy() != agent) return "take the customer first";
    session.sayFile(file);
    return "";
  });
}

void QuorDeskConsole::read(const std::string& agent, const std::string& customer) {
  // Only what is new is kept: a page that says "read" again and again writes nothing.
  const uint64_t written = board_.linesWritten(customer);
  if (written == 0 || board_.readBy(customer, agent) >= written) return;
  desk_.keep({customer, QuorConsoleBoard::now(), false, QuorConsoleBoard::kRead,
              KXDictionary({{"upTo", written}}).dump(), "", agent});
  desk_.sendRead(customer);  // the customer's app shows their lines read
}

std::string QuorDeskConsole::note(const std::string& agent, const std::string& customer,
                                  const std::string& text) {
  if (blank(text)) return "nothing to note";
  if (board_.nameOf(customer).empty()) return "no such customer";
  desk_.keep(
      {customer, QuorConsoleBoard::now(), false, QuorConsoleBoard::kNote,
       KXDictionary({{"text", text}}).dump(-1, ' ', false, KXDictionary::error_handler_t::replace),
       "", agent});
  return "";
}

std::string QuorDeskConsole::pass(const std::string& agent, const std::string& customer,
                                  const KXDictionary& request) {
  const std::string to = KXJsonMembers::text(request, "to");
  const std::string group = KXJsonMembers::text(request, "group");
  if (!to.empty()) {
    if (to == agent) return "you serve this customer already";
    const auto names = agents_.names();
    if (std::find(names.begin(), names.end(), to) == names.end()) return "no agent " + to;
  }
  const std::string problem = desk_.step(customer, [&](QuorDeskSimulator& session) {
    if (session.takenBy() != agent) {
      return session.takenBy().empty() ? std::string("take the customer first")
                                       : "the customer is served by " + session.takenBy();
    }
    // The customer reads why another person answers from now on.
    if (!to.empty()) {
      session.passToAgent(
          to, "I am passing you to my colleague " + to + ", who will help you from here.");
    } else {
      session.passToGroup(group, group.empty()
                                     ? "I am passing you on; someone will be with you shortly."
                                     : "I am passing you to our " + group +
                                           " team; someone will be with you shortly.");
    }
    return std::string();
  });
  if (!problem.empty()) return problem;
  KXDictionary passed = to.empty() ? KXDictionary{{"group", group}} : KXDictionary{{"to", to}};
  desk_.keep({customer, QuorConsoleBoard::now(), false, QuorConsoleBoard::kPassed,
              passed.dump(-1, ' ', false, KXDictionary::error_handler_t::replace), "", agent});
  return "";
}

KXDictionary QuorDeskConsole::replies() const {
  KXDictionary list = KXDictionary::array();
  if (options_.repliesFile.empty()) return list;
  std::ifstream file(options_.repliesFile);
  std::string line;
  std::size_t bytes = 0;
  while (list.size() < kMostReplies && bytes < kLongestBody && std::getline(file, line)) {
    bytes += line.size();
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (blank(line) || line[0] == '#') continue;
    list.push_back(line.substr(0, 4096));
  }
  return list;
}

KXDictionary QuorDeskConsole::search(const std::string& words) const {
  KXDictionary found = KXDictionary::array();
  if (blank(words)) return {{"results", found}};
  const std::vector<std::string> types = {KXCSHandShakeMessage::getObjectName(),
                                          KXTextMessage::getObjectName(), QuorConsoleBoard::kNote};
  for (const auto& record : desk_.store().search(words, types, kMostSearchResults)) {
    const KXDictionary body =
        KXJsonTree::parse(record.body.value_or(""), KXJsonTree::kMaxDepth).value_or(KXDictionary());
    std::string text = KXJsonMembers::text(
        body, record.objectName == QuorConsoleBoard::kNote ? "text" : "content");
    std::string name = board_.nameOf(record.customer);
    if (record.objectName == KXCSHandShakeMessage::getObjectName()) {
      const KXDictionary& user = KXJsonMembers::member(body, "userInfo");
      for (const char* key : {"name", "nickName", "userId"}) {
        if (!KXJsonMembers::text(user, key).empty()) {
          text = "started a service as " + KXJsonMembers::text(user, key);
          if (name.empty()) name = KXJsonMembers::text(user, key);
          break;
        }
      }
    }
    found.push_back({{"customer", record.customer},
                     {"name", name.empty() ? record.customer : name},
                     {"time", record.time},
                     {"who", record.objectName == QuorConsoleBoard::kNote ? "note"
                             : record.fromCustomer                        ? "customer"
                                                                          : "desk"},
                     {"text", text},
                     {"onBoard", !board_.nameOf(record.customer).empty()}});
  }
  return {{"results", found}};
}

}  // namespace quor
