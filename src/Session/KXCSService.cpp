#include "QuorCustomerService/Session/KXCSService.h"

#include <algorithm>
#include <mutex>

#include "Client/KXAgentAnswerHook.h"
#include "QuorCustomerService/KXCustomerServiceClient.h"
#include "Session/KXCSLeaveMessageForm.h"
#include "Session/KXCSStartQueue.h"
#include "Session/KXCSTimer.h"
#include "Support/KXCallbackGuard.h"
#include "Support/KXMainThread.h"

namespace quor {
namespace {

using State = KXCSServiceState;
using Reason = KXCSServiceReason;
using Result = KXCSServiceResult;

bool running(State state) {
  return state != State::NotStarted && state != State::Ended && state != State::Failed;
}

bool hasGroups(const KXCustomerServiceGroupList& groups) { return groups && !groups->empty(); }

}  // namespace

KXCSServiceObserver::~KXCSServiceObserver() = default;
void KXCSServiceObserver::onStateChanged(const KXCSServiceStatus&) {}
void KXCSServiceObserver::onRatingRequested(const KXString&) {}
void KXCSServiceObserver::onEvaluationSettings(const KXDictionary&) {}
void KXCSServiceObserver::onMessageLeft(bool, int64_t) {}

// The service's state, shared with the client's callbacks through weak references. Each start
// has a generation; a callback of an older start (or of a service ended since) finds another
// generation and does nothing.
class KXCSService::Core : public std::enable_shared_from_this<Core> {
 public:
  Core(std::string deskId, std::weak_ptr<KXCSServiceObserver> observer)
      : deskId(std::move(deskId)), observer(std::move(observer)) {}
  ~Core() {
    KXAgentAnswerHook::forget(deskId, this);
    KXCSStartQueue::shared().done(this);
  }

  KXCustomerServiceClient& client() {
    return KXCustomerServiceClient::sharedCustomerServiceClient();
  }

  KXCSServiceStatus snapshot() const {
    std::lock_guard<std::mutex> lock(mutex);
    return status;
  }

