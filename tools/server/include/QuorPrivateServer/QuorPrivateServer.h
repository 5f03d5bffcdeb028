#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "QuorPrivateServer/QuorChildProcess.h"
#include "QuorXmppHost/QuorXmppOptions.h"

namespace quor {

// A private XMPP server for development, tests, the demo and the benchmarks, in a temporary
// directory, on a free loopback port, with accounts created before it starts: Prosody with the
// customer-service stamping module (the default), or a stock ejabberd, the second server every
// host must work with.
//
// start() launches `prosody -F` (or ejabberd in its own Erlang runtime, with no distribution
// and so no epmd) as a child process and returns once its log says the client port is active;
// when the port was taken meanwhile it tries another. The destructor stops the
// server (SIGTERM, then SIGKILL) and removes the directory. The child also dies with the thread
// that started it (PR_SET_PDEATHSIG), so no server outlives a crashed test: start servers from a
// thread that lives as long as the server is needed; and a janitor process removes the
// directory within a second of the caller's process dying without its destructor. The
// directory is under $TMPDIR (else /tmp). Works as root and as an ordinary user.
//
// Threads: one object is used from one thread at a time.
class QuorPrivateServer {
 public:
  enum class Software { Prosody, Ejabberd };

  struct Options {
    Software software = Software::Prosody;
    std::string domain = "localhost";
    // user name -> password
    std::map<std::string, std::string> accounts;
    // Prosody: load the stamping module (mod_quor_cs_stamp); off gives a stock server.
    // ejabberd is always stock.
    bool stampingModule = true;
    // ejabberd: the number of nodes, joined into one cluster (Erlang's distribution on
    // loopback, through an epmd of the server's own, on a free port); each node has its own
    // client port (account(user, password, node)). Prosody has one.
    std::size_t nodes = 1;
    // Prosody: require TLS, with a self-signed certificate for the domain made at start
    // (openssl). ejabberd offers no TLS.
    bool tls = false;
    // A push service's place (XEP-0357): the component domain push.DOMAIN on its own loopback
    // port with a secret made per run (XEP-0114), for quor-cs-push; the server's push module
    // (Prosody's mod_cloud_notify, ejabberd's mod_push) sends it a notification for what
    // arrives for a sleeping device. On the first node of a cluster only.
    bool pushComponent = true;
    // HTTP file upload (XEP-0363) at upload.DOMAIN, served over HTTP on a loopback port of its
    // own: Prosody's mod_http_file_share, ejabberd's mod_http_upload; files up to
    // fileShareLimit bytes. On the first node of a cluster only.
    bool fileShare = false;
    std::size_t fileShareLimit = 1024 * 1024;
    // The upload service over HTTPS instead, with the self-signed certificate made at start
    // (for the domain and 127.0.0.1): a client verifies it only by trusting it.
    bool fileShareTls = false;
    // The Prosody executable and the directory that holds mod_quor_cs_stamp.lua.
    std::string prosody = "prosody";
    std::string moduleDirectory;
  };

  // A started server, or null with the reason in `error`.
  static std::unique_ptr<QuorPrivateServer> start(Options options, std::string* error);
  ~QuorPrivateServer();
  QuorPrivateServer(const QuorPrivateServer&) = delete;
  QuorPrivateServer& operator=(const QuorPrivateServer&) = delete;

  const std::string& domain() const { return options_.domain; }
  int port() const { return port_; }
  // "user@domain"
  std::string jid(const std::string& user) const { return user + "@" + options_.domain; }
  // How a client logs in to this server as `user`: on 127.0.0.1 and the port of `node` (the
  // first node's by default).
  QuorXmppOptions account(const std::string& user, const std::string& password,
                          std::size_t node = 0) const;
  // The push component's domain, port and secret (pushComponent).
  std::string pushDomain() const { return "push." + options_.domain; }
  int componentPort() const { return componentPort_; }
  const std::string& componentSecret() const { return componentSecret_; }
  // The upload service's domain and its HTTP (or HTTPS: fileShareTls) port (fileShare).
  std::string uploadDomain() const { return "upload." + options_.domain; }
  int httpPort() const { return httpPort_; }
  // "http://127.0.0.1:PORT" or "https://..." (fileShareTls): where the files go.
  std::string fileShareUrl() const;
  bool running() const { return server_ && server_->running(); }
  // The server process's id while it runs, else 0.
  pid_t pid() const { return server_ ? server_->pid() : 0; }

  // Creates an account; a running server sees it at the next login (ejabberd registers it
  // within a few hundred milliseconds; this returns once it did).
  bool addAccount(const std::string& user, const std::string& password);
  // Stops the server as a crash would (SIGKILL), keeping its data.
  void kill();
  // Stops one node of a cluster as a crash would; the others go on.
  void killNode(std::size_t node);
  // Stops the server cleanly (SIGTERM), keeping its data.
  void stop();
  // Starts a stopped server again on the same port with the same data; false with a reason.
  bool restart(std::string* error);
  // Everything the server logged so far.
  std::string log() const;
  // The server's temporary directory: files put there go when the server goes.
  const std::string& directory() const { return directory_; }

  // The directory of mod_quor_cs_stamp.lua in this source tree.
  static std::string defaultModuleDirectory();

 private:
  explicit QuorPrivateServer(Options options);
  bool launch(std::string* error);
  bool writeConfiguration(std::string* error) const;
  bool writeEjabberdConfiguration(const std::string& directory, int port, std::string* error) const;
  bool launchEjabberd(std::string* error);
  std::unique_ptr<QuorChildProcess> launchEjabberdNode(std::size_t node, std::string* error);
  bool makeCertificate(std::string* error) const;

  Options options_;
  std::string directory_;
  int port_ = 0;
  int componentPort_ = 0;
  int httpPort_ = 0;
  std::string componentSecret_;
  std::size_t accountCount_ = 0;
  std::unique_ptr<QuorChildProcess> server_;
  std::unique_ptr<QuorChildProcess> janitor_;
  // A cluster's other nodes, their client ports (the first node's too), and its epmd.
  std::vector<std::unique_ptr<QuorChildProcess>> nodes_;
  std::vector<int> ports_;
  std::unique_ptr<QuorChildProcess> epmd_;
  int epmdPort_ = 0;
  std::string cookie_;
};

}  // namespace quor
