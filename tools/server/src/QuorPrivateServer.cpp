#include "QuorPrivateServer/QuorPrivateServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

namespace quor {
namespace {

constexpr int kPortAttempts = 5;
constexpr auto kReadyTimeout = std::chrono::seconds(15);
// ejabberd takes 5 to 10 s to create its tables on a busy machine of two cores.
constexpr auto kEjabberdReadyTimeout = std::chrono::seconds(60);
constexpr auto kAccountTimeout = std::chrono::seconds(10);
constexpr auto kStopTimeout = std::chrono::seconds(3);

// Prosody's file store names directories and files with every character that is not a letter
// or a digit written as %xx.
std::string pathEncode(const std::string& text) {
  std::string encoded;
  for (const unsigned char c : text) {
    if (std::isalnum(c)) {
      encoded += static_cast<char>(c);
    } else {
      char escape[4];
      std::snprintf(escape, sizeof escape, "%%%02x", c);
      encoded += escape;
    }
  }
  return encoded;
}

// A Lua string literal.
std::string luaString(const std::string& text) {
  std::string quoted = "\"";
  for (const unsigned char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += static_cast<char>(c);
    } else if (c < 0x20) {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\%03d", c);
      quoted += escape;
    } else {
      quoted += static_cast<char>(c);
    }
  }
  return quoted + "\"";
}

// An Erlang binary literal of UTF-8 text.
std::string erlangBinary(const std::string& text) {
  std::string quoted = "<<\"";
  for (const unsigned char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += static_cast<char>(c);
  }
  return quoted + "\"/utf8>>";
}

// The directory that holds ejabberd's application (ERL_LIBS), or "" when it is not installed.
std::string ejabberdLibraries() {
  std::error_code failed;
  for (const auto& entry : std::filesystem::directory_iterator("/usr/lib", failed)) {
    if (!entry.is_directory(failed)) continue;
    for (const auto& inner : std::filesystem::directory_iterator(entry.path(), failed)) {
      if (inner.path().filename().string().rfind("ejabberd-", 0) == 0 &&
          std::filesystem::exists(inner.path() / "ebin" / "ejabberd.app", failed)) {
        return entry.path().string();
      }
    }
  }
  return "";
}

// A loopback port that was free a moment ago.
int freePort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return 0;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    port = ntohs(address.sin_port);
  }
  ::close(fd);
  return port;
}

// 128 random bits in hex: a component's secret for one run.
std::string randomSecret() {
  std::random_device random;
  std::string secret;
  for (int i = 0; i < 4; ++i) {
    char part[9];
    std::snprintf(part, sizeof part, "%08x", static_cast<unsigned>(random()));
    secret += part;
  }
  return secret;
}

}  // namespace

std::string QuorPrivateServer::defaultModuleDirectory() {
  // An installed program finds the module in the prefix's data folder (bin/../share/...); one
  // run from its build tree, in the source tree.
  std::error_code failed;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", failed);
  if (!failed) {
    auto prefix = program.parent_path();
    for (const auto& part : std::filesystem::path(QUOR_CS_INSTALLED_BIN_DIR)) {
      if (!part.empty()) prefix = prefix.parent_path();
    }
    const auto installed = prefix / QUOR_CS_INSTALLED_MODULE_DIR;
    if (std::filesystem::exists(installed / "mod_quor_cs_stamp.lua", failed))
      return installed.string();
  }
  return QUOR_CS_PROSODY_MODULE_DIR;
}

QuorPrivateServer::QuorPrivateServer(Options options) : options_(std::move(options)) {
  if (options_.moduleDirectory.empty()) options_.moduleDirectory = defaultModuleDirectory();
}