  // Records the next state and reports it in a closure posted to the main thread, so that it
  // reaches the observer after whatever the client's current closure still does (its stop).
  void move(KXCSServiceStatus next) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (!next.config) next.config = status.config;
      // The same state again (a second mode report of an agent, say) is no change.
      if (next.state == status.state && next.reason == status.reason &&
          next.canAskForAgent == status.canAskForAgent && next.groups == status.groups &&
          next.text == status.text) {
        return;
      }
      status = next;
    }
    tell([next](KXCSServiceObserver& watcher) { watcher.onStateChanged(next); });
  }

  void tell(std::function<void(KXCSServiceObserver&)> call) {
    std::weak_ptr<KXCSServiceObserver> watcherRef = observer;
    KXMainThread::post([watcherRef, call = std::move(call)] {
      if (auto watcher = watcherRef.lock()) KXCallbackGuard::run([&] { call(*watcher); });
    });
  }

  // Whether `generation` is still the running start.
  bool current(uint64_t started) const {
    std::lock_guard<std::mutex> lock(mutex);
    return started == generation && running(status.state);
  }
  // Ends the running start: later callbacks of it do nothing.
  void finish() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      ++generation;
      timer.reset();
    }
    KXCSStartQueue::shared().done(this);
  }

  template <class Callback>
  auto guarded(uint64_t started, Callback callback) {
    std::weak_ptr<Core> weak = weak_from_this();
    return [weak, started, callback](auto&&... arguments) {
      auto core = weak.lock();
      if (core && core->current(started)) callback(*core, arguments...);
    };
  }

  void onSuccess(const std::shared_ptr<KXCustomerServiceConfig>& config) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      timer.reset();
      blocked = config && config->isBlack();
    }
    KXCSStartQueue::shared().done(this);
    KXCSServiceStatus next;
    next.state = State::Connected;
    next.config = config;
    next.reason = config && config->isBlack() ? Reason::Blocked : Reason::None;
    if (next.reason == Reason::Blocked) next.text = "你已被拉黑";
    move(next);
  }

  void onMode(KXCSModeType mode) {
    const State before = snapshot().state;
    // An agent was asked for and has not come: the app's request, or a human service's own
    // request at the start (its first mode report is an agent's before any agent answered).
    bool waited = before == State::WaitingForAgent || before == State::ChoosingGroup;
    {
      std::lock_guard<std::mutex> lock(mutex);
      waited = waited || (before == State::Agent && !agentConfirmed);
      if (mode == KXCSModeHuman) agentConfirmed = before == State::Agent || waited;
    }
    KXCSServiceStatus next;
    switch (mode) {
      case KXCSModeRobotOnly:
      case KXCSModeRobotFirst:
        next.state = State::Robot;
        next.canAskForAgent = mode == KXCSModeRobotFirst;
        next.reason = waited ? Reason::NoAgentAvailable : Reason::None;
        break;
      case KXCSModeHuman:
        next.state = State::Agent;
        break;
      default:
        // The service is closed (the desk's update), or a human-only service found no agent.
        finish();
        client().stopCustomerService(deskId);
        next.state = State::Ended;
        next.reason = waited ? Reason::NoAgentAvailable : Reason::DeskEnded;
        break;
    }
    move(next);
  }

  // The desk's answer to an agent request, also those the client reports nothing for: with no
  // agent (2) a robot-first service goes back to its robot; a refusal (3) goes back to the
  // robot in a robot-first service and ends a service that has no robot to go back to.
  void onAgentAnswer(int32_t result, int32_t serviceType, const KXString& text) {
    if (result != 2 && result != 3) return;
    const KXCSServiceStatus now = snapshot();
    bool waiting = now.state == State::WaitingForAgent || now.state == State::ChoosingGroup;
    {
      std::lock_guard<std::mutex> lock(mutex);
      waiting = waiting || (now.state == State::Agent && !agentConfirmed);
      if (result == 3) blocked = true;
    }
    if (!waiting) return;
    KXCSServiceStatus next;
    next.reason = result == 2 ? Reason::NoAgentAvailable : Reason::Blocked;
    if (result == 3) next.text = text && !text->empty() ? *text : "你已被拉黑";
    if (serviceType == KXCSServiceTypeRobotFirst) {
      next.state = State::Robot;
      next.canAskForAgent = true;
    } else if (result == 3) {
      finish();
      client().stopCustomerService(deskId);
      next.state = State::Ended;
    } else {
      return;  // a human service without an agent: the client's own mode report follows
    }
    move(next);
  }

  void onQuit(const std::string& text) {
    finish();  // the client stops the service right after this callback
    KXCSServiceStatus next;
    next.state = State::Ended;
    next.reason = Reason::DeskEnded;
    next.text = text;
    move(next);
  }

  void onError(int64_t code, const std::string& text) {
    finish();
    KXCSServiceStatus next;
    next.state = State::Failed;
    next.code = code;
    next.text = text;
    // A refused handshake (the desk's code 0) leaves the service running in the client: stop it
    // here. A failed send is stopped by the client right after this callback.
    next.reason = code == 0 ? Reason::HandshakeRefused : Reason::ConnectionFailed;
    if (code == 0) client().stopCustomerService(deskId);
    move(next);
  }

  void onTimeout(uint64_t started) {
    if (!current(started) || snapshot().state != State::Connecting) return;
    finish();  // lets a queued start go
    client().stopCustomerService(deskId);
    KXCSServiceStatus next;
    next.state = State::Failed;
    next.reason = Reason::Timeout;
    next.text = "连接客服失败!";
    move(next);
  }

  // Sends the handshake of the start `started` and registers for its callbacks.
  void sendHandshake(uint64_t started, std::shared_ptr<KXCustomerServiceInfo> info) {
    std::weak_ptr<Core> weak = weak_from_this();
    KXAgentAnswerHook::listen(deskId, this,
                              [weak, started](int32_t result, int32_t type, const KXString& text) {
                                KXMainThread::post([weak, started, result, type, text] {
                                  auto core = weak.lock();
                                  if (core && core->current(started))
                                    core->onAgentAnswer(result, type, text);
                                });
                              });
    client().startCustomerService(
        deskId, std::move(info),
        guarded(
            started,
            [](Core& c, std::shared_ptr<KXCustomerServiceConfig> config) { c.onSuccess(config); }),
        guarded(started,
                [](Core& c, int64_t code, const std::string& text) { c.onError(code, text); }),
        guarded(started, [](Core& c, KXCSModeType mode) { c.onMode(mode); }),
        guarded(started,
                [](Core& c, const KXString& dialog) {
                  {
                    std::lock_guard<std::mutex> lock(c.mutex);
                    c.lastDialog = dialog;
                  }
                  c.tell([dialog](KXCSServiceObserver& w) { w.onRatingRequested(dialog); });
                }),
        guarded(started,
                [](Core& c, const KXCustomerServiceGroupList& groups) {
                  KXCSServiceStatus next;
                  next.state = State::ChoosingGroup;
                  next.groups = groups;
                  c.move(next);
                }),
        guarded(started, [](Core& c, const std::string& text) { c.onQuit(text); }));
    // The client keeps this callback in the session of the desk started last: this one.
    client().getHumanEvaluateCustomerServiceConfig(
        guarded(started, [](Core& c, const std::shared_ptr<const KXDictionary>& settings) {
          if (!settings) return;
          c.tell([settings](KXCSServiceObserver& w) { w.onEvaluationSettings(*settings); });
        }));
  }

  const std::string deskId;
  const std::weak_ptr<KXCSServiceObserver> observer;
  mutable std::mutex mutex;
  KXCSServiceStatus status;
  uint64_t generation = 0;
  bool blocked = false;
  bool agentConfirmed = false;
  KXString lastDialog;
  std::unique_ptr<KXCSTimer> timer;
};

