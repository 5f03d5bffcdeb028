#include "QuorDeskSimulator/QuorDeskSimulator.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "KXJsonMembers.h"
#include "KXJsonTree.h"
#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorInputFile.h"

namespace quor {
namespace {

// Profile values are read with KXJsonMembers: a wrong JSON type reads as the default.
// A whole number that fits 32 bits, or absent (floats with a fraction, out-of-range values).
std::optional<int64_t> wholeNumber(const KXDictionary& value) {
  constexpr double kLimit = 2147483647.0;
  if (value.is_number_integer() || value.is_number_unsigned() || value.is_number_float()) {
    const double number = value.get<double>();
    if (number >= -kLimit && number <= kLimit &&
        number == static_cast<double>(static_cast<int64_t>(number)))
      return static_cast<int64_t>(number);
  }
  return std::nullopt;
}
int64_t integer(const KXDictionary& object, const char* key, int64_t fallback = 0) {
  return wholeNumber(KXJsonMembers::member(object, key)).value_or(fallback);
}

// The first number anywhere in the profile that is not a whole 32-bit number, with its path;
// "" when there is none. Iterative, as the profile may nest deeply.
std::string badNumber(const KXDictionary& profile) {
  std::vector<std::pair<const KXDictionary*, std::string>> pending{{&profile, ""}};
  while (!pending.empty()) {
    auto [value, path] = pending.back();
    pending.pop_back();
    if (value->is_number() && !wholeNumber(*value)) {
      return "\"" + path + "\" must be a whole number between -2147483647 and 2147483647 (found " +
             value->dump() + ")";
    }
    if (value->is_object()) {
      for (const auto& [key, child] : value->items())
        pending.emplace_back(&child, path.empty() ? key : path + "." + key);
    } else if (value->is_array()) {
      for (std::size_t i = 0; i < value->size(); ++i)
        pending.emplace_back(&(*value)[i], path + "[" + std::to_string(i) + "]");
    }
  }
  return "";
}
// A customer's body as JSON; null when absent, not JSON or nested too deeply.
KXDictionary parsedBody(const QuorWireMessage& message) {
  if (!message.body) return nullptr;
  return KXJsonTree::parse(*message.body, KXJsonTree::kMaxDepth).value_or(nullptr);
}

std::string lowered(std::string value) {
  std::transform(value.begin(), value.end(), value.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return value;
}

// The keys a profile may hold, by section ("" the top level, "group" each entry of "groups"):
// a misspelt key is reported instead of being ignored.
const std::map<std::string, std::set<std::string>>& knownKeys() {
  static const std::map<std::string, std::set<std::string>> keys = {
      {"",
       {"deskId", "companyName", "serviceType", "blacklisted", "switchToHumanAtStart", "humanAgent",
        "robot", "groups", "agent", "evaluation", "leaveMessage", "announcement", "suspendWhenQuit",
        "end", "handshake", "files"}},
      {"files", {"receipt", "answer"}},
      {"robot", {"name", "portrait", "greeting", "answers", "fallback", "echo"}},
      {"agent", {"name", "portrait", "greeting", "replies"}},
      {"group", {"id", "name", "online", "agent"}},
      {"evaluation", {"options", "config", "satisfaction", "askAfterAgentReplies"}},
      {"leaveMessage", {"type", "fields", "receipt", "url"}},
      {"announcement", {"text", "clickUrl"}},
      {"end", {"afterLeaveMessage", "afterEvaluation", "afterAgentReplies", "text", "mode"}},
      {"handshake", {"fail", "message"}}};
  return keys;
}

// The first key of `object` that the section does not know, as a message; "" when none.
std::string unknownKey(const KXDictionary& object, const std::string& section) {
  if (!object.is_object()) return "";
  const auto& known = knownKeys().at(section);
  for (const auto& item : object.items()) {
    if (known.count(item.key()) == 0) {
      return "unknown key \"" + item.key() + "\"" +
             (section.empty() ? "" : " in \"" + section + "\"");
    }
  }
  return "";
}

// The profile's problems, or "" when it can be used.
std::string validate(const KXDictionary& profile) {
  if (!profile.is_object()) return "the profile must be a JSON object";
  for (const auto& [section, keys] : knownKeys()) {
    if (section == "group") continue;
    const std::string unknown = unknownKey(
        section.empty() ? profile : KXJsonMembers::member(profile, section.c_str()), section);
    if (!unknown.empty()) return unknown;
  }
  if (const std::string number = badNumber(profile); !number.empty()) return number;
  if (KXJsonMembers::text(profile, "deskId").empty())
    return "\"deskId\" must be a non-empty string";
  const int64_t type = integer(profile, "serviceType", -1);
  if (type < 1 || type > 4) return "\"serviceType\" must be 1, 2, 3 or 4";
  const std::string human = KXJsonMembers::text(profile, "humanAgent", "accepts");
  if (human != "accepts" && human != "unavailable" && human != "refuses") {
    return "\"humanAgent\" must be \"accepts\", \"unavailable\" or \"refuses\"";
  }
  for (const char* key : {"robot", "agent", "evaluation", "leaveMessage", "announcement", "end",
                          "handshake", "files"}) {
    const KXDictionary& section = KXJsonMembers::member(profile, key);
    if (!section.is_null() && !section.is_object())
      return std::string("\"") + key + "\" must be an object";
  }
  for (const auto& group : KXJsonMembers::list(profile, "groups")) {
    if (KXJsonMembers::text(group, "id").empty())
      return "every entry of \"groups\" needs a string \"id\"";
    if (const std::string unknown = unknownKey(group, "group"); !unknown.empty()) return unknown;
    if (const std::string unknown = unknownKey(KXJsonMembers::member(group, "agent"), "agent");
        !unknown.empty())
      return unknown;
  }
  return "";
}

}  // namespace

std::shared_ptr<QuorDeskSimulator> QuorDeskSimulator::fromProfile(const KXDictionary& profile,
                                                                  std::string* error) {
  const std::string problem = validate(profile);
  if (!problem.empty()) {
    if (error) *error = "desk profile: " + problem;
    return nullptr;
  }
  return std::shared_ptr<QuorDeskSimulator>(new QuorDeskSimulator(profile));
}

std::shared_ptr<QuorDeskSimulator> QuorDeskSimulator::fromFile(const std::string& path,
                                                               std::string* error) {
  std::string problem;
  const auto bytes = QuorInputFile::read(path, &problem);
  auto profile = bytes ? KXJsonTree::parse(*bytes, KXJsonTree::kMaxDepth, &problem) : std::nullopt;
  if (!profile) {
    if (error) *error = "desk profile: " + (bytes ? path + ": " : "") + problem;
    return nullptr;
  }
  return fromProfile(*profile, error);
}

QuorDeskSimulator::QuorDeskSimulator(KXDictionary profile)
    : profile_(std::move(profile)), deskId_(KXJsonMembers::text(profile_, "deskId")) {}

void QuorDeskSimulator::attach(const std::shared_ptr<QuorLoopbackHost>& host) {
  std::weak_ptr<QuorLoopbackHost> weakHost = host;
  attach([weakHost](QuorWireMessage message) {
    if (auto receiver = weakHost.lock()) receiver->receiveAsync(std::move(message));
  });
  host->connectPeer(shared_from_this());
}

void QuorDeskSimulator::attach(Reply reply) {
  std::lock_guard<std::mutex> lock(mutex_);
  reply_ = std::move(reply);
}

void QuorDeskSimulator::keepReceived(std::size_t messages) {
  std::lock_guard<std::mutex> lock(mutex_);
  kept_ = std::min(messages, kKeptMessages);
  while (received_.size() > kept_) received_.pop_front();
}

std::vector<QuorWireMessage> QuorDeskSimulator::received() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return {received_.begin(), received_.end()};
}

std::vector<KXDictionary> QuorDeskSimulator::bodiesOf(const std::string& objectName) const {
  std::vector<KXDictionary> bodies;
  for (const auto& message : received()) {
    if (message.objectName != objectName) continue;
    bodies.push_back(parsedBody(message));
  }
  return bodies;
}

bool QuorDeskSimulator::humanMode() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return humanMode_;
}