std::unique_ptr<QuorPrivateServer> QuorPrivateServer::start(Options options, std::string* error) {
  std::unique_ptr<QuorPrivateServer> server(new QuorPrivateServer(std::move(options)));
  const char* temporary = std::getenv("TMPDIR");
  std::string directory =
      std::string(temporary && *temporary ? temporary : "/tmp") +
      (server->options_.software == Software::Ejabberd ? "/quor-ejabberd-XXXXXX"
                                                       : "/quor-prosody-XXXXXX");
  if (!::mkdtemp(directory.data())) {
    if (error) *error = "cannot make a temporary directory";
    return nullptr;
  }
  server->directory_ = directory;
  server->componentSecret_ = randomSecret();
  // Removes the directory once this process is gone, however it ends.
  server->janitor_ = QuorChildProcess::start(
      {"sh", "-c", "while kill -0 \"$1\" 2>/dev/null; do sleep 1; done; rm -rf -- \"$2\"",
       "quor-prosody-janitor", std::to_string(::getpid()), directory},
      "/dev/null", error, false);
  if ((server->options_.tls || server->options_.fileShareTls) && !server->makeCertificate(error))
    return nullptr;
  for (const auto& [user, password] : server->options_.accounts) {
    if (!server->addAccount(user, password)) {
      if (error) *error = "cannot create the account " + user;
      return nullptr;
    }
  }
  std::string reason;
  for (int attempt = 0; attempt < kPortAttempts; ++attempt) {
    server->port_ = freePort();
    if (server->options_.pushComponent) server->componentPort_ = freePort();
    if (server->options_.fileShare) server->httpPort_ = freePort();
    if (server->launch(&reason)) return server;
  }
  if (error)
    *error = (server->options_.software == Software::Ejabberd ? "ejabberd" : "prosody") +
             std::string(" did not start: ") + reason;
  return nullptr;
}

