// quor-cs-replay [SCRIPT]: runs a script of application operations and desk messages (JSON
// Lines) against the library on the loopback host and writes a trace of everything the library
// did (JSON Lines). See docs/replay.md.
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>

#include "KXJsonTree.h"
#include "QuorInputFile.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"
#include "QuorReplayTrace.h"

namespace {

using namespace quor;

// The callbacks a start passes, by their trace names.
const std::set<std::string> kStartCallbacks = {"success",        "error",       "mode",
                                               "pullEvaluation", "selectGroup", "quit"};

// A script line that cannot be run; exit status 2.
struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Field readers: a missing or null string is absent; other fields are required unless a
// default is given.
KXString stringField(const KXDictionary& line, const char* key) {
  const auto it = line.find(key);
  if (it == line.end() || it->is_null()) return std::nullopt;
  if (!it->is_string())
    throw ScriptError(std::string("field \"") + key + "\" must be a string or null");
  return it->get<std::string>();
}

const KXDictionary& required(const KXDictionary& line, const char* key) {
  const auto it = line.find(key);
  if (it == line.end()) throw ScriptError(std::string("missing field \"") + key + "\"");
  return *it;
}

// A field of JSON type T (bool or int64_t): the fallback when missing and one is given, else
// required.
template <class T>
T typedField(const KXDictionary& line, const char* key, std::optional<T> fallback,
             bool (KXDictionary::*hasType)() const noexcept, const char* expected) {
  const auto it = line.find(key);
  if (it == line.end() && fallback) return *fallback;
  const KXDictionary& value = required(line, key);
  if (!(value.*hasType)())
    throw ScriptError(std::string("field \"") + key + "\" must be " + expected);
  return value.get<T>();
}

bool boolField(const KXDictionary& line, const char* key,
               std::optional<bool> fallback = std::nullopt) {
  return typedField<bool>(line, key, fallback, &KXDictionary::is_boolean, "true or false");
}

int64_t integerField(const KXDictionary& line, const char* key,
                     std::optional<int64_t> fallback = std::nullopt) {
  return typedField<int64_t>(line, key, fallback, &KXDictionary::is_number_integer, "an integer");
}

std::shared_ptr<const KXDictionary> objectField(const KXDictionary& line, const char* key) {
  const auto it = line.find(key);
  if (it == line.end() || it->is_null()) return nullptr;
  if (!it->is_object()) throw ScriptError(std::string("field \"") + key + "\" must be an object");
  return std::make_shared<const KXDictionary>(*it);
}

std::shared_ptr<KXCustomerServiceInfo> infoOf(const KXDictionary& line) {
  const auto fields = objectField(line, "info");
  if (!fields) return nullptr;
  auto info = std::make_shared<KXCustomerServiceInfo>();
  using Setter = void (KXCustomerServiceInfo::*)(KXString);
  static const std::map<std::string, Setter> setters = {
      {"userId", &KXCustomerServiceInfo::setUserId},
      {"nickName", &KXCustomerServiceInfo::setNickName},
      {"loginName", &KXCustomerServiceInfo::setLoginName},
      {"name", &KXCustomerServiceInfo::setName},
      {"grade", &KXCustomerServiceInfo::setGrade},
      {"gender", &KXCustomerServiceInfo::setGender},
      {"birthday", &KXCustomerServiceInfo::setBirthday},
      {"age", &KXCustomerServiceInfo::setAge},
      {"profession", &KXCustomerServiceInfo::setProfession},
      {"portraitUrl", &KXCustomerServiceInfo::setPortraitUrl},
      {"province", &KXCustomerServiceInfo::setProvince},
      {"city", &KXCustomerServiceInfo::setCity},
      {"memo", &KXCustomerServiceInfo::setMemo},
      {"mobileNo", &KXCustomerServiceInfo::setMobileNo},
      {"email", &KXCustomerServiceInfo::setEmail},
      {"address", &KXCustomerServiceInfo::setAddress},
      {"QQ", &KXCustomerServiceInfo::setQQ},
      {"weibo", &KXCustomerServiceInfo::setWeibo},
      {"weixin", &KXCustomerServiceInfo::setWeixin},
      {"page", &KXCustomerServiceInfo::setPage},
      {"referrer", &KXCustomerServiceInfo::setReferrer},
      {"enterUrl", &KXCustomerServiceInfo::setEnterUrl},
      {"skillId", &KXCustomerServiceInfo::setSkillId},
      {"define", &KXCustomerServiceInfo::setDefine},
      {"productId", &KXCustomerServiceInfo::setProductId},
  };
  for (const auto& entry : fields->items()) {
    if (entry.key() == "listUrl") {
      auto urls = std::make_shared<std::vector<std::string>>();
      if (!entry.value().is_array()) throw ScriptError("info.listUrl must be an array of strings");
      for (const auto& url : entry.value()) {
        if (!url.is_string()) throw ScriptError("info.listUrl must be an array of strings");
        urls->push_back(url.get<std::string>());
      }
      info->setListUrl(urls);
      continue;
    }
    const auto setter = setters.find(entry.key());
    if (setter == setters.end()) throw ScriptError("unknown info property \"" + entry.key() + "\"");
    (info.get()->*setter->second)(stringField(*fields, entry.key().c_str()));
  }
  return info;
}

class Replay {
 public:
  explicit Replay(std::FILE* out)
      : trace_(std::make_shared<QuorReplayTrace>(out)),
        host_(std::make_shared<QuorLoopbackHost>()),
        module_(loadedBy(*host_, trace_)) {
    host_->setSuspendWhenLeave(false);
  }
  ~Replay() { QuorLoopbackHost::uninstall(); }

