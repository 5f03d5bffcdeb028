#include "QuorDeskConsole/QuorConsoleBoard.h"

#include <algorithm>

#include "KXJsonMembers.h"
#include "KXJsonTree.h"
#include "QuorCustomerService/QuorCustomerService.h"

namespace quor {
namespace {

int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

KXDictionary objectOr(const KXDictionary& value) {
  return value.is_object() ? value : KXDictionary::object();
}

// The customer's name as the desk knows it: their name, nickname, user id, else their address.
std::string nameOf(const KXDictionary& userInfo, const std::string& id) {
  for (const char* key : {"name", "nickName", "userId"}) {
    if (!KXJsonMembers::text(userInfo, key).empty()) return KXJsonMembers::text(userInfo, key);
  }
  return id;
}

}  // namespace

QuorConsoleBoard::QuorConsoleBoard(Limits limits) : limits_(limits) {}

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

void QuorConsoleBoard::forget(const std::string& id) {
  const auto found = customers_.find(id);
  if (found == customers_.end()) return;
  if (found->second.isFinished) finished_.erase(found->second.finished);
  bytes_ -= found->second.infoBytes + found->second.linesBytes;
  customers_.erase(found);
}

void QuorConsoleBoard::setInfo(Customer& customer, const KXDictionary& handshake) {
  KXDictionary info[3] = {objectOr(KXJsonMembers::member(handshake, "userInfo")),
                          objectOr(KXJsonMembers::member(handshake, "contactInfo")),
                          objectOr(KXJsonMembers::member(handshake, "requestInfo"))};
  std::size_t bytes = 0;
  for (const auto& section : info) bytes += section.dump().size();
  if (bytes > limits_.infoBytes) {
    // Too much to keep: the customer's name, and a note in place of the rest.
    const std::string name = nameOf(info[0], customer.id);
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
  return sizeof(Line) + line.who.size() + line.name.size() + line.text.size();
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
  const std::string& id = record.customer;
  const std::string& type = record.objectName;
  const int64_t now = record.time;
  std::lock_guard<std::mutex> lock(mutex_);
  if (closed_) return;
  Customer& customer = customerFor(id);
  const std::string name = nameOf(customer.userInfo, id);
  auto event = [&](const std::string& what) { addLine(customer, {now, "event", "", what}); };
  if (record.fromCustomer) {
    if (type == KXCSHandShakeMessage::getObjectName()) {
      setInfo(customer, body);
      customer.agent.clear();
      customer.rating.clear();
      setState(customer, "robot");
      // The page learns the new information once, here.
      publish({{"customer", view(customer)}});
      event("started a service");
    } else if (type == KXTextMessage::getObjectName()) {
      ++customer.unread;
      addLine(customer, {now, "customer", name, KXJsonMembers::text(body, "content")});
    } else if (type == KXCSChangeModeMessage::getObjectName()) {
      const std::string group = KXJsonMembers::text(body, "groupid");
      customer.group = group;
      setState(customer, "waiting");
      customer.waitingSince = now;
      event(group.empty() ? "asked for an agent" : "asked for an agent and chose group " + group);
    } else if (type == KXCSEvaluateMessage::getObjectName()) {
      const bool robot = KXJsonMembers::text(body, "type") == "0";
      std::string rating =
          robot ? "rated the robot"
                : "rated " + std::to_string(KXJsonMembers::integer(body, "source", 0)) + " stars";
      if (!KXJsonMembers::text(body, "suggest").empty())
        rating += " \u201c" + KXJsonMembers::text(body, "suggest") + "\u201d";
      customer.rating = rating;
      event(rating);
    } else if (type == KXCSLeaveMessage::getObjectName()) {
      inbox_.push_back(
          {{"customer", id}, {"name", name}, {"time", now}, {"values", objectOr(body)}});
      if (inbox_.size() > limits_.inboxKept) inbox_.pop_front();
      publish({{"inbox", inbox_.back()}});
      event("left a message");
    } else if (type == KXCSSuspendMessage::getObjectName()) {
      setState(customer, "ended");
      event("left the service (suspended)");
    }
    return;
  }
  if (type == KXTextMessage::getObjectName()) {
    const bool agent = record.sender == "agent";
    addLine(customer, {now, agent ? "agent" : "robot",
                       KXJsonMembers::text(KXJsonMembers::member(body, "user"), "name"),
                       KXJsonMembers::text(body, "content")});
  } else if (type == KXCSHandShakeResponseMessage::getObjectName()) {
    const KXDictionary& data = KXJsonMembers::member(body, "data");
    if (KXJsonMembers::integer(body, "status", 0) != 1) {
      setState(customer, "ended");
      event("the handshake was refused");
    } else if (!KXJsonMembers::text(data, "robotWelcome").empty()) {
      addLine(customer, {now, "robot", KXJsonMembers::text(data, "robotName"),
                         KXJsonMembers::text(data, "robotWelcome")});
    }
  } else if (type == KXCSChangeModeResponseMessage::getObjectName()) {
    const int64_t status = KXJsonMembers::integer(KXJsonMembers::member(body, "data"), "status", 0);
    if (status == 1 || status == 4) {
      customer.agent = record.agent;
      setState(customer, "agent");
      event("taken by " + (customer.agent.empty() ? std::string("an agent") : customer.agent));
    } else {
      customer.agent.clear();
      setState(customer, "robot");
      event(status == 3 ? "the request for an agent was refused" : "no agent was available");
    }
  } else if (type == KXCSTerminateMessage::getObjectName()) {
    const std::string closing = KXJsonMembers::text(body, "msg");
    if (KXJsonMembers::integer(body, "code", 0) == 1) {
      customer.agent.clear();
      setState(customer, "robot");
      event("handed back to the robot" + (closing.empty() ? "" : ": " + closing));
    } else {
      setState(customer, "ended");
      event("the service ended" + (closing.empty() ? "" : ": " + closing));
    }
  } else if (type == KXCSPullEvaluateMessage::getObjectName()) {
    event("asked for a rating");
  } else if (type == KXCSPullLeaveMessage::getObjectName()) {
    event("invited a message: " + KXJsonMembers::text(body, "content"));
  }
}

void QuorConsoleBoard::markRead(const std::string& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  if (found == customers_.end() || found->second.unread == 0) return;
  found->second.unread = 0;
  publish({{"customer", view(found->second, false)}});
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

KXDictionary QuorConsoleBoard::view(const Customer& customer, bool withInfo) {
  KXDictionary shown = {{"id", customer.id},
                        {"name", nameOf(customer.userInfo, customer.id)},
                        {"state", customer.state},
                        {"group", customer.group},
                        {"agent", customer.agent},
                        {"rating", customer.rating},
                        {"waitingSince", customer.waitingSince},
                        {"lastActive", customer.lastActive},
                        {"unread", customer.unread}};
  if (withInfo) {
    shown["userInfo"] = customer.userInfo;
    shown["contactInfo"] = customer.contactInfo;
    shown["requestInfo"] = customer.requestInfo;
  }
  return shown;
}

KXDictionary QuorConsoleBoard::lineView(const Line& line) {
  return {{"time", line.time}, {"who", line.who}, {"name", line.name}, {"text", line.text}};
}

KXDictionary QuorConsoleBoard::state() const {
  std::lock_guard<std::mutex> lock(mutex_);
  KXDictionary customers = KXDictionary::array();
  for (const auto& entry : customers_) customers.push_back(view(entry.second));
  KXDictionary inbox = KXDictionary::array();
  for (const auto& left : inbox_) inbox.push_back(left);
  return {{"seq", seq_}, {"now", nowMs()}, {"customers", customers}, {"inbox", inbox}};
}

KXDictionary QuorConsoleBoard::conversation(const std::string& id) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = customers_.find(id);
  if (found == customers_.end()) return nullptr;
  KXDictionary lines = KXDictionary::array();
  for (const auto& line : found->second.lines) lines.push_back(lineView(line));
  return {{"customer", view(found->second)}, {"lines", lines}};
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