QuorPrivateServer::~QuorPrivateServer() {
  // Its data goes with the directory: ejabberd need not write it out first.
  if (options_.software == Software::Ejabberd) {
    kill();
  } else {
    stop();
  }
  epmd_.reset();
  janitor_.reset();
  if (!directory_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
}

bool QuorPrivateServer::addAccount(const std::string& user, const std::string& password) {
  if (options_.software == Software::Ejabberd) {
    // The server registers every account of this file now and then (see launchEjabberd()).
    std::ofstream file(directory_ + "/accounts.eterm", std::ios::app);
    file << "{" << erlangBinary(user) << ", " << erlangBinary(password) << "}.\n";
    if (!file.flush()) return false;
    ++accountCount_;
    if (!running()) return true;
    std::string ignored;
    return server_->waitForOutput("quor: accounts " + std::to_string(accountCount_) + "\n", 0,
                                  kAccountTimeout, &ignored);
  }
  const std::string accounts = directory_ + "/data/" + pathEncode(options_.domain) + "/accounts";
  std::error_code failed;
  std::filesystem::create_directories(accounts, failed);
  if (failed) return false;
  std::ofstream file(accounts + "/" + pathEncode(user) + ".dat", std::ios::trunc);
  file << "return { [\"password\"] = " << luaString(password) << " };\n";
  return static_cast<bool>(file.flush());
}

std::string QuorPrivateServer::fileShareUrl() const {
  return (options_.fileShareTls ? "https" : "http") + std::string("://127.0.0.1:") +
         std::to_string(httpPort_);
}

bool QuorPrivateServer::makeCertificate(std::string* error) const {
  // Prosody finds DOMAIN.crt and DOMAIN.key in its certificates directory.
  const std::string base = directory_ + "/" + options_.domain;
  auto openssl =
      QuorChildProcess::start({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days",
                               "2", "-subj", "/CN=" + options_.domain, "-addext",
                               "subjectAltName=DNS:" + options_.domain + ",IP:127.0.0.1", "-keyout",
                               base + ".key", "-out", base + ".crt"},
                              directory_ + "/openssl.out", error);
  if (!openssl) return false;
  for (int i = 0; i < 3000 && openssl->running(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (!std::filesystem::exists(base + ".crt") || !std::filesystem::exists(base + ".key")) {
    if (error)
      *error =
          "openssl made no certificate: " + QuorChildProcess::readFile(directory_ + "/openssl.out");
    return false;
  }
  return true;
}

bool QuorPrivateServer::writeConfiguration(std::string* error) const {
  std::ofstream config(directory_ + "/prosody.cfg.lua", std::ios::trunc);
  const std::string modules = options_.stampingModule ? ", \"quor_cs_stamp\"" : "";
  const bool fileShareTls = options_.fileShare && options_.fileShareTls;
  const bool plainFileShare = options_.fileShare && !options_.fileShareTls;
  config << "pidfile = " << luaString(directory_ + "/prosody.pid") << "\n"
         << "data_path = " << luaString(directory_ + "/data") << "\n"
         << "certificates = " << luaString(directory_) << "\n"
         << "plugin_paths = { " << luaString(options_.moduleDirectory) << " }\n"
         << "interfaces = { \"127.0.0.1\" }\n"
         << "c2s_ports = { " << port_ << " }\n"
         << "c2s_direct_tls_ports = { }\nlegacy_ssl_ports = { }\n"
         << "s2s_ports = { }\n"
         << "https_ports = { " << (fileShareTls ? std::to_string(httpPort_) : "") << " }\n"
         << "http_ports = { " << (plainFileShare ? std::to_string(httpPort_) : "") << " }\n"
         << "http_interfaces = { \"127.0.0.1\" }\nhttps_interfaces = { \"127.0.0.1\" }\n"
         << "https_ssl = { certificate = " << luaString(directory_ + "/" + options_.domain + ".crt")
         << ", key = " << luaString(directory_ + "/" + options_.domain + ".key")
         << " }\n"
         // Requests name 127.0.0.1, not upload.DOMAIN: they go to the upload service.
         << "http_default_host = " << luaString(uploadDomain()) << "\n"
         << "modules_enabled = { \"roster\", \"saslauth\", \"disco\", \"ping\", \"offline\", "
            "\"smacks\", \"mam\", \"carbons\", \"csi_simple\", \"cloud_notify\""
         << (options_.tls ? ", \"tls\"" : "") << modules << " }\n"
         << (options_.tls ? "modules_disabled = { \"s2s\", \"s2s_auth_certs\" }\n"
                          : "modules_disabled = { \"s2s\", \"s2s_auth_certs\", \"tls\" }\n")
         << "authentication = \"internal_plain\"\nstorage = \"internal\"\n"
         << "c2s_require_encryption = " << (options_.tls ? "true" : "false") << "\n"
         << "allow_unencrypted_plain_auth = " << (options_.tls ? "false" : "true") << "\n"
         << "network_settings = { nagle = false }\n"
         << "run_as_root = " << (::geteuid() == 0 ? "true" : "false") << "\n"
         << "log = { { levels = { min = \"info\" }, to = \"console\" } }\n"
         // Push notifications name their sender, so that the push service can say which desk
         // wrote.
         << "push_notification_with_sender = true\n";
  if (options_.pushComponent) {
    config << "component_ports = { " << componentPort_ << " }\n"
           << "component_interfaces = { \"127.0.0.1\" }\n";
  }
  config << "VirtualHost " << luaString(options_.domain) << "\n";
  if (options_.pushComponent) {
    config << "Component " << luaString(pushDomain()) << "\n"
           << "  component_secret = " << luaString(componentSecret_) << "\n";
  }
  if (options_.fileShare) {
    // The URLs it hands out name the loopback address: upload.DOMAIN need not resolve.
    config << "Component " << luaString(uploadDomain()) << " \"http_file_share\"\n"
           << "  http_external_url = " << luaString(fileShareUrl() + "/") << "\n"
           << "  http_file_share_size_limit = " << options_.fileShareLimit << "\n";
  }
  if (!config.flush()) {
    if (error) *error = "cannot write the configuration";
    return false;
  }
  return true;
}

bool QuorPrivateServer::writeEjabberdConfiguration(const std::string& directory, int port,
                                                   std::string* error) const {
  std::error_code failed;
  std::filesystem::create_directories(directory + "/spool", failed);
  std::ofstream config(directory + "/ejabberd.yml", std::ios::trunc);
  // A stock configuration but for where it listens: stream management, the archive and offline
  // storage as a deployment has them.
  config << "loglevel: info\n"
         << "hosts:\n  - \"" << options_.domain << "\"\n"
         << "listen:\n"
         << "  - port: " << port << "\n"
         << "    ip: \"127.0.0.1\"\n"
         << "    module: ejabberd_c2s\n"
         << "    max_stanza_size: 262144\n";
  if (options_.pushComponent && directory == directory_) {
    config << "  - port: " << componentPort_ << "\n"
           << "    ip: \"127.0.0.1\"\n"
           << "    module: ejabberd_service\n"
           << "    hosts:\n      \"" << pushDomain() << "\":\n        password: \""
           << componentSecret_ << "\"\n";
  }
  const bool fileShare = options_.fileShare && directory == directory_;
  if (fileShare) {
    config << "  - port: " << httpPort_ << "\n"
           << "    ip: \"127.0.0.1\"\n"
           << "    module: ejabberd_http\n"
           << "    tls: " << (options_.fileShareTls ? "true" : "false") << "\n"
           << "    request_handlers:\n      /upload: mod_http_upload\n";
  }
  if (fileShare && options_.fileShareTls) {
    const std::string base = directory_ + "/" + options_.domain;
    config << "certfiles:\n  - \"" << base << ".crt\"\n  - \"" << base << ".key\"\n";
  }
  config << "auth_method: internal\n"
         << "auth_password_format: scram\n"
         << "acl:\n  local:\n    user_regexp: \"\"\n"
         << "access_rules:\n  c2s:\n    allow: all\n  local:\n    allow: local\n"
         << "shaper_rules:\n  max_user_sessions: 10\n  max_user_offline_messages: 5000\n"
         << "modules:\n"
         << "  mod_disco: {}\n  mod_ping: {}\n  mod_stream_mgmt: {}\n  mod_offline: {}\n"
         << "  mod_roster: {}\n  mod_mam:\n    default: always\n"
         << "  mod_carboncopy: {}\n  mod_client_state: {}\n  mod_push:\n    include_sender: true\n"
         << "  mod_push_keepalive: {}\n";
  if (fileShare) {
    config << "  mod_http_upload:\n    host: \"" << uploadDomain() << "\"\n"
           << "    put_url: \"" << fileShareUrl() << "/upload\"\n"
           << "    docroot: \"" << directory << "/upload\"\n"
           << "    max_size: " << options_.fileShareLimit << "\n";
  }
  if (failed || !config.flush()) {
    if (error) *error = "cannot write the configuration";
    return false;
  }
  return true;
}

std::unique_ptr<QuorChildProcess> QuorPrivateServer::launchEjabberdNode(std::size_t node,
                                                                        std::string* error) {
  const std::string libraries = ejabberdLibraries();
  if (libraries.empty()) {
    if (error) *error = "ejabberd is not installed (Debian's ejabberd package)";
    return nullptr;
  }
  // The first node keeps its files in the server's directory, the others in node2, node3 ...
  const std::string directory =
      node == 0 ? directory_ : directory_ + "/node" + std::to_string(node + 1);
  const int port = ports_[node];
  if (!writeEjabberdConfiguration(directory, port, error)) return nullptr;
  const std::string output = directory + "/server.log";
  const std::size_t logStart = QuorChildProcess::readFile(output).size();
  std::vector<std::string> arguments = {"env",
                                        "ERL_LIBS=" + libraries,
                                        "EJABBERD_CONFIG_PATH=" + directory + "/ejabberd.yml",
                                        "EJABBERD_LOG_PATH=" + directory + "/ejabberd.log",
                                        "ERL_CRASH_DUMP=" + directory + "/erl_crash.dump",
                                        "HOME=" + directory_};
  if (epmd_) arguments.push_back("ERL_EPMD_PORT=" + std::to_string(epmdPort_));
  arguments.insert(arguments.end(),
                   {"erl", "-noinput", "-mnesia", "dir", "\"" + directory + "/spool\""});
  if (epmd_) {
    // A node of a cluster: Erlang's distribution on loopback only, through this server's own
    // epmd, with a cookie made for this server.
    arguments.insert(arguments.end(),
                     {"-sname", "quor" + std::to_string(node + 1) + "@localhost", "-setcookie",
                      cookie_, "-kernel", "inet_dist_use_interface", "{127,0,0,1}"});
  }
  arguments.insert(arguments.end(), {"-s", "ejabberd", "-eval"});
  std::string ready = "quor: accounts ";
  if (node == 0) {
    // Registers the accounts of accounts.eterm at start and then every 100 ms, printing how many
    // there are whenever that changes: addAccount() waits for its line. The other nodes share
    // the accounts through the cluster's database.
    const std::string accounts = directory_ + "/accounts.eterm";
    arguments.push_back(
        "Register = fun() -> case file:consult(\"" + accounts +
        "\") of {ok, As} -> [ejabberd_auth:try_register(U, " + erlangBinary(options_.domain) +
        ", P) || {U, P} <- As], length(As); _ -> 0 end end, "
        "First = Register(), io:format(\"quor: accounts ~p~n\", [First]), "
        "spawn(fun() -> (fun Loop(Seen) -> timer:sleep(100), Now = Register(), "
        "if Now =/= Seen -> io:format(\"quor: accounts ~p~n\", [Now]); true -> ok end, "
        "Loop(Now) end)(First) end).");
  } else {
    ready = "quor: joined ok";
    arguments.push_back(
        "io:format(\"quor: joined ~p~n\", [catch "
        "ejabberd_admin:join_cluster(<<\"quor1@localhost\">>)]).");
  }
  auto process = QuorChildProcess::start(arguments, output, error);
  if (!process) return nullptr;
  const std::string listening =
      "Start accepting TCP connections at 127.0.0.1:" + std::to_string(port) + " ";
  const std::string component =
      "Start accepting TCP connections at 127.0.0.1:" + std::to_string(componentPort_) + " ";
  if (process->waitForOutput(listening, logStart, kEjabberdReadyTimeout, error) &&
      (!options_.pushComponent || node != 0 ||
       process->waitForOutput(component, logStart, kEjabberdReadyTimeout, error)) &&
      process->waitForOutput(ready, logStart, kEjabberdReadyTimeout, error)) {
    return process;
  }
  return nullptr;
}

bool QuorPrivateServer::launchEjabberd(std::string* error) {
  if (options_.nodes > 1 && !epmd_) {
    epmdPort_ = freePort();
    cookie_ = "quor" + std::to_string(::getpid()) + "x" + std::to_string(epmdPort_);
    epmd_ = QuorChildProcess::start(
        {"epmd", "-port", std::to_string(epmdPort_), "-address", "127.0.0.1"},
        directory_ + "/epmd.log", error);
    if (!epmd_) return false;
  }
  ports_.resize(std::max<std::size_t>(options_.nodes, 1));
  ports_[0] = port_;
  for (std::size_t node = 1; node < ports_.size(); ++node) {
    if (ports_[node] == 0) ports_[node] = freePort();
  }
  server_ = launchEjabberdNode(0, error);
  if (!server_) return false;
  nodes_.clear();
  for (std::size_t node = 1; node < ports_.size(); ++node) {
    auto joined = launchEjabberdNode(node, error);
    if (!joined) {
      server_.reset();
      nodes_.clear();
      return false;
    }
    nodes_.push_back(std::move(joined));
  }
  return true;
}

bool QuorPrivateServer::launch(std::string* error) {
  if (options_.software == Software::Ejabberd) return launchEjabberd(error);
  if (!writeConfiguration(error)) return false;
  const std::string output = directory_ + "/server.log";
  const std::size_t logStart = QuorChildProcess::readFile(output).size();
  server_ = QuorChildProcess::start(
      {options_.prosody, "-F", "--config", directory_ + "/prosody.cfg.lua"}, output, error);
  if (!server_) return false;
  const std::string ready = "Activated service 'c2s' on [127.0.0.1]:" + std::to_string(port_);
  const std::string component =
      "Activated service 'component' on [127.0.0.1]:" + std::to_string(componentPort_);
  if (server_->waitForOutput(ready, logStart, kReadyTimeout, error) &&
      (!options_.pushComponent ||
       server_->waitForOutput(component, logStart, kReadyTimeout, error))) {
    return true;
  }
  // When the port was taken, Prosody keeps running on no port: the caller tries another.
  server_.reset();
  return false;
}

void QuorPrivateServer::kill() {
  for (auto& node : nodes_) node->stop(SIGKILL);
  nodes_.clear();
  if (server_) server_->stop(SIGKILL);
  server_.reset();
}

void QuorPrivateServer::stop() {
  for (auto& node : nodes_) node->stop(SIGTERM, kStopTimeout);
  nodes_.clear();
  if (server_) server_->stop(SIGTERM, kStopTimeout);
  server_.reset();
}

void QuorPrivateServer::killNode(std::size_t node) {
  if (node == 0) {
    if (server_) server_->stop(SIGKILL);
    return;
  }
  if (node - 1 < nodes_.size() && nodes_[node - 1]) nodes_[node - 1]->stop(SIGKILL);
}

bool QuorPrivateServer::restart(std::string* error) {
  if (running()) return true;
  return launch(error);
}

QuorXmppOptions QuorPrivateServer::account(const std::string& user, const std::string& password,
                                           std::size_t node) const {
  QuorXmppOptions options;
  options.jid = jid(user);
  options.password = password;
  options.server = "127.0.0.1";
  options.port = static_cast<uint16_t>(node < ports_.size() ? ports_[node] : port_);
  return options;
}

std::string QuorPrivateServer::log() const {
  return QuorChildProcess::readFile(directory_ + "/server.log");
}

}  // namespace quor