  void run(const KXDictionary& line) {
    const KXDictionary& name = required(line, "do");
    if (!name.is_string()) throw ScriptError("field \"do\" must be a string");
    const std::string op = name.get<std::string>();
    auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
    if (op == "start") {
      start(line);
    } else if (op == "stop") {
      client.stopCustomerService(stringField(line, "kefuId"));
    } else if (op == "switchToHumanMode") {
      client.switchToHumanMode(stringField(line, "kefuId"));
    } else if (op == "selectGroup") {
      client.selectCustomerServiceGroup(stringField(line, "kefuId"), stringField(line, "groupId"));
    } else if (op == "changeMode") {
      client.sendChangeModelMessage(stringField(line, "kefuId"), stringField(line, "groupId"));
    } else if (op == "evaluateRobot") {
      client.evaluateCustomerService(stringField(line, "kefuId"), stringField(line, "knownledgeId"),
                                     boolField(line, "robotValue"), stringField(line, "suggest"));
    } else if (op == "evaluateHuman") {
      client.evaluateCustomerService(stringField(line, "kefuId"), stringField(line, "dialogId"),
                                     static_cast<int32_t>(integerField(line, "starValue")),
                                     stringField(line, "suggest"),
                                     static_cast<uint64_t>(integerField(line, "resolveStatus")));
    } else if (op == "evaluateHumanTagged") {
      client.evaluateCustomerService(stringField(line, "kefuId"), stringField(line, "dialogId"),
                                     static_cast<int32_t>(integerField(line, "starValue")),
                                     stringField(line, "suggest"),
                                     static_cast<uint64_t>(integerField(line, "resolveStatus")),
                                     stringField(line, "tagText"), objectField(line, "extra"));
    } else if (op == "getEvaConfig") {
      const bool throws = boolField(line, "throw", false);
      client.getHumanEvaluateCustomerServiceConfig(
          [this, throws](const std::shared_ptr<const KXDictionary>& config) {
            callback("evaConfig", {config ? *config : KXDictionary()}, throws);
          });
    } else if (op == "leaveMessage") {
      const bool throws = boolField(line, "throw", false);
      client.leaveMessageCustomerService(
          stringField(line, "kefuId"), objectField(line, "dic"),
          [this, throws](int64_t id) { callback("leaveSuccess", {id}, throws); },
          [this, throws](int64_t code, int64_t id) {
            callback("leaveFailure", {code, id}, throws);
          });
    } else if (op == "notify") {
      client.notifyCustomerService(stringField(line, "kefuId"), stringField(line, "text"),
                                   boolField(line, "saveToDB"));
    } else if (op == "state") {
      state();
    } else if (op == "receive") {
      receive(line);
    } else if (op == "confirm") {
      const bool ok = boolField(line, "ok");
      std::optional<int64_t> sentTime;
      if (ok)
        sentTime =
            line.contains("sentTime") ? integerField(line, "sentTime") : host_->nextSentTime();
      host_->confirmOldestSend(ok, sentTime, ok ? 0 : integerField(line, "code"));
    } else if (op == "host") {
      if (line.contains("autoConfirm")) host_->setAutoConfirm(boolField(line, "autoConfirm"));
      if (line.contains("csSuspendWhenLeave"))
        host_->setSuspendWhenLeave(boolField(line, "csSuspendWhenLeave"));
    } else if (op == "module") {
      module(line);
    } else if (op == "runMain") {
      runMain();
    } else {
      throw ScriptError("unknown \"do\": \"" + op + "\"");
    }
    host_->waitForThreads();
  }