bool QuorDeskSimulator::suspended() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return suspended_;
}

void QuorDeskSimulator::send(const std::string& objectName, const KXDictionary& body,
                             const std::string& senderUserId) {
  Reply reply;
  Watch watch;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    reply = reply_;
    watch = watch_;
  }
  if (!reply) return;
  QuorWireMessage message;
  message.objectName = objectName;
  message.targetId = deskId_;
  message.senderUserId = senderUserId;
  // A text that is not UTF-8 (a file's name from a page, a profile's bytes) is written with
  // U+FFFD in its place: the desk never throws on what it was given.
  message.body = body.dump(-1, ' ', false, KXDictionary::error_handler_t::replace);
  if (watch) watch(message, false);
  reply(std::move(message));
}

void QuorDeskSimulator::servedByPeople(Watch watch) {
  std::lock_guard<std::mutex> lock(mutex_);
  watch_ = std::move(watch);
}

std::optional<std::string> QuorDeskSimulator::waitingForAgent() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return waiting_;
}

bool QuorDeskSimulator::takeByAgent(const std::string& name, const std::string& greeting) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!waiting_) return false;
    waiting_.reset();
    groupAgent_ = {{"name", name}, {"greeting", greeting}};
    humanMode_ = true;
    takenBy_ = name;
  }
  KXDictionary data = {{"status", KXCSChangeModeAgentServes}};
  const KXDictionary& satisfaction =
      KXJsonMembers::member(KXJsonMembers::member(profile_, "evaluation"), "satisfaction");
  if (!satisfaction.is_null()) data["satisfaction"] = satisfaction;
  send(KXCSChangeModeResponseMessage::getObjectName(), {{"code", 200}, {"data", data}}, deskId_);
  if (!greeting.empty()) sendText(greeting, true);
  return true;
}

