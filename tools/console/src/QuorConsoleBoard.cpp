#include "QuorDeskConsole/QuorConsoleBoard.h"

#include <algorithm>

#include "KXJsonMembers.h"
#include "KXJsonTree.h"
#include "QuorCustomerService/QuorCustomerService.h"

namespace quor {
namespace {

// A file message's body as the page shows it: its name, type, size, URL and pixel size, as
// strings and counts whatever the desk or the customer wrote.
KXDictionary fileView(const KXDictionary& body) {
  const auto count = [&](const char* key) {
    const int64_t value = KXJsonMembers::integer(body, key, 0);
    return value > 0 ? value : 0;
  };
  return {{"name", KXJsonMembers::text(body, "name")},
          {"type", KXJsonMembers::text(body, "type")},
          {"size", count("size")},
          {"url", KXJsonMembers::text(body, "url")},
          {"width", count("width")},
          {"height", count("height")}};
}

KXDictionary objectOr(const KXDictionary& value) {
  return value.is_object() ? value : KXDictionary::object();
}

// The customer's name as the desk knows it: their name, nickname, user id, else their address.
std::string displayName(const KXDictionary& userInfo, const std::string& id) {
  for (const char* key : {"name", "nickName", "userId"}) {
    if (!KXJsonMembers::text(userInfo, key).empty()) return KXJsonMembers::text(userInfo, key);
  }
  return id;
}

}  // namespace

QuorConsoleBoard::QuorConsoleBoard(Limits limits) : limits_(limits) {}

int64_t QuorConsoleBoard::now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

QuorConsoleBoard::Customer& QuorConsoleBoard::customerFor(const std::string& id) {
  auto found = customers_.find(id);
  if (found != customers_.end()) return found->second;
  while (customers_.size() >= limits_.customers && dropOne(id)) {
  }
  Customer& made = customers_[id];
  made.id = id;
  return made;
}

bool QuorConsoleBoard::dropOne(const std::string& keep) {
  if (!finished_.empty() && finished_.front() != keep) {
    forget(finished_.front());
    return true;
  }
  auto oldest = customers_.end();
  for (auto it = customers_.begin(); it != customers_.end(); ++it) {
    if (it->first != keep &&
        (oldest == customers_.end() || it->second.lastActive < oldest->second.lastActive))
      oldest = it;
  }
  if (oldest == customers_.end()) return false;
  forget(oldest->first);
  return true;
}

void QuorConsoleBoard::forget(const std::string& which) {
  const std::string id = which;  // `which` may live in what is erased here
  const auto found = customers_.find(id);
  if (found == customers_.end()) return;
  if (found->second.isFinished) finished_.erase(found->second.finished);
  bytes_ -= found->second.infoBytes + found->second.linesBytes;
  customers_.erase(found);
  publish({{"gone", id}});
}

void QuorConsoleBoard::setInfo(Customer& customer, const KXDictionary& handshake) {
  KXDictionary info[3] = {objectOr(KXJsonMembers::member(handshake, "userInfo")),
                          objectOr(KXJsonMembers::member(handshake, "contactInfo")),
                          objectOr(KXJsonMembers::member(handshake, "requestInfo"))};
  std::size_t bytes = 0;
  for (const auto& section : info) bytes += section.dump().size();
  if (bytes > limits_.infoBytes) {
    // Too much to keep: the customer's name, and a note in place of the rest.
    const std::string name = displayName(info[0], customer.id);
    const KXDictionary cut = {{"cut", std::to_string(bytes) +
                                          " bytes, over the console's limit of " +
                                          std::to_string(limits_.infoBytes)}};
    info[0] = cut;
    info[0]["name"] = name.substr(0, 256);
    info[1] = info[2] = cut;
    bytes = 3 * cut.dump().size() + 256;
  }
  bytes_ -= customer.infoBytes;
  customer.userInfo = std::move(info[0]);
  customer.contactInfo = std::move(info[1]);
  customer.requestInfo = std::move(info[2]);
  customer.infoBytes = bytes;
  bytes_ += bytes;
}

std::size_t QuorConsoleBoard::bytesOf(const Line& line) {
  // An event's values repeat what its text says.
  return sizeof(Line) + line.who.size() + line.name.size() + 2 * line.text.size() +
         line.event.size() + (line.file.is_null() ? 0 : line.file.dump().size());
}

void QuorConsoleBoard::addLine(Customer& customer, Line line) {
  customer.lastActive = line.time;
  const std::size_t bytes = bytesOf(line);
  customer.lines.push_back(line);
  customer.linesBytes += bytes;
  bytes_ += bytes;
  while (!customer.lines.empty() &&
         (customer.lines.size() > limits_.linesPerCustomer ||
          (customer.lines.size() > 1 && customer.linesBytes > limits_.linesBytesPerCustomer))) {
    const std::size_t dropped = bytesOf(customer.lines.front());
    customer.linesBytes -= dropped;
    bytes_ -= dropped;
    customer.lines.pop_front();
  }
  // Beyond the board's bytes, other customers go: this one's line is shown.
  while (bytes_ > limits_.totalBytes && dropOne(customer.id)) {
  }
  publish({{"customer", view(customer, false)}, {"line", lineView(line)}});
}

void QuorConsoleBoard::addEvent(Customer& customer, int64_t time, const std::string& key,
                                const std::string& text, KXDictionary values) {
  Line line{time, "event", "", text};
  line.event = key;
  line.values = std::move(values);
  addLine(customer, std::move(line));
}

void QuorConsoleBoard::setState(Customer& customer, const std::string& state) {
  if (customer.isFinished) {
    finished_.erase(customer.finished);
    customer.isFinished = false;
  }
  customer.state = state;
  if (state != "waiting") customer.waitingSince = 0;
  if (state != "ended") return;
  customer.finished = finished_.insert(finished_.end(), customer.id);
  customer.isFinished = true;
  while (finished_.size() > std::max<std::size_t>(1, limits_.finishedKept)) {
    forget(finished_.front());
  }
}

void QuorConsoleBoard::record(const QuorDeskStore::Record& record) {
  const KXDictionary body =
      record.body ? KXJsonTree::parse(*record.body, KXJsonTree::kMaxDepth).value_or(KXDictionary())
                  : KXDictionary();
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) return;
  if (record.objectName.rfind("console.", 0) == 0) {
    // The people's records are about customers on the board; others are gone already.
    const auto found = customers_.find(record.customer);
    if (found != customers_.end()) recordPeople(found->second, record, body);
    return;
  }
  Customer& customer = customerFor(record.customer);
  if (record.fromCustomer) {
    recordFromCustomer(customer, record, body);
  } else {
    recordFromDesk(customer, record, body);
  }
}

