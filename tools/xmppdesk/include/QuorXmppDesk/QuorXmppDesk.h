#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorXmppDesk/QuorDeskStore.h"
#include "QuorXmppHost/QuorArchiveCatchUp.h"
#include "QuorXmppHost/QuorXmppConnection.h"

namespace quor {

// The desk simulator on an XMPP server: connected as the desk's account, it serves many
// customers at once, one desk session (a QuorDeskSimulator made from the profile) per customer
// JID, answering each on the same wire as QuorXmppHost speaks.
//
// It keeps what it is given in a QuorDeskStore (in memory unless keepStateIn() names a file):
// each change of a session (a customer's message, an agent's action) is one step, stored with
// the session's new state and the messages both ways before the server hears that the
// customer's message was taken, and the desk's answers are written once stored and stay in the
// store's outbox until the server confirmed them. A desk that restarts, or was killed, takes
// every session up where it was, answers nothing twice, writes again what the server did not
// confirm, and takes from the server's archive what was sent to it while it was away (it binds
// the fixed resource of QuorXmppOptions::resource, "desk" when empty, so that its next login
// replaces a dead one at once).
//
// In memory, a session that has heard nothing for Limits::idleSession is dropped, and beyond
// Limits::maxSessions the least recently active one is; the store still has it, and a customer
// who writes again finds it there.
//
// Threads: the customers' messages are handled, and the desk's answers queued, on the
// connection's "network" thread; step() runs on the caller's thread; steps run one at a time.
// The other functions may be called from any thread.
class QuorXmppDesk : private QuorXmppConnection::Events {
 public:
  using LogSink = std::function<void(int32_t level, const std::string& text)>;

  struct Limits {
    std::size_t maxSessions = 10000;
    std::chrono::milliseconds idleSession{30 * 60 * 1000};
    // A customer's message with a longer body is not taken (a log line says so): the library
    // sends texts of at most 64 KiB, and the desk keeps every message it takes.
    std::size_t messageBytes = 64 * 1024;
  };
  QuorXmppDesk(KXDictionary profile, QuorXmppOptions options, Limits limits);
  QuorXmppDesk(KXDictionary profile, QuorXmppOptions options)
      : QuorXmppDesk(std::move(profile), std::move(options), Limits()) {}
  ~QuorXmppDesk() override;

  // Keeps the desk's state in the SQLite file at `path` (made when missing), before start().
  // False with the reason when it cannot be opened or belongs to another desk account.
  bool keepStateIn(const std::string& path, std::string* error);
  // The state file at `path` of the desk account `jid` (its directory made when missing), or
  // null with the reason.
  static std::unique_ptr<QuorDeskStore> openState(const std::string& path, const std::string& jid,
                                                  std::string* error);
  // The default file of the desk account `jid`: $XDG_STATE_HOME (else ~/.local/state, else
  // the working directory) / quor-cs-desk / JID.sqlite.
  static std::string defaultStatePath(const std::string& jid);
  QuorDeskStore& store() { return *store_; }
  const KXDictionary& profile() const { return profile_; }

  void start();
  void stop();
  bool waitUntilOnline(std::chrono::milliseconds timeout) const;
  // Entries up to `maxLevel` (2 errors, 4 information) go to `sink`; none by default.
  void setLogSink(LogSink sink, int32_t maxLevel);

  // People serve (the agent console): every message of every session, present and future, both
  // ways, goes to `watch` once stored, and a customer's request for an agent waits for a person
  // (QuorDeskSimulator::servedByPeople()).
  using PeopleWatch = std::function<void(const QuorDeskStore::Record& record)>;
  void servedByPeople(PeopleWatch watch);

  // One step of the desk on the session of `customerJid` (an agent's action): `change` acts on
  // the session, and what it makes the desk say is stored with the session's new state, then
  // sent. Returns what `change` returns, or a reason when the desk has no such customer.
  using Change = std::function<std::string(QuorDeskSimulator& session)>;
  std::string step(const std::string& customerJid, const Change& change);

  // Keeps a record of the people's own (an agent's note, what an agent read, a customer passed
  // on) with the customer's messages, between steps, and tells the people watching. Not from
  // inside a step's change.
  void keep(QuorDeskStore::Record record);