bool QuorDeskSimulator::declineAgent(int status) {
  if (status != KXCSChangeModeNoAgent && status != KXCSChangeModeRefused) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!waiting_) return false;
    waiting_.reset();
    humanMode_ = false;
    takenBy_.clear();
  }
  send(KXCSChangeModeResponseMessage::getObjectName(),
       {{"code", 200}, {"data", {{"status", status}}}}, deskId_);
  return true;
}

bool QuorDeskSimulator::passToAgent(const std::string& name, const std::string& text) {
  if (takenBy().empty() || name.empty()) return false;
  if (!text.empty()) sendText(text, true);
  std::lock_guard<std::mutex> lock(mutex_);
  groupAgent_["name"] = name;
  takenBy_ = name;
  return true;
}

bool QuorDeskSimulator::passToGroup(const std::string& group, const std::string& text) {
  if (takenBy().empty()) return false;
  if (!text.empty()) sendText(text, true);
  // The customer's app stays with an agent, and the desk stays quiet until a person takes them.
  std::lock_guard<std::mutex> lock(mutex_);
  takenBy_.clear();
  waiting_ = group;
  return true;
}

std::string QuorDeskSimulator::takenBy() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return takenBy_;
}

KXDictionary QuorDeskSimulator::saveState() const {
  std::lock_guard<std::mutex> lock(mutex_);
  KXDictionary state = {{"humanMode", humanMode_},     {"suspended", suspended_},
                        {"groupAgent", groupAgent_},   {"agentReplies", agentReplies_},
                        {"evaluations", evaluations_}, {"services", services_},
                        {"takenBy", takenBy_}};
  if (waiting_) state["waiting"] = *waiting_;
  return state;
}

void QuorDeskSimulator::restoreState(const KXDictionary& state) {
  std::lock_guard<std::mutex> lock(mutex_);
  humanMode_ = KXJsonMembers::flag(state, "humanMode");
  suspended_ = KXJsonMembers::flag(state, "suspended");
  groupAgent_ = KXJsonMembers::member(state, "groupAgent").is_object()
                    ? KXJsonMembers::member(state, "groupAgent")
                    : KXDictionary::object();
  agentReplies_ = static_cast<int>(integer(state, "agentReplies"));
  evaluations_ = static_cast<int>(integer(state, "evaluations"));
  services_ = static_cast<int>(integer(state, "services"));
  takenBy_ = KXJsonMembers::text(state, "takenBy");
  if (KXJsonMembers::member(state, "waiting").is_string()) {
    waiting_ = KXJsonMembers::text(state, "waiting");
  } else {
    waiting_.reset();
  }
}