void QuorConsoleBoard::recordPeople(Customer& customer, const QuorDeskStore::Record& record,
                                    const KXDictionary& body) {
  const std::string& type = record.objectName;
  if (type == kRead) {
    const int64_t upTo = KXJsonMembers::integer(body, "upTo", 0);
    uint64_t& read = customer.readUpTo[record.agent];
    if (upTo <= 0 || static_cast<uint64_t>(upTo) <= read) return;
    read = std::min<uint64_t>(static_cast<uint64_t>(upTo), customer.written);
    publish({{"read", {{"customer", customer.id}, {"agent", record.agent}, {"upTo", read}}}});
  } else if (type == kNote) {
    addLine(customer, {record.time, "note", record.agent, KXJsonMembers::text(body, "text")});
  } else if (type == kPassed) {
    const std::string to = KXJsonMembers::text(body, "to");
    const std::string group = KXJsonMembers::text(body, "group");
    KXDictionary values = {{"by", record.agent}, {"to", to}, {"group", group}};
    if (!to.empty()) {
      customer.agent = to;
      addEvent(customer, record.time, "passedToAgent", "passed by " + record.agent + " to " + to,
               std::move(values));
    } else {
      customer.agent.clear();
      customer.group = group;
      setState(customer, "waiting");
      customer.waitingSince = record.time;
      addEvent(customer, record.time, "passedToGroup",
               "passed by " + record.agent + " to the wait" +
                   (group.empty() ? std::string() : " of group " + group),
               std::move(values));
    }
  }
}