std::shared_ptr<KXCSService> KXCSService::make(std::string deskId,
                                               std::weak_ptr<KXCSServiceObserver> observer) {
  return std::shared_ptr<KXCSService>(
      new KXCSService(std::make_shared<Core>(std::move(deskId), std::move(observer))));
}

KXCSService::KXCSService(std::shared_ptr<Core> core) : core_(std::move(core)) {}

KXCSService::~KXCSService() {
  const bool wasRunning = running(core_->snapshot().state);
  core_->finish();
  if (wasRunning) core_->client().stopCustomerService(core_->deskId);
}

const std::string& KXCSService::deskId() const { return core_->deskId; }

KXCSServiceStatus KXCSService::status() const { return core_->snapshot(); }

KXCSServiceResult KXCSService::start(std::shared_ptr<KXCustomerServiceInfo> info,
                                     std::chrono::milliseconds handshakeTimeout) {
  Core& core = *core_;
  uint64_t started;
  {
    std::lock_guard<std::mutex> lock(core.mutex);
    if (running(core.status.state)) return Result::AlreadyStarted;
    started = ++core.generation;
    core.blocked = false;
    core.agentConfirmed = false;
    core.lastDialog.reset();
  }
  KXCSServiceStatus connecting;
  connecting.state = State::Connecting;
  {
    std::lock_guard<std::mutex> lock(core.mutex);
    core.status = KXCSServiceStatus{};  // a new start forgets the old configuration
  }
  core.move(connecting);
  std::weak_ptr<Core> weak = core_;
  KXCSStartQueue::shared().enqueue(&core, [weak, started, info = std::move(info)]() mutable {
    auto waiting = weak.lock();
    if (!waiting) return;
    if (!waiting->current(started)) {
      KXCSStartQueue::shared().done(waiting.get());
      return;
    }
    waiting->sendHandshake(started, std::move(info));
  });
  if (handshakeTimeout.count() > 0) {
    auto timer = std::make_unique<KXCSTimer>(handshakeTimeout, [weak, started] {
      KXMainThread::post([weak, started] {
        if (auto c = weak.lock()) c->onTimeout(started);
      });
    });
    std::lock_guard<std::mutex> lock(core.mutex);
    if (core.generation == started) core.timer = std::move(timer);
  }
  return Result::Done;
}