KXDictionary QuorDeskSimulator::speaker(bool fromAgent) const {
  const KXDictionary who = fromAgent ? agent() : KXJsonMembers::member(profile_, "robot");
  KXDictionary user = {{"id", fromAgent ? "agent" : deskId_},
                       {"name", KXJsonMembers::text(who, "name", fromAgent ? "Agent" : "Robot")}};
  if (!KXJsonMembers::text(who, "portrait").empty())
    user["portrait"] = KXJsonMembers::text(who, "portrait");
  return user;
}

void QuorDeskSimulator::sendText(const std::string& content, bool fromAgent) {
  send(KXTextMessage::getObjectName(), {{"content", content}, {"user", speaker(fromAgent)}},
       fromAgent ? "agent" : deskId_);
}

void QuorDeskSimulator::say(const std::string& content) { sendText(content, humanMode()); }

void QuorDeskSimulator::sayFile(const KXDictionary& file) {
  const bool fromAgent = humanMode();
  KXDictionary body = file.is_object() ? file : KXDictionary::object();
  body["user"] = speaker(fromAgent);
  send(KXFileMessage::getObjectName(), body, fromAgent ? "agent" : deskId_);
}

void QuorDeskSimulator::requestEvaluation() {
  int number;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    number = ++evaluations_;
  }
  send(KXCSPullEvaluateMessage::getObjectName(), {{"msgId", "dialog-" + std::to_string(number)}},
       deskId_);
}

void QuorDeskSimulator::endService(const std::string& content, int code) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    humanMode_ = false;
    waiting_.reset();
    takenBy_.clear();
  }
  KXDictionary body = {{"code", code}, {"sid", "service-" + std::to_string(services_)}};
  if (!content.empty()) body["msg"] = content;
  send(KXCSTerminateMessage::getObjectName(), body, deskId_);
}

void QuorDeskSimulator::updateService(int serviceStatus) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    humanMode_ = serviceStatus == KXCSUpdateAgentServes;
    if (!humanMode_) takenBy_.clear();
  }
  send(KXCSUpdateMessage::getObjectName(),
       {{"sid", "service-" + std::to_string(services_)}, {"serviceStatus", serviceStatus}},
       deskId_);
}

void QuorDeskSimulator::inviteLeaveMessage(const std::string& content) {
  send(KXCSPullLeaveMessage::getObjectName(), {{"content", content}}, deskId_);
}

void QuorDeskSimulator::onMessageFromClient(const QuorWireMessage& message) {
  Watch watch;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (kept_ > 0) received_.push_back(message);
    if (received_.size() > kept_) received_.pop_front();
    watch = watch_;
  }
  if (watch) watch(message, true);
  const KXDictionary body = parsedBody(message);
  const KXDictionary& end = KXJsonMembers::member(profile_, "end");
  if (message.objectName == KXCSHandShakeMessage::getObjectName()) {
    answerHandShake();
  } else if (message.objectName == KXCSChangeModeMessage::getObjectName()) {
    answerChangeMode(body);
  } else if (message.objectName == KXTextMessage::getObjectName()) {
    answerText(KXJsonMembers::text(body, "content"));
  } else if (message.objectName == KXFileMessage::getObjectName()) {
    answerFile(KXJsonMembers::text(body, "name"));
  } else if (message.objectName == KXCSEvaluateMessage::getObjectName()) {
    if (KXJsonMembers::flag(end, "afterEvaluation")) finishService();
  } else if (message.objectName == KXCSLeaveMessage::getObjectName()) {
    const std::string receipt =
        KXJsonMembers::text(KXJsonMembers::member(profile_, "leaveMessage"), "receipt");
    if (!receipt.empty()) sendText(receipt, humanMode());
    if (KXJsonMembers::flag(end, "afterLeaveMessage")) finishService();
  } else if (message.objectName == KXCSSuspendMessage::getObjectName()) {
    std::lock_guard<std::mutex> lock(mutex_);
    suspended_ = true;
    humanMode_ = false;
    waiting_.reset();
    takenBy_.clear();
  }
}