void QuorConsoleBoard::recordFromCustomer(Customer& customer, const QuorDeskStore::Record& record,
                                          const KXDictionary& body) {
  const std::string& type = record.objectName;
  const int64_t now = record.time;
  const std::string name = displayName(customer.userInfo, customer.id);
  if (type == KXCSHandShakeMessage::getObjectName()) {
    setInfo(customer, body);
    customer.agent.clear();
    customer.rating.clear();
    setState(customer, "robot");
    // The page learns the new information once, here.
    publish({{"customer", view(customer)}});
    addEvent(customer, now, "started", "started a service");
  } else if (type == KXTextMessage::getObjectName()) {
    ++customer.written;
    customer.typing = false;  // the line ends the typing; its event carries the view
    Line line{now, "customer", name, KXJsonMembers::text(body, "content")};
    line.stamp = record.stamp;
    addLine(customer, std::move(line));
  } else if (type == KXFileMessage::getObjectName()) {
    ++customer.written;
    customer.typing = false;
    Line line{now, "customer", name, ""};
    line.file = fileView(body);
    line.stamp = record.stamp;
    addLine(customer, std::move(line));
  } else if (type == KXCSChangeModeMessage::getObjectName()) {
    const std::string group = KXJsonMembers::text(body, "groupid");
    customer.group = group;
    setState(customer, "waiting");
    customer.waitingSince = now;
    addEvent(customer, now, "asked",
             group.empty() ? "asked for an agent" : "asked for an agent and chose group " + group,
             {{"group", group}});
  } else if (type == KXCSEvaluateMessage::getObjectName()) {
    const bool robot = KXJsonMembers::text(body, "type") == "0";
    const int64_t stars = KXJsonMembers::integer(body, "source", 0);
    const std::string suggestion = KXJsonMembers::text(body, "suggest");
    std::string rating = robot ? "rated the robot" : "rated " + std::to_string(stars) + " stars";
    if (!suggestion.empty()) rating += " \u201c" + suggestion + "\u201d";
    customer.rating = rating;
    addEvent(customer, now, "rated", rating,
             {{"robot", robot}, {"stars", stars}, {"suggestion", suggestion}});
  } else if (type == KXCSLeaveMessage::getObjectName()) {
    inbox_.push_back(
        {{"customer", customer.id}, {"name", name}, {"time", now}, {"values", objectOr(body)}});
    if (inbox_.size() > limits_.inboxKept) inbox_.pop_front();
    publish({{"inbox", inbox_.back()}});
    addEvent(customer, now, "leftMessage", "left a message");
  } else if (type == KXCSSuspendMessage::getObjectName()) {
    setState(customer, "ended");
    addEvent(customer, now, "suspended", "left the service (suspended)");
  }
}

void QuorConsoleBoard::recordFromDesk(Customer& customer, const QuorDeskStore::Record& record,
                                      const KXDictionary& body) {
  const std::string& type = record.objectName;
  const int64_t now = record.time;
  if (type == KXTextMessage::getObjectName() || type == KXFileMessage::getObjectName()) {
    // The agent's text as said by no person (an automatic receipt) is the desk's own.
    const bool agent = record.sender == "agent";
    const std::string who = !agent ? "robot" : record.agent.empty() ? "desk" : "agent";
    Line line{now, who, KXJsonMembers::text(KXJsonMembers::member(body, "user"), "name"),
              KXJsonMembers::text(body, "content")};
    if (type == KXFileMessage::getObjectName()) line.file = fileView(body);
    addLine(customer, std::move(line));
  } else if (type == KXCSHandShakeResponseMessage::getObjectName()) {
    const KXDictionary& data = KXJsonMembers::member(body, "data");
    if (KXJsonMembers::integer(body, "status", 0) != 1) {
      setState(customer, "ended");
      addEvent(customer, now, "handshakeRefused", "the handshake was refused");
    } else if (!KXJsonMembers::text(data, "robotWelcome").empty()) {
      addLine(customer, {now, "robot", KXJsonMembers::text(data, "robotName"),
                         KXJsonMembers::text(data, "robotWelcome")});
    }
  } else if (type == KXCSChangeModeResponseMessage::getObjectName()) {
    const int64_t status = KXJsonMembers::integer(KXJsonMembers::member(body, "data"), "status", 0);
    if (status == KXCSChangeModeAgentServes || status == KXCSChangeModeAlreadyWithAgent) {
      customer.agent = record.agent;
      setState(customer, "agent");
      addEvent(customer, now, "taken",
               "taken by " + (customer.agent.empty() ? std::string("an agent") : customer.agent),
               {{"agent", customer.agent}});
    } else {
      customer.agent.clear();
      setState(customer, "robot");
      const bool refused = status == KXCSChangeModeRefused;
      addEvent(customer, now, refused ? "refused" : "noAgent",
               refused ? "the request for an agent was refused" : "no agent was available");
    }
  } else if (type == KXCSTerminateMessage::getObjectName()) {
    const std::string closing = KXJsonMembers::text(body, "msg");
    const std::string said = closing.empty() ? "" : ": " + closing;
    if (KXJsonMembers::integer(body, "code", 0) == KXCSTerminateBackToRobot) {
      customer.agent.clear();
      setState(customer, "robot");
      addEvent(customer, now, "backToRobot", "handed back to the robot" + said,
               {{"text", closing}});
    } else {
      setState(customer, "ended");
      addEvent(customer, now, "ended", "the service ended" + said, {{"text", closing}});
    }
  } else if (type == KXCSPullEvaluateMessage::getObjectName()) {
    addEvent(customer, now, "askedRating", "asked for a rating");
  } else if (type == KXCSPullLeaveMessage::getObjectName()) {
    const std::string invitation = KXJsonMembers::text(body, "content");
    addEvent(customer, now, "invited", "invited a message: " + invitation, {{"text", invitation}});
  }
}

KXDictionary QuorConsoleBoard::fileOf(const std::string& id, const std::string& url) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  if (found == customers_.end() || url.empty()) return nullptr;
  for (const auto& line : found->second.lines) {
    if (!line.file.is_null() && KXJsonMembers::text(line.file, "url") == url) return line.file;
  }
  return nullptr;
}