  void runMain() {
    host_->mainRunLoop().runUntilIdle();
    host_->waitForThreads();
  }

 private:
  // The host of the replay: installed, with the trace watching, and the module it loaded at
  // start, on which every module line calls.
  static QuorIMLibExtensionModule& loadedBy(QuorLoopbackHost& host,
                                            const std::shared_ptr<QuorReplayTrace>& trace) {
    host.setLogSink(nullptr, 0);
    host.setObserver(trace);
    host.install();
    return host.loadExtensionModule();
  }

  // Records a callback; then throws, when the script asked for it, as a faulty app would.
  void callback(const std::string& name, std::initializer_list<KXDictionary> values,
                bool throws = false) {
    KXDictionary args = KXDictionary::array();
    for (const auto& value : values) args.push_back(value);
    KXDictionary line = {{"ev", "callback"},
                         {"thread", QuorLoopbackHost::threadName()},
                         {"name", name},
                         {"args", args}};
    if (name == "mode") {
      line["currentCSModeType"] =
          KXCustomerServiceClient::sharedCustomerServiceClient().currentCSModeType();
    }
    trace_->event(line);
    if (throws) throw std::runtime_error("replay: " + name + " throws as the script asks");
  }

  void start(const KXDictionary& line) {
    std::set<std::string> names = kStartCallbacks;
    if (line.contains("callbacks")) {
      const KXDictionary& chosen = line["callbacks"];
      if (!chosen.is_array()) throw ScriptError("field \"callbacks\" must be an array of names");
      names.clear();
      for (const auto& name : chosen) {
        if (!name.is_string()) throw ScriptError("field \"callbacks\" must be an array of names");
        names.insert(name.get<std::string>());
      }
    }
    std::set<std::string> throwing;
    if (line.contains("throw")) {
      const KXDictionary& chosen = line["throw"];
      if (!chosen.is_array()) throw ScriptError("field \"throw\" must be an array of names");
      for (const auto& name : chosen) {
        if (!name.is_string() || kStartCallbacks.count(name.get<std::string>()) == 0)
          throw ScriptError("field \"throw\" must name callbacks of the start");
        throwing.insert(name.get<std::string>());
      }
    }
    const auto has = [&](const char* name) { return names.count(name) > 0; };
    const auto throws = [&](const char* name) { return throwing.count(name) > 0; };
    KXSuccessBlock success;
    KXErrorBlock error;
    KXModeTypeBlock mode;
    KXPullEvaluationBlock pull;
    KXSelectGroupBlock select;
    KXQuitBlock quit;
    if (has("success")) {
      success = [this, t = throws("success")](std::shared_ptr<KXCustomerServiceConfig> config) {
        callback("success", {config ? QuorReplayTrace::configuration(*config) : KXDictionary()}, t);
      };
    }
    if (has("error")) {
      error = [this, t = throws("error")](int64_t code, const std::string& text) {
        callback("error", {code, text}, t);
      };
    }
    if (has("mode")) {
      mode = [this, t = throws("mode")](KXCSModeType value) {
        callback("mode", {static_cast<uint64_t>(value)}, t);
      };
    }
    if (has("pullEvaluation")) {
      pull = [this, t = throws("pullEvaluation")](const KXString& dialogId) {
        callback("pullEvaluation", {QuorReplayTrace::text(dialogId)}, t);
      };
    }
    if (has("selectGroup")) {
      select = [this, t = throws("selectGroup")](const KXCustomerServiceGroupList& groups) {
        callback("selectGroup", {QuorReplayTrace::groups(groups)}, t);
      };
    }
    if (has("quit")) {
      quit = [this, t = throws("quit")](const std::string& text) { callback("quit", {text}, t); };
    }
    KXCustomerServiceClient::sharedCustomerServiceClient().startCustomerService(
        stringField(line, "kefuId"), infoOf(line), success, error, mode, pull, select, quit);
  }