KXDictionary QuorDeskSimulator::handShakeResponse() const {
  const KXDictionary& handshake = KXJsonMembers::member(profile_, "handshake");
  if (KXJsonMembers::flag(handshake, "fail")) {
    return {{"status", KXCSHandShakeRefused}, {"msg", KXJsonMembers::text(handshake, "message")}};
  }
  const KXDictionary& robot = KXJsonMembers::member(profile_, "robot");
  const KXDictionary& evaluation = KXJsonMembers::member(profile_, "evaluation");
  const KXDictionary& leave = KXJsonMembers::member(profile_, "leaveMessage");
  const KXDictionary& announcement = KXJsonMembers::member(profile_, "announcement");
  KXDictionary data = {
      {"uid", "uid-" + deskId_},
      {"sid", "service-" + std::to_string(services_)},
      {"pid", "pid-" + deskId_},
      {"companyName", KXJsonMembers::text(profile_, "companyName", deskId_)},
      {"isblack", KXJsonMembers::flag(profile_, "blacklisted") ? 1 : 0},
      {"serviceType", integer(profile_, "serviceType")},
      {"robotName", KXJsonMembers::text(robot, "name")},
      {"robotIcon", KXJsonMembers::text(robot, "portrait")},
      {"robotWelcome", KXJsonMembers::text(robot, "greeting")},
      {"notAutoCha", KXJsonMembers::flag(profile_, "switchToHumanAtStart") ? 1 : 0},
      {"groups", KXDictionary::array()},
      {"evaluateList", KXDictionary::array()},
  };
  for (const auto& group : KXJsonMembers::list(profile_, "groups")) {
    data["groups"].push_back({{"id", KXJsonMembers::text(group, "id")},
                              {"name", KXJsonMembers::text(group, "name")},
                              {"online", KXJsonMembers::flag(group, "online", true) ? 1 : 0}});
  }
  for (const auto& option : KXJsonMembers::list(evaluation, "options")) {
    data["evaluateList"].push_back({{"description", KXJsonMembers::text(option, "description")},
                                    {"value", integer(option, "value")}});
  }
  if (KXJsonMembers::member(evaluation, "config").is_object())
    data["evaConf"] = KXJsonMembers::member(evaluation, "config");
  if (leave.is_object()) {
    KXDictionary conf = {{"type", integer(leave, "type")},
                         {"defaultConf", KXJsonMembers::list(leave, "fields")}};
    if (!KXJsonMembers::text(leave, "url").empty())
      conf["customConf"] = {{"url", KXJsonMembers::text(leave, "url")}};
    data["leaveMsgConf"] = conf;
  }
  if (!KXJsonMembers::text(announcement, "text").empty()) {
    data["announceMsgFlag"] = 1;
    data["announceMsg"] = KXJsonMembers::text(announcement, "text");
    if (!KXJsonMembers::text(announcement, "clickUrl").empty()) {
      data["announceClickFlag"] = 1;
      data["announceClickUrl"] = KXJsonMembers::text(announcement, "clickUrl");
    }
  }
  if (KXJsonMembers::member(profile_, "suspendWhenQuit").is_boolean()) {
    data["suspendWhenQuit"] = KXJsonMembers::flag(profile_, "suspendWhenQuit");
  }
  return {{"status", 1}, {"msg", "ok"}, {"data", data}};
}

KXDictionary QuorDeskSimulator::agent() const {
  KXDictionary serving = KXJsonMembers::member(profile_, "agent");
  if (!serving.is_object()) serving = KXDictionary::object();
  std::lock_guard<std::mutex> lock(mutex_);
  // The dictionary's own insert searches its keys: the linear merge instead.
  KXJsonTree::merge(serving, groupAgent_);
  return serving;
}

