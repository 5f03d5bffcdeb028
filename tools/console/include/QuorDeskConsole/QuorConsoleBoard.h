#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorXmppDesk/QuorDeskStore.h"

namespace quor {

// What the agent console shows: the desk's customers (name and ids from their handshake, state,
// group, waiting time, how far each agent read, who took them), each one's conversation as
// readable lines with their times (the agents' notes among them), and the inbox of left
// messages; plus the numbered events that pages follow live. Made from the messages of the
// desk's sessions, both ways, and the people's own records (kNote, kRead, kPassed): the desk's
// records, live or from its store after a restart. Kept within Limits.
//
// An event line carries a key ("taken", "ended", ...) and its values besides its English text,
// so that a page can say it in its own language.
//
// Threads: record() runs on the thread of the desk's step, the views and eventsAfter() on the
// console's HTTP threads; every function may be called from any thread.
class QuorConsoleBoard {
 public:
  struct Limits {
    std::size_t customers = 10000;       // the desk's own session limit
    std::size_t finishedKept = 200;      // ended conversations kept for reading
    std::size_t linesPerCustomer = 300;  // the newest lines of each conversation
    std::size_t inboxKept = 500;         // the newest left messages
    std::size_t eventsKept = 4096;       // a page further behind reloads its state
    // Bytes: a customer's information from their handshake (beyond, it is shown cut), the
    // newest lines of each conversation, everything the board keeps (beyond, finished and then
    // least recently active customers go), and the events kept for pages that follow.
    std::size_t infoBytes = 16 * 1024;
    std::size_t linesBytesPerCustomer = 256 * 1024;
    std::size_t totalBytes = 64 * 1024 * 1024;
    std::size_t eventsBytes = 8 * 1024 * 1024;
  };
  explicit QuorConsoleBoard(Limits limits);
  QuorConsoleBoard() : QuorConsoleBoard(Limits()) {}

  // The people's own records, kept by the desk with the customer's messages. The agent is the
  // record's `agent`.
  static constexpr const char* kNote = "console.note";      // {"text"}: seen by agents only
  static constexpr const char* kRead = "console.read";      // {"upTo"}: the customer's lines read
  static constexpr const char* kPassed = "console.passed";  // {"to"} an agent, or {"group"}

  // The wall clock in ms since the epoch, as records are timed.
  static int64_t now();

  // A message of a customer's session (from the customer or from the desk), or a people's record.
  void record(const QuorDeskStore::Record& record);
  // How many lines the customer has written (what an agent who read them all has read up to);
  // 0 for a customer the board does not know.
  uint64_t linesWritten(const std::string& customer) const;
  // How many of them `agent` has read.
  uint64_t readBy(const std::string& customer, const std::string& agent) const;
  // The customer's name as the board knows it ("" when it does not).
  std::string nameOf(const std::string& customer) const;
  // The agent who serves the customer ("" when none, or for a customer the board does not know).
  std::string servedBy(const std::string& customer) const;
  // The file of the customer's conversation kept under `url` ({"name", "type", "size", "url",
  // ...}), or null: the console serves only the files the board shows.
  KXDictionary fileOf(const std::string& customer, const std::string& url) const;

  // Signals, not lines (the desk stores neither): the customer is typing or stopped (their line
  // also ends it), and the customer read the desk's lines up to `at` (ms since the epoch). Each
  // change is an event: {"typing": {"customer", "typing"}}, {"seen": {"customer", "at"}}; the
  // customer's view carries "typing" and "seenAt". Nothing for a customer the board does not
  // know.
  void typing(const std::string& customer, bool typing);
  void seen(const std::string& customer, int64_t at);

  // {"seq", "now", "customers": [...], "inbox": [...]}: everything a page starts from, with
  // what `agent` has read of each customer ("read").
  KXDictionary state(const std::string& agent = "") const;
  // {"customer": {...}, "lines": [...]}, or null for a customer the board does not know.
  KXDictionary conversation(const std::string& customer, const std::string& agent = "") const;
  // The events numbered after `seq`, as JSON texts, waiting up to `wait` for the first one.
  // `*reload` becomes true when `seq` is older than the events kept (the page reloads).
  std::vector<std::string> eventsAfter(uint64_t seq, std::chrono::milliseconds wait,
                                       bool* reload) const;
  // Wakes every waiter for good (the console stops).
  void close();

 private:
  struct Line {
    Line(int64_t at, std::string by, std::string named, std::string said)
        : time(at), who(std::move(by)), name(std::move(named)), text(std::move(said)) {}
    int64_t time = 0;
    std::string who;  // "customer", "robot", "agent", "desk" (automatic), "note", "event"
    std::string name;
    std::string text;
    int64_t stamp = 0;         // the server's or the sender's time, where known
    std::string event;         // an event's key
    KXDictionary values = {};  // an event's values
    KXDictionary file = {};    // a picture or file line: {"name", "type", "size", "url", ...}
  };
  struct Customer {
    std::string id;
    KXDictionary userInfo = KXDictionary::object(), contactInfo = KXDictionary::object(),
                 requestInfo = KXDictionary::object();
    std::string state = "robot";  // "robot", "waiting", "agent", "ended"
    std::string group, agent, rating;
    int64_t waitingSince = 0, lastActive = 0;
    uint64_t written = 0;  // the customer's lines, ever
    bool typing = false;
    int64_t seenAt = 0;  // the customer read the desk's lines up to this time
    std::unordered_map<std::string, uint64_t> readUpTo;  // per agent
    std::deque<Line> lines;
    std::size_t infoBytes = 0, linesBytes = 0;
    std::list<std::string>::iterator finished;  // in finished_ while ended
    bool isFinished = false;
  };

  // Under the lock.
  Customer& customerFor(const std::string& id);
  // Drops a customer, the oldest finished one first, then the least recently active (but not
  // `keep`): false when there is none to drop.
  bool dropOne(const std::string& keep);
  void forget(const std::string& id);
  void setInfo(Customer& customer, const KXDictionary& handshake);
  void addLine(Customer& customer, Line line);
  // An event line: `key` with `values`, and its English `text`.
  void addEvent(Customer& customer, int64_t time, const std::string& key, const std::string& text,
                KXDictionary values = KXDictionary::object());
  // A people's record on a customer the board knows.
  void recordPeople(Customer& customer, const QuorDeskStore::Record& record,
                    const KXDictionary& body);
  // A customer's own message, and the desk's.
  void recordFromCustomer(Customer& customer, const QuorDeskStore::Record& record,
                          const KXDictionary& body);
  void recordFromDesk(Customer& customer, const QuorDeskStore::Record& record,
                      const KXDictionary& body);
  void setState(Customer& customer, const std::string& state);
  void publish(KXDictionary event);
  // A customer as the page shows them; their information only `withInfo` (events carry it only
  // when it changed), what `agent` read only for an agent (never in events).
  static KXDictionary view(const Customer& customer, bool withInfo = true,
                           const std::string& agent = "");
  static KXDictionary lineView(const Line& line);
  static std::size_t bytesOf(const Line& line);

  const Limits limits_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::unordered_map<std::string, Customer> customers_;
  std::list<std::string> finished_;  // ended customers, oldest first
  std::deque<KXDictionary> inbox_;
  std::deque<std::string> events_;  // the newest events; events_.back() is number seq_
  std::size_t eventsBytes_ = 0;
  std::size_t bytes_ = 0;  // customers' information and lines
  uint64_t seq_ = 0;
  bool closed_ = false;
};

}  // namespace quor