KXCSServiceResult KXCSService::askForAgent() {
  const KXCSServiceStatus now = core_->snapshot();
  switch (now.state) {
    case State::Robot:
      break;
    case State::Agent:
    case State::ChoosingGroup:
    case State::WaitingForAgent:
      return Result::AlreadyWithAgent;
    default:
      return Result::NotConnected;
  }
  if (!now.canAskForAgent) return Result::AgentNotOffered;
  {
    std::lock_guard<std::mutex> lock(core_->mutex);
    if (core_->blocked) return Result::Blocked;
  }
  core_->client().switchToHumanMode(core_->deskId);
  // With groups the client asks the app to choose first (ChoosingGroup follows).
  const auto sessions = core_->client().customerServiceSessions();
  const auto session = sessions.find(core_->deskId);
  if (session == sessions.end() || !hasGroups(session->second->groupList())) {
    KXCSServiceStatus next;
    next.state = State::WaitingForAgent;
    core_->move(next);
  }
  return Result::Done;
}

KXCSServiceResult KXCSService::chooseGroup(const std::string& groupId) {
  const KXCSServiceStatus now = core_->snapshot();
  if (now.state != State::ChoosingGroup || !hasGroups(now.groups)) return Result::NotChoosingGroup;
  const bool offered = std::any_of(now.groups->begin(), now.groups->end(), [&](const auto& group) {
    return group && group->groupId() == groupId;
  });
  if (!offered) return Result::GroupNotOffered;
  core_->client().selectCustomerServiceGroup(core_->deskId, groupId);
  KXCSServiceStatus next;
  next.state = State::WaitingForAgent;
  core_->move(next);
  return Result::Done;
}

KXCSServiceResult KXCSService::rateRobot(const KXCSRobotRating& rating) {
  const KXCSServiceStatus now = core_->snapshot();
  if (!now.config) return Result::NotConnected;
  if (now.config->robotSessionNoEva()) return Result::RatingNotOffered;
  core_->client().evaluateCustomerService(core_->deskId, rating.knowledgeId, rating.resolved,
                                          rating.suggestion);
  return Result::Done;
}

KXCSServiceResult KXCSService::rateAgent(const KXCSAgentRating& rating) {
  const KXCSServiceStatus now = core_->snapshot();
  if (!now.config) return Result::NotConnected;
  if (now.config->humanSessionNoEva()) return Result::RatingNotOffered;
  KXString dialog = rating.dialogId;
  if (!dialog) {
    std::lock_guard<std::mutex> lock(core_->mutex);
    dialog = core_->lastDialog;
  }
  if (!dialog) return Result::NoDialogToRate;
  const auto& options = now.config->humanEvaluateItems();
  if (options && !options->empty() &&
      std::none_of(options->begin(), options->end(),
                   [&](const auto& option) { return option && option->value() == rating.stars; })) {
    return Result::StarsNotOffered;
  }
  if (rating.tags || rating.extra) {
    core_->client().evaluateCustomerService(core_->deskId, dialog, rating.stars, rating.suggestion,
                                            rating.resolved, rating.tags, rating.extra);
  } else {
    core_->client().evaluateCustomerService(core_->deskId, dialog, rating.stars, rating.suggestion,
                                            rating.resolved);
  }
  return Result::Done;
}