void QuorDeskSimulator::answerHandShake() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++services_;
    agentReplies_ = 0;
    suspended_ = false;
    waiting_.reset();
    takenBy_.clear();
    humanMode_ = integer(profile_, "serviceType") == 2 || integer(profile_, "serviceType") == 4;
  }
  send(KXCSHandShakeResponseMessage::getObjectName(), handShakeResponse(), deskId_);
}

void QuorDeskSimulator::answerChangeMode(const KXDictionary& request) {
  std::string answer = KXJsonMembers::text(profile_, "humanAgent", "accepts");
  // A group that is off line has no agent to offer.
  for (const auto& group : KXJsonMembers::list(profile_, "groups")) {
    if (KXJsonMembers::text(group, "id") == KXJsonMembers::text(request, "groupid") &&
        !KXJsonMembers::flag(group, "online", true)) {
      answer = "unavailable";
    }
  }
  const KXDictionary& evaluation = KXJsonMembers::member(profile_, "evaluation");
  // The agent of the chosen group serves, where the group names one.
  KXDictionary groupAgent;
  for (const auto& group : KXJsonMembers::list(profile_, "groups")) {
    if (KXJsonMembers::text(group, "id") == KXJsonMembers::text(request, "groupid"))
      groupAgent = KXJsonMembers::member(group, "agent");
  }
  if (answer == "accepts") {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      // People serve: the customer waits until one takes them (or declines).
      if (watch_) {
        waiting_ = KXJsonMembers::text(request, "groupid");
        return;
      }
      groupAgent_ = groupAgent;
    }
    KXDictionary data = {{"status", KXCSChangeModeAgentServes}};
    if (!KXJsonMembers::member(evaluation, "satisfaction").is_null())
      data["satisfaction"] = KXJsonMembers::member(evaluation, "satisfaction");
    {
      std::lock_guard<std::mutex> lock(mutex_);
      humanMode_ = true;
    }
    send(KXCSChangeModeResponseMessage::getObjectName(), {{"code", 200}, {"data", data}}, deskId_);
    const std::string greeting = KXJsonMembers::text(agent(), "greeting");
    if (!greeting.empty()) sendText(greeting, true);
  } else if (answer == "unavailable") {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      humanMode_ = false;
    }
    send(KXCSChangeModeResponseMessage::getObjectName(),
         {{"code", 200}, {"data", {{"status", KXCSChangeModeNoAgent}}}}, deskId_);
  } else {
    KXDictionary refusal = {{"code", 200}, {"data", {{"status", KXCSChangeModeRefused}}}};
    send(KXCSChangeModeResponseMessage::getObjectName(), refusal, deskId_);
  }
}

std::string QuorDeskSimulator::robotAnswer(const std::string& question) const {
  const KXDictionary& robot = KXJsonMembers::member(profile_, "robot");
  const std::string asked = lowered(question);
  for (const auto& entry : KXJsonMembers::list(robot, "answers")) {
    for (const auto& keyword : KXJsonMembers::list(entry, "keywords")) {
      if (keyword.is_string() &&
          asked.find(lowered(keyword.get<std::string>())) != std::string::npos) {
        return KXJsonMembers::text(entry, "answer");
      }
    }
  }
  // An echoing robot answers every other question with the question itself: each answer is
  // then unique, which tests that count answers need.
  const auto echo = robot.find("echo");
  if (echo != robot.end() && echo->is_boolean() && echo->get<bool>())
    return "You said: " + question;
  return KXJsonMembers::text(robot, "fallback", "Sorry, I do not know that yet.");
}

void QuorDeskSimulator::answerFile(const std::string& name) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (humanMode_ && watch_) return;  // the person serving answers
  }
  const KXDictionary& files = KXJsonMembers::member(profile_, "files");
  std::string receipt = KXJsonMembers::text(files, "receipt");
  if (const auto at = receipt.find("{name}"); at != std::string::npos) receipt.replace(at, 6, name);
  if (!receipt.empty()) sendText(receipt, humanMode());
  const KXDictionary& answer = KXJsonMembers::member(files, "answer");
  if (!KXJsonMembers::text(answer, "url").empty()) sayFile(answer);
}