uint64_t QuorConsoleBoard::linesWritten(const std::string& id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  return found == customers_.end() ? 0 : found->second.written;
}

uint64_t QuorConsoleBoard::readBy(const std::string& id, const std::string& agent) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  if (found == customers_.end()) return 0;
  const auto read = found->second.readUpTo.find(agent);
  return read == found->second.readUpTo.end() ? 0 : read->second;
}

std::string QuorConsoleBoard::nameOf(const std::string& id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  return found == customers_.end() ? "" : displayName(found->second.userInfo, id);
}

std::string QuorConsoleBoard::servedBy(const std::string& id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  return found == customers_.end() || found->second.state != "agent" ? "" : found->second.agent;
}

void QuorConsoleBoard::typing(const std::string& id, bool typing) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  if (found == customers_.end() || found->second.typing == typing) return;
  found->second.typing = typing;
  publish({{"typing", {{"customer", id}, {"typing", typing}}}});
}

void QuorConsoleBoard::seen(const std::string& id, int64_t at) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  if (found == customers_.end() || at <= found->second.seenAt) return;
  found->second.seenAt = at;
  publish({{"seen", {{"customer", id}, {"at", at}}}});
}

void QuorConsoleBoard::publish(KXDictionary event) {
  event["seq"] = ++seq_;
  events_.push_back(event.dump(-1, ' ', false, KXDictionary::error_handler_t::replace));
  eventsBytes_ += events_.back().size();
  while (events_.size() > 1 &&
         (events_.size() > limits_.eventsKept || eventsBytes_ > limits_.eventsBytes)) {
    eventsBytes_ -= events_.front().size();
    events_.pop_front();
  }
  changed_.notify_all();
}

KXDictionary QuorConsoleBoard::view(const Customer& customer, bool withInfo,
                                    const std::string& agent) {
  KXDictionary shown = {{"id", customer.id},
                        {"name", displayName(customer.userInfo, customer.id)},
                        {"state", customer.state},
                        {"group", customer.group},
                        {"agent", customer.agent},
                        {"rating", customer.rating},
                        {"waitingSince", customer.waitingSince},
                        {"lastActive", customer.lastActive},
                        {"written", customer.written},
                        {"typing", customer.typing},
                        {"seenAt", customer.seenAt}};
  // Events are one for all agents: what an agent read comes with a state or a conversation, and
  // then in "read" events.
  if (!agent.empty()) {
    const auto read = customer.readUpTo.find(agent);
    shown["read"] = read == customer.readUpTo.end() ? 0 : read->second;
  }
  if (withInfo) {
    shown["userInfo"] = customer.userInfo;
    shown["contactInfo"] = customer.contactInfo;
    shown["requestInfo"] = customer.requestInfo;
  }
  return shown;
}

KXDictionary QuorConsoleBoard::lineView(const Line& line) {
  KXDictionary shown = {
      {"time", line.time}, {"who", line.who}, {"name", line.name}, {"text", line.text}};
  if (line.stamp) shown["stamp"] = line.stamp;
  if (!line.file.is_null()) shown["file"] = line.file;
  if (!line.event.empty()) {
    shown["event"] = line.event;
    shown["values"] = line.values;
  }
  return shown;
}

KXDictionary QuorConsoleBoard::state(const std::string& agent) const {
  std::lock_guard<std::mutex> lock(mutex_);
  KXDictionary customers = KXDictionary::array();
  for (const auto& entry : customers_) customers.push_back(view(entry.second, true, agent));
  KXDictionary inbox = KXDictionary::array();
  for (const auto& left : inbox_) inbox.push_back(left);
  return {{"seq", seq_}, {"now", now()}, {"customers", customers}, {"inbox", inbox}};
}

KXDictionary QuorConsoleBoard::conversation(const std::string& id, const std::string& agent) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  if (found == customers_.end()) return nullptr;
  KXDictionary lines = KXDictionary::array();
  for (const auto& line : found->second.lines) lines.push_back(lineView(line));
  return {{"customer", view(found->second, true, agent)}, {"lines", lines}};
}

std::vector<std::string> QuorConsoleBoard::eventsAfter(uint64_t seq, std::chrono::milliseconds wait,
                                                       bool* reload) const {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, wait, [&] { return closed_ || seq_ > seq; });
  // A page ahead of the board follows a desk that restarted: it starts over.
  *reload = seq > seq_;
  if (seq_ <= seq) return {};
  const uint64_t oldest = seq_ - events_.size() + 1;
  if (seq + 1 < oldest) {
    *reload = true;
    return {};
  }
  return {events_.begin() + static_cast<std::ptrdiff_t>(seq + 1 - oldest), events_.end()};
}

void QuorConsoleBoard::close() {
  std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

}  // namespace quor