  // Signals that are not messages, never stored: a customer typing or stopped, and a customer
  // who read the desk's lines (their read marker) go to `typing` and `read`, on the network
  // thread, for customers the desk serves in memory; they must not call the desk. An empty watch
  // stops them.
  struct SignalWatch {
    std::function<void(const std::string& customerJid, bool typing)> typing;
    std::function<void(const std::string& customerJid)> read;
  };
  void watchSignals(SignalWatch watch);
  // A person of the desk is typing to `customerJid` (or stopped), and read the customer's
  // messages up to the newest one the desk took (kept across restarts); nothing when offline
  // or, for the read, when nothing came from the customer.
  void sendTyping(const std::string& customerJid, bool typing);
  void sendRead(const std::string& customerJid);
  // Fetches a file a customer or the desk sent (the URL its message named) into the file
  // `path`, at most `maxBytes`, on the caller's thread, with the desk's link's certificate rule:
  // "" when it came whole, else why not (and `path` is removed).
  std::string fetchFile(const std::string& url, uint64_t maxBytes, const std::string& path) const;
  // Puts the file at `path` on the server's upload service under `name` (a slot, then its
  // bytes, streamed from the file), on the caller's thread: "" and `*file` the body of the file
  // message that names it ({"name", "type", "size", "url"}, and "width" and "height" for a
  // picture whose header gives them), else why not (no upload service, over its limit, the
  // slot refused, the PUT failed). Never on the network thread: it waits for the slot.
  std::string uploadFile(const std::string& path, const std::string& name, const std::string& type,
                         KXDictionary* file) const;
  // The largest file the server's upload service takes (0: it offers none, or not yet).
  uint64_t maxFileBytes() const;
  // Puts the picture or file at `path` on the server (its name the path's last part, its type
  // from its bytes) and sends it back for every customer's file from now on, as the profile's
  // `files.answer`: "" when done, else why not. Call it once online (it waits up to 10 s for
  // the server's upload service), never on the network thread.
  std::string answerFilesWith(const std::string& path);

  // How many customers the desk serves in memory now; whether it serves `customerJid`.
  std::size_t customerCount() const;
  bool serves(const std::string& customerJid) const;

 private:
  void onStatus(QuorXmppConnectionStatus status) override;
  void onPayload(QuorXmppPayload payload) override;
  void onArchiveEnd(bool complete, const std::string& lastId) override;
  void onLog(int32_t level, const std::string& area, const std::string& text) override;
  void onChatState(const std::string& peer, bool typing) override;
  void onDisplayed(const std::string& peer, const std::string& stanzaId) override;

  // Under steps_: a step on the session of `customerJid`, made when `create` and unknown.
  std::string stepLocked(const std::string& customerJid, bool create, const Change& change);
  // The session in memory, else from the store, else a new one when `create`.
  std::shared_ptr<QuorDeskSimulator> sessionFor(const std::string& customerJid, bool create);
  std::shared_ptr<QuorDeskSimulator> makeSession(const std::string& customerJid);
  // Whether the desk serves `customerJid`, in memory now or in its store.
  bool knows(const std::string& customerJid) const;
  // Under steps_: stores a message of a session and tells the people watching.
  void record(QuorDeskStore::Record record);
  // Writes a stored answer; the store forgets it once the server confirmed it.
  void write(QuorXmppPayload payload);
  // Under the lock: has people serve `desk` when they do.
  void watchByPeople(QuorDeskSimulator& desk);
  // Under the lock: forgets the sessions beyond the limits, least recently active first.
  void forgetOld(std::chrono::steady_clock::time_point now);

  struct Session {
    std::shared_ptr<QuorDeskSimulator> desk;
    std::chrono::steady_clock::time_point lastActive;
    std::list<std::string>::iterator inOrder;
    std::string newestStanza;  // the customer's newest message (kept with the session's state)
  };

  const KXDictionary profile_;
  KXDictionary fileAnswer_;  // under mutex_: what answerFilesWith() put on the server
  const Limits limits_;
  const bool trustSelfSigned_;  // the link's certificate rule, for the files it fetches
  std::unique_ptr<QuorDeskStore> store_;
  std::mutex steps_;                        // one step at a time; taken before mutex_
  std::vector<QuorXmppPayload> unwritten_;  // under steps_: the step's answers
  // Under steps_: the step answers a customer's message, so its texts are the desk's own
  // (automatic), not a person's.
  bool answering_ = false;
  // On the network thread: reading the archive, up to the first message that came live.
  QuorArchiveCatchUp catchUp_;
  mutable std::mutex mutex_;
  std::unordered_map<std::string, Session> sessions_;
  std::list<std::string> byActivity_;  // customer JIDs, least recently active first
  LogSink logSink_;
  int32_t logMaxLevel_ = 0;
  PeopleWatch peopleWatch_;
  SignalWatch signalWatch_;
  std::unique_ptr<QuorXmppConnection> connection_;
};

}  // namespace quor