void QuorDeskSimulator::answerText(const std::string& question) {
  bool people;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    people = static_cast<bool>(watch_);
  }
  if (!humanMode()) {
    sendText(robotAnswer(question), false);
    return;
  }
  if (people) return;  // the person serving answers
  const KXDictionary serving = agent();
  const KXDictionary replies = KXJsonMembers::list(serving, "replies");
  int replyNumber;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    replyNumber = ++agentReplies_;
  }
  std::string reply = "Let me check that for you.";
  if (!replies.empty()) {
    const auto& chosen = replies[std::min<std::size_t>(replyNumber - 1, replies.size() - 1)];
    if (chosen.is_string()) reply = chosen.get<std::string>();
  }
  sendText(reply, true);
  if (integer(KXJsonMembers::member(profile_, "evaluation"), "askAfterAgentReplies") ==
      replyNumber) {
    requestEvaluation();
  }
  if (integer(KXJsonMembers::member(profile_, "end"), "afterAgentReplies") == replyNumber)
    finishService();
}

void QuorDeskSimulator::finishService() {
  const KXDictionary& end = KXJsonMembers::member(profile_, "end");
  if (KXJsonMembers::text(end, "mode", "end") == "suspend") {
    updateService(KXCSUpdateClosed);
  } else {
    endService(KXJsonMembers::text(end, "text"), KXCSTerminateEndService);
  }
}

KXDictionary QuorDeskSimulator::defaultProfile() {
  return KXDictionary::parse(R"({
  "deskId": "quor-shop",
  "companyName": "Quor Shop",
  "serviceType": 3,
  "robot": {
    "name": "Ava",
    "portrait": "https://shop.example/ava.png",
    "greeting": "Hi, I am Ava, the Quor Shop assistant. How can I help?",
    "answers": [
      {"keywords": ["order", "delivery"],
       "answer": "Orders ship within 24 hours; you can follow yours under Me > Orders."},
      {"keywords": ["refund", "return"],
       "answer": "Returns are free within 30 days. An agent can start one for you."}
    ],
    "fallback": "Sorry, I did not understand that. An agent can help."
  },
  "groups": [
    {"id": "sales", "name": "Sales", "online": true,
     "agent": {"name": "Kai", "greeting": "Hello, this is Kai from Sales. How can I help?"}},
    {"id": "after-sales", "name": "After-sales", "online": true,
     "agent": {"name": "Lin", "greeting": "Hello, this is Lin from After-sales. Let me look at your order."}}
  ],
  "humanAgent": "accepts",
  "agent": {
    "name": "Lin",
    "greeting": "Hello, this is Lin from After-sales. Let me look at your order.",
    "replies": [
      "I have started the return: a courier will pick the parcel up tomorrow.",
      "The refund reaches your account within 3 working days after pick-up."
    ]
  },
  "evaluation": {
    "options": [
      {"description": "Very satisfied", "value": 5},
      {"description": "Satisfied", "value": 4},
      {"description": "Unsatisfied", "value": 1}
    ],
    "config": {"evaEntryPoint": 1, "evaType": 1, "reportResolveStatus": 1},
    "satisfaction": [{"isQuestionFlag": 1}],
    "askAfterAgentReplies": 2
  },
  "leaveMessage": {
    "type": 1,
    "fields": [
      {"title": "Name", "name": "name", "type": "text", "required": true, "max": 20},
      {"title": "Phone", "name": "phone", "type": "tel", "required": true,
       "verification": "mobile", "max": 11},
      {"title": "Message", "name": "content", "type": "textarea", "required": true, "max": 200}
    ],
    "receipt": "Thanks, we have your message and will call you back."
  },
  "announcement": {"text": "Free returns all month!", "clickUrl": "https://shop.example/returns"},
  "suspendWhenQuit": true,
  "files": {"receipt": "Thanks, we have {name}: an agent will look at it."},
  "end": {"afterLeaveMessage": true, "text": "Thank you for contacting Quor Shop. Goodbye!"}
})");
}

}  // namespace quor