KXCSLeaveMessageCheck KXCSService::leaveMessage(const KXDictionary& values) {
  KXCSLeaveMessageCheck check;
  const KXCSServiceStatus now = core_->snapshot();
  if (!now.config) {
    check.result = Result::NotConnected;
    return check;
  }
  const auto& fields = now.config->leaveMessageNativeInfo();
  const auto& web = now.config->leaveMessageWebUrl();
  if (web && !web->empty() && (!fields || fields->empty())) {
    check.webFormUrl = web;
    return check;
  }
  check.fieldErrors = KXCSLeaveMessageForm::check(fields, values);
  if (!check.fieldErrors.empty()) {
    check.result = Result::InvalidForm;
    return check;
  }
  std::weak_ptr<Core> weak = core_;
  const auto report = [weak](bool sent, int64_t value) {
    if (auto core = weak.lock()) {
      core->tell([sent, value](KXCSServiceObserver& w) { w.onMessageLeft(sent, value); });
    }
  };
  core_->client().leaveMessageCustomerService(
      core_->deskId, std::make_shared<const KXDictionary>(values),
      [report](int64_t messageId) { report(true, messageId); },
      [report](int64_t errorCode, int64_t) { report(false, errorCode); });
  return check;
}

KXCSServiceResult KXCSService::end() {
  if (!running(core_->snapshot().state)) return Result::NotConnected;
  core_->finish();
  core_->client().stopCustomerService(core_->deskId);
  KXCSServiceStatus next;
  next.state = State::Ended;
  next.reason = Reason::StoppedByApp;
  core_->move(next);
  return Result::Done;
}

// Each switch names every enumerator and has no default, so the compiler (-Wswitch, an error
// here) refuses a new enumerator without its name.
const char* KXCSService::stateName(KXCSServiceState state) {
  using enum_t = KXCSServiceState;
  switch (state) {
    case enum_t::NotStarted:
      return "NotStarted";
    case enum_t::Connecting:
      return "Connecting";
    case enum_t::Connected:
      return "Connected";
    case enum_t::Robot:
      return "Robot";
    case enum_t::ChoosingGroup:
      return "ChoosingGroup";
    case enum_t::WaitingForAgent:
      return "WaitingForAgent";
    case enum_t::Agent:
      return "Agent";
    case enum_t::Ended:
      return "Ended";
    case enum_t::Failed:
      return "Failed";
  }
  return "?";  // a value outside the enum (a cast from a number)
}

const char* KXCSService::reasonName(KXCSServiceReason reason) {
  using enum_t = KXCSServiceReason;
  switch (reason) {
    case enum_t::None:
      return "None";
    case enum_t::ConnectionFailed:
      return "ConnectionFailed";
    case enum_t::HandshakeRefused:
      return "HandshakeRefused";
    case enum_t::Timeout:
      return "Timeout";
    case enum_t::DeskEnded:
      return "DeskEnded";
    case enum_t::Blocked:
      return "Blocked";
    case enum_t::NoAgentAvailable:
      return "NoAgentAvailable";
    case enum_t::StoppedByApp:
      return "StoppedByApp";
  }
  return "?";  // a value outside the enum (a cast from a number)
}

const char* KXCSService::resultName(KXCSServiceResult result) {
  using enum_t = KXCSServiceResult;
  switch (result) {
    case enum_t::Done:
      return "Done";
    case enum_t::AlreadyStarted:
      return "AlreadyStarted";
    case enum_t::NotConnected:
      return "NotConnected";
    case enum_t::AgentNotOffered:
      return "AgentNotOffered";
    case enum_t::AlreadyWithAgent:
      return "AlreadyWithAgent";
    case enum_t::Blocked:
      return "Blocked";
    case enum_t::NotChoosingGroup:
      return "NotChoosingGroup";
    case enum_t::GroupNotOffered:
      return "GroupNotOffered";
    case enum_t::RatingNotOffered:
      return "RatingNotOffered";
    case enum_t::NoDialogToRate:
      return "NoDialogToRate";
    case enum_t::StarsNotOffered:
      return "StarsNotOffered";
    case enum_t::InvalidForm:
      return "InvalidForm";
  }
  return "?";  // a value outside the enum (a cast from a number)
}

}  // namespace quor