  void receive(const KXDictionary& line) {
    const KXDictionary& objectName = required(line, "objectName");
    if (!objectName.is_string()) throw ScriptError("field \"objectName\" must be a string");
    QuorWireMessage message;
    message.objectName = objectName.get<std::string>();
    message.targetId = stringField(line, "targetId");
    message.senderUserId =
        line.contains("senderUserId") ? stringField(line, "senderUserId") : message.targetId;
    message.conversationType = static_cast<int32_t>(integerField(line, "conversationType", 5));
    message.sentTime = integerField(line, "sentTime", 0);
    message.offline = boolField(line, "offline", false);
    if (line.contains("body")) {
      message.body = stringField(line, "body");
    } else if (line.contains("json")) {
      message.body = line["json"].dump(-1, ' ', false, KXDictionary::error_handler_t::replace);
    }
    const bool held = host_->receive(std::move(message), true);
    trace_->event({{"ev", "held"}, {"value", held}});
  }

  void module(const KXDictionary& line) {
    const KXString call = stringField(line, "call");
    QuorIMLibExtensionModule& module = module_;
    if (call == "destroyModule") {
      module.destroyModule();
    } else if (call == "signalTypes") {
      KXDictionary names = KXDictionary::array();
      for (const auto& type : module.getSignalMessageClassList())
        names.push_back(type.objectName());
      trace_->event({{"ev", "signalTypes"}, {"objectNames", names}});
    } else if (call == "setAppKey") {
      module.setAppKey(stringField(line, "key"));
    } else {
      throw ScriptError("field \"call\" must be destroyModule, signalTypes or setAppKey");
    }
  }

  void state() {
    auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
    KXDictionary sessions = KXDictionary::object();
    for (const auto& [kefuId, session] : client.customerServiceSessions()) {
      KXDictionary callbacks = KXDictionary::array();
      const std::pair<const char*, bool> present[] = {
          {"success", bool(session->successBlock())},
          {"error", bool(session->errorBlock())},
          {"mode", bool(session->modeTypeBlock())},
          {"pullEvaluation", bool(session->pullEvaluationBlock())},
          {"selectGroup", bool(session->selectGroupBlock())},
          {"quit", bool(session->quitBlock())},
          {"evaConfig", bool(session->evaConfigBlock())},
      };
      for (const auto& [name, isPresent] : present) {
        if (isPresent) callbacks.push_back(name);
      }
      sessions[kefuId] = {{"uid", QuorReplayTrace::text(session->uid())},
                          {"cid", QuorReplayTrace::text(session->cid())},
                          {"pid", QuorReplayTrace::text(session->pid())},
                          {"isQuited", session->isQuited()},
                          {"suspendWhenQuit", session->suspendWhenQuit()},
                          {"reportResolveStatus", session->reportResolveStatus()},
                          {"type", session->type()},
                          {"robotName", QuorReplayTrace::text(session->robotName())},
                          {"robotLogo", QuorReplayTrace::text(session->robotLogo())},
                          {"robotHelloWord", QuorReplayTrace::text(session->robotHelloWord())},
                          {"groupList", QuorReplayTrace::groups(session->groupList())},
                          {"callbacks", callbacks}};
    }
    trace_->event({{"ev", "state"},
                   {"kefuId", QuorReplayTrace::text(client.kefuId())},
                   {"currentCSModeType", static_cast<uint64_t>(client.currentCSModeType())},
                   {"handShakeMessageSendTime", client.handShakeMessageSendTime()},
                   {"sessions", sessions}});
  }

  std::shared_ptr<QuorReplayTrace> trace_;
  std::shared_ptr<QuorLoopbackHost> host_;
  QuorIMLibExtensionModule& module_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) {
    std::fprintf(stderr, "usage: quor-cs-replay [SCRIPT]\n");
    return 2;
  }
  std::string problem;
  const auto script = QuorInputFile::read(argc == 2 ? argv[1] : "-", &problem);
  if (!script) {
    std::fprintf(stderr, "quor-cs-replay: %s\n", problem.c_str());
    return 2;
  }

  Replay replay(stdout);
  std::size_t start = 0;
  for (int number = 1; start < script->size(); ++number) {
    std::size_t end = script->find('\n', start);
    if (end == std::string::npos) end = script->size();
    const std::string_view text(script->data() + start, end - start);
    start = end + 1;
    if (text.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    try {
      // Lines nest as deep as the library reads bodies, and no deeper.
      const auto line = KXJsonTree::parse(text, KXJsonTree::kMaxDepth, &problem);
      if (!line) throw ScriptError("not JSON: " + problem);
      if (!line->is_object()) throw ScriptError("not a JSON object");
      replay.run(*line);
    } catch (const ScriptError& error) {
      std::fprintf(stderr, "quor-cs-replay: line %d: %s\n", number, error.what());
      return 2;
    }
  }
  replay.runMain();
  return 0;
}
