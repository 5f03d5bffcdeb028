#include "QuorCustomerService/Session/KXCSService.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "Client/KXClientState.h"
#include "QuorCustomerService/Host/KXTextMessage.h"
#include "QuorCustomerService/KXCustomerServiceClient.h"
#include "QuorCustomerService/Session/KXCSFileType.h"
#include "Session/KXCSConversation.h"
#include "Session/KXCSFileLines.h"
#include "Session/KXCSHandshakes.h"
#include "Session/KXCSLeaveMessageForm.h"
#include "Session/KXCSSentLines.h"
#include "Session/KXCSStartQueue.h"
#include "Session/KXCSTimer.h"
#include "Session/KXCSTyping.h"
#include "Session/KXCSUnsettledLines.h"
#include "Support/KXCallbackGuard.h"
#include "Support/KXHost.h"
#include "Support/KXMainThread.h"
#include "Support/KXSendOutcome.h"
#include "Support/KXTexts.h"
#include "Support/KXUtf8.h"

namespace quor {
namespace {

using State = KXCSServiceState;
using Reason = KXCSServiceReason;
using Result = KXCSServiceResult;

bool running(State state) {
  return state != State::NotStarted && state != State::Ended && state != State::Failed;
}

bool hasGroups(const KXCustomerServiceGroupList& groups) { return groups && !groups->empty(); }

// Whether every present text is UTF-8: a text that is not could only be sent empty.
bool allUtf8(std::initializer_list<const KXString*> texts) {
  return std::all_of(texts.begin(), texts.end(),
                     [](const KXString* text) { return !*text || KXUtf8::isValid(**text); });
}

}  // namespace

// The service's state, shared with the client's callbacks through weak references: its status,
// its handshakes (KXCSHandshakes) and its conversation.
class KXCSService::Core : public std::enable_shared_from_this<Core>,
                          public KXClientEvents::Observer {
 public:
  using GivenUp = KXCSHandshakes::GivenUp;

  Core(std::string deskId, std::weak_ptr<KXCSServiceObserver> observer)
      : deskId(std::move(deskId)),
        observer(std::move(observer)),
        // A hold ends on the main thread; the timer is gone before this is.
        handshakes([this](uint64_t handshake) {
          onMain([handshake](Core& c) { c.onHoldExpired(handshake); });
        }),
        typing([desk = this->deskId](bool typing) { KXHost::sendTyping(desk, typing); },
               [this](uint64_t generation) {
                 onMain([generation](Core& c) { c.onTypingPause(generation); });
               }) {}
  ~Core() override {
    queue().withdraw(this);
    queue().release(this);
  }

  static KXCustomerServiceClient& client() {
    return KXCustomerServiceClient::sharedCustomerServiceClient();
  }
  static KXCSStartQueue& queue() { return KXCSStartQueue::shared(); }

  // Listens to what the client learns beyond its callbacks; each report is handled in a
  // closure posted to the main thread, in the order the reports came.
  void listen() { KXClientState::of(client()).events.add(deskId, weak_from_this()); }

  void onAgentAnswer(int32_t result, int32_t type, const KXString& text) override {
    onMain([result, type, text](Core& c) { c.agentAnswered(result, type, text); });
  }
  void onHandshakeSent() override {
    // Read here, on the reporting thread, right after the client set it for this handshake.
    handshakeTime = client().handShakeMessageSendTime();
    onMain([](Core& c) { c.handshakeConfirmed(); });
  }
  void onConversationRead() override {
    onMain([](Core& c) {
      if (c.conversation.markRead())
        c.tell([](KXCSServiceObserver& w) { w.onUnreadCountChanged(0); });
    });
  }
  void onDeskTyping(bool typing) override {
    onMain([typing](Core& c) { c.deskTypingChanged(typing); });
  }
  void onDeskRead(int64_t messageId) override {
    onMain([messageId](Core& c) { c.deskRead(messageId); });
  }
  void onConversationMessage(const std::shared_ptr<KXMessage>& message, bool received) override {
    // A line from the desk older than the handshake belongs to an earlier service (a new
    // device's archive can hand it over late) and is not this one's.
    if (received && message->sentTime() < handshakeTime) return;
    // A copy made here, on the reporting thread: the host may still change the record (its
    // store's id) after the modules saw it.
    onMain([line = KXMessage(*message)](Core& c) { c.conversationLine(line); });
  }
  template <class Handle>
  void onMain(Handle handle) {
    KXMainThread::post([weak = weak_from_this(), handle] {
      if (auto core = weak.lock()) handle(*core);
    });
  }

  KXCSServiceStatus snapshot() const {
    std::lock_guard<std::mutex> lock(mutex);
    return status;
  }

  // Records the next state and reports it once the client's current closure returned, so that
  // it reaches the observer after whatever that closure still does (its stop).
  void move(KXCSServiceStatus next) {
    bool typingStops = false;
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
      // The desk's typing ends with the service.
      typingStops = !running(next.state) && std::exchange(deskTyping, false);
    }
    if (typingStops) tell([](KXCSServiceObserver& w) { w.onDeskTyping(false); });
    tell([next](KXCSServiceObserver& watcher) { watcher.onStateChanged(next); });
  }

  // Reports to the observer on the main thread: after the library's closure that runs now, or
  // posted from anywhere else.
  void tell(std::function<void(KXCSServiceObserver&)> call) {
    std::weak_ptr<KXCSServiceObserver> watcherRef = observer;
    KXMainThread::afterCurrent([watcherRef, call = std::move(call)] {
      if (auto watcher = watcherRef.lock()) KXCallbackGuard::run([&] { call(*watcher); });
    });
  }

  // A client callback of handshake `handshake`: runs while it reports to the running start.
  template <class Callback>
  auto attachedTo(uint64_t handshake, Callback callback) {
    std::weak_ptr<Core> weak = weak_from_this();
    return [weak, handshake, callback](auto&&... arguments) {
      auto core = weak.lock();
      if (core && core->reporting(handshake)) callback(*core, arguments...);
    };
  }
  bool reporting(uint64_t handshake) const {
    std::lock_guard<std::mutex> lock(mutex);
    return handshakes.attached(handshake) && running(status.state);
  }

  // Ends the running start: its callbacks report nothing more, its timer and a start it queued
  // go. The queue itself is released by whoever resolves the outstanding handshake.
  void detach() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      handshakes.detach();
    }
    queue().withdraw(this);
  }

  std::pair<GivenUp, bool> resolve(uint64_t handshake) {
    std::lock_guard<std::mutex> lock(mutex);
    return handshakes.resolve(handshake);
  }

  void onHoldExpired(uint64_t handshake) {
    const auto [given, held] = resolve(handshake);
    if (!held) return;
    if (given != GivenUp::No) client().stopCustomerService(deskId);
    queue().release(this);
  }

  // The handshake was sent. When its start had timed out, the desk got it and may still answer:
  // that answer serves the next start, as after end(), instead of a second handshake whose
  // answer would report Connected (and greet) a second time. A start made meanwhile takes it
  // over now.
  void handshakeConfirmed() {
    bool adopted;
    {
      std::lock_guard<std::mutex> lock(mutex);
      adopted = handshakes.confirmSent(status.state == State::Connecting);
    }
    if (adopted) queue().withdraw(this);
  }

  void onSuccess(uint64_t handshake, const std::shared_ptr<KXCustomerServiceConfig>& config) {
    const auto [given, held] = resolve(handshake);
    bool live;
    {
      std::lock_guard<std::mutex> lock(mutex);
      live = handshakes.attached(handshake) && running(status.state);
      if (live) {
        handshakes.clearTimeout();
        blocked = config && config->isBlack();
      }
    }
    // Answered after the app ended the service (or it timed out): the stop left for now.
    if (given != GivenUp::No) client().stopCustomerService(deskId);
    if (held) queue().release(this);
    if (!live) return;
    KXCSServiceStatus next;
    next.state = State::Connected;
    next.config = config;
    next.reason = config && config->isBlack() ? Reason::Blocked : Reason::None;
    if (next.reason == Reason::Blocked) next.text = KXTexts::kBlocked;
    move(next);
  }

  // A refused handshake (the desk's code 0) or a failed send (the host's code; the client stops
  // the service right after this callback).
  void onError(uint64_t handshake, int64_t code, const std::string& text) {
    const auto [given, held] = resolve(handshake);
    const bool live = reporting(handshake);
    // A refusal leaves the service running in the client: stop it here.
    if (code == KXCSHandShakeRefused && (live || given != GivenUp::No))
      client().stopCustomerService(deskId);
    if (held) queue().release(this);
    if (!live) return;
    detach();
    KXCSServiceStatus next;
    next.state = State::Failed;
    next.code = code;
    next.text = text;
    next.reason =
        code == KXCSHandShakeRefused ? Reason::HandshakeRefused : Reason::ConnectionFailed;
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
        detach();
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
  void agentAnswered(int32_t result, int32_t serviceType, const KXString& text) {
    if (result != KXCSChangeModeNoAgent && result != KXCSChangeModeRefused) return;
    const KXCSServiceStatus now = snapshot();
    bool waiting = now.state == State::WaitingForAgent || now.state == State::ChoosingGroup;
    {
      std::lock_guard<std::mutex> lock(mutex);
      waiting = waiting || (now.state == State::Agent && !agentConfirmed);
      if (result == KXCSChangeModeRefused && running(now.state)) blocked = true;
    }
    if (!waiting) return;
    KXCSServiceStatus next;
    next.reason = result == KXCSChangeModeNoAgent ? Reason::NoAgentAvailable : Reason::Blocked;
    if (result == KXCSChangeModeRefused)
      next.text = text && !text->empty() ? *text : KXTexts::kBlocked;
    if (serviceType == KXCSServiceTypeRobotFirst) {
      next.state = State::Robot;
      next.canAskForAgent = true;
    } else if (result == KXCSChangeModeRefused) {
      detach();
      client().stopCustomerService(deskId);
      next.state = State::Ended;
    } else {
      return;  // a human service without an agent: the client's own mode report follows
    }
    move(next);
  }

  void onQuit(const std::string& text) {
    detach();  // the client stops the service right after this callback
    KXCSServiceStatus next;
    next.state = State::Ended;
    next.reason = Reason::DeskEnded;
    next.text = text;
    move(next);
  }

  void onTimeout(uint64_t started) {
    bool release = false;
    bool keepService = false;
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (!handshakes.isCurrent(started) || status.state != State::Connecting) return;
      // Until the send has an outcome the client's service stays for it.
      const auto step = handshakes.timedOut();
      keepService = step == KXCSHandshakes::TimedOut::Keep;
      release = step == KXCSHandshakes::TimedOut::Release;
    }
    detach();
    if (!keepService) client().stopCustomerService(deskId);
    if (release) queue().release(this);
    KXCSServiceStatus next;
    next.state = State::Failed;
    next.reason = Reason::Timeout;
    next.text = KXTexts::kConnectFailed;
    move(next);
  }

  void conversationLine(const KXMessage& message) {
    const State now = snapshot().state;
    if (!running(now)) return;
    deskTypingChanged(false);  // the desk's line ends its typing
    const KXCSConversationMessage line = conversation.received(message, now == State::Agent);
    if (line.file)
      files.received(line.sequence,
                     std::dynamic_pointer_cast<const KXFileMessage>(message.content()));
    const uint64_t unread = conversation.unread();
    tell([line, unread](KXCSServiceObserver& w) {
      w.onMessage(line);
      w.onUnreadCountChanged(unread);
    });
  }

  // The customer's line `sequence` was sent (again): the closures that report attempt
  // `attempt` of it, each outcome once, handled on the main thread.
  std::pair<KXCoreClient::SuccessBlock, KXCoreClient::ErrorBlock> outcomeOf(uint64_t sequence,
                                                                            uint64_t attempt) {
    std::weak_ptr<Core> weak = weak_from_this();
    const auto report = [weak, sequence, attempt](bool sent, int64_t value, int64_t messageId) {
      KXMainThread::post([weak, sequence, attempt, sent, value, messageId] {
        if (auto core = weak.lock()) core->onDelivery(sequence, attempt, sent, value, messageId);
      });
    };
    const KXSendOutcome outcome;
    return {outcome.once([report](int64_t messageId) { report(true, messageId, messageId); }),
            outcome.once(
                [report](int64_t code, int64_t messageId) { report(false, code, messageId); })};
  }

  // The progress of line `sequence`'s transfer, thinned out, to the observer.
  KXCoreClient::ProgressBlock progressOf(uint64_t sequence) {
    return [weak = weak_from_this(), sequence](uint64_t done, uint64_t total) {
      auto core = weak.lock();
      if (!core || !core->files.progressed(sequence, done, total)) return;
      core->tell([=](KXCSServiceObserver& w) { w.onFileProgress(sequence, done, total); });
    };
  }

  // Uploads and sends the customer's file line `sequence` as attempt `attempt`.
  void upload(uint64_t sequence, uint64_t attempt, std::shared_ptr<KXFileMessage> content) {
    auto cancel = files.begin(sequence);
    if (!cancel) cancel = std::make_shared<std::atomic<bool>>(false);
    auto [success, error] = outcomeOf(sequence, attempt);
    const auto ended = [weak = weak_from_this(), sequence] {
      if (auto core = weak.lock()) core->files.end(sequence);
    };
    KXHost::sendFile(
        deskId, std::move(content), std::move(cancel), progressOf(sequence),
        [success = std::move(success), ended](int64_t messageId) {
          ended();
          success(messageId);
        },
        [error = std::move(error), ended](int64_t code, int64_t messageId) {
          ended();
          error(code, messageId);
        });
  }

  // The desk typing or stopped, on the main thread: told while the service runs, once a change.
  void deskTypingChanged(bool typing) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (!running(status.state) || deskTyping == typing) return;
      deskTyping = typing;
    }
    tell([typing](KXCSServiceObserver& w) { w.onDeskTyping(typing); });
  }

  // The desk read the customer's line `messageId` and the earlier ones, on the main thread.
  void deskRead(int64_t messageId) {
    if (!running(snapshot().state)) return;
    for (const auto& line : sentLines.readUpTo(messageId))
      tell([line](KXCSServiceObserver& w) { w.onMessageDelivery(line); });
  }

  // The customer's pause in typing may have come, on the main thread.
  void onTypingPause(uint64_t generation) {
    if (running(snapshot().state)) {
      typing.pauseDue(generation);
    } else {
      typing.forget();  // nothing goes out for a service that is over
    }
  }

  // An outcome of a customer's line, on the main thread (KXCSUnsettledLines::settle()).
  void onDelivery(uint64_t sequence, uint64_t attempt, bool sent, int64_t value,
                  int64_t messageId) {
    KXCSUnsettledLines::Change change;
    if (!unsettled.settle(sequence, attempt, sent, !sent && KXHost::isUnconfirmed(value), value,
                          messageId, &change)) {
      return;
    }
    if (change.changed) {
      tell([update = change.line](KXCSServiceObserver& w) { w.onMessageDelivery(update); });
      if (change.line.delivery == KXCSDelivery::Sent) sentLines.add(change.line);
    }
    if (change.resendNow) {
      auto [success, error] = outcomeOf(sequence, change.resendAttempt);
      KXHost::resend(change.line.messageId, std::move(success), std::move(error));
    }
  }

  // Sends the handshake of the start `started` and registers for its callbacks.
  void sendHandshake(uint64_t started, std::shared_ptr<KXCustomerServiceInfo> info) {
    const uint64_t handshake = started;
    {
      std::lock_guard<std::mutex> lock(mutex);
      handshakes.sent(handshake);
    }
    std::weak_ptr<Core> weak = weak_from_this();
    auto ofHandshake = [weak, handshake](auto handle) {
      return [weak, handshake, handle](auto&&... arguments) {
        if (auto core = weak.lock()) handle(*core, handshake, arguments...);
      };
    };
    client().startCustomerService(
        deskId, std::move(info),
        ofHandshake([](Core& c, uint64_t h, std::shared_ptr<KXCustomerServiceConfig> config) {
          c.onSuccess(h, config);
        }),
        ofHandshake([](Core& c, uint64_t h, int64_t code, const std::string& text) {
          c.onError(h, code, text);
        }),
        attachedTo(handshake, [](Core& c, KXCSModeType mode) { c.onMode(mode); }),
        attachedTo(handshake,
                   [](Core& c, const KXString& dialog) {
                     {
                       std::lock_guard<std::mutex> lock(c.mutex);
                       c.lastDialog = dialog;
                     }
                     c.tell([dialog](KXCSServiceObserver& w) { w.onRatingRequested(dialog); });
                   }),
        attachedTo(handshake,
                   [](Core& c, const KXCustomerServiceGroupList& groups) {
                     KXCSServiceStatus next;
                     next.state = State::ChoosingGroup;
                     next.groups = groups;
                     c.move(next);
                   }),
        attachedTo(handshake, [](Core& c, const std::string& text) { c.onQuit(text); }));
    // The client keeps this callback in the session of the desk started last: this one.
    client().getHumanEvaluateCustomerServiceConfig(
        attachedTo(handshake, [](Core& c, const std::shared_ptr<const KXDictionary>& settings) {
          if (!settings) return;
          c.tell([settings](KXCSServiceObserver& w) { w.onEvaluationSettings(*settings); });
        }));
  }

  const std::string deskId;
  const std::weak_ptr<KXCSServiceObserver> observer;
  mutable std::mutex mutex;
  KXCSServiceStatus status;
  bool blocked = false;
  bool agentConfirmed = false;
  KXString lastDialog;
  KXCSHandshakes handshakes;  // under mutex
  KXCSConversation conversation;
  KXCSUnsettledLines unsettled;
  KXCSSentLines sentLines;  // main thread
  KXCSFileLines files;
  KXCSTyping typing;        // main thread
  bool deskTyping = false;  // under mutex
  std::atomic<std::size_t> maxTextBytes{KXCSService::kDefaultMaxTextBytes};
  std::atomic<int64_t> handshakeTime{0};  // the sent time of the newest handshake sent
};

std::shared_ptr<KXCSService> KXCSService::make(std::string deskId,
                                               std::weak_ptr<KXCSServiceObserver> observer) {
  auto core = std::make_shared<Core>(std::move(deskId), std::move(observer));
  core->listen();
  return std::shared_ptr<KXCSService>(new KXCSService(std::move(core)));
}

KXCSService::KXCSService(std::shared_ptr<Core> core) : core_(std::move(core)) {}

KXCSService::~KXCSService() {
  bool stop;
  {
    std::lock_guard<std::mutex> lock(core_->mutex);
    stop = running(core_->status.state) || core_->handshakes.givenUp() != Core::GivenUp::No;
  }
  core_->detach();
  if (stop) core_->client().stopCustomerService(core_->deskId);
}

const std::string& KXCSService::deskId() const { return core_->deskId; }

KXCSServiceStatus KXCSService::status() const { return core_->snapshot(); }

KXCSServiceResult KXCSService::start(std::shared_ptr<KXCustomerServiceInfo> info,
                                     std::chrono::milliseconds handshakeTimeout) {
  Core& core = *core_;
  uint64_t started;
  bool adopt;
  {
    std::lock_guard<std::mutex> lock(core.mutex);
    if (running(core.status.state)) return Result::AlreadyStarted;
    started = core.handshakes.newStart();
    core.blocked = false;
    core.agentConfirmed = false;
    core.lastDialog.reset();
    core.status = KXCSServiceStatus{};  // a new start forgets the old configuration
    // The app ended a start whose handshake is still on its way: its answer serves this one.
    adopt = core.handshakes.adoptEnded();
  }
  core.typing.forget();  // what an earlier service's desk heard is over
  KXCSServiceStatus connecting;
  connecting.state = State::Connecting;
  core.move(connecting);
  std::weak_ptr<Core> weak = core_;
  if (!adopt) {
    KXCSStartQueue::shared().enqueue(&core, [weak, started, info = std::move(info)]() mutable {
      auto waiting = weak.lock();
      if (!waiting) return;
      bool current;
      {
        std::lock_guard<std::mutex> lock(waiting->mutex);
        current = waiting->handshakes.isCurrent(started) && running(waiting->status.state);
      }
      if (current) {
        waiting->sendHandshake(started, std::move(info));
      } else {
        KXCSStartQueue::shared().release(waiting.get());
      }
    });
  }
  if (handshakeTimeout.count() > 0) {
    auto timer = std::make_unique<KXCSTimer>(handshakeTimeout, [weak, started] {
      KXMainThread::post([weak, started] {
        if (auto c = weak.lock()) c->onTimeout(started);
      });
    });
    std::lock_guard<std::mutex> lock(core.mutex);
    core.handshakes.setTimeout(started, std::move(timer));
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
  // With groups the client asks the app to choose first (ChoosingGroup follows). Without, the
  // wait is reported before the request goes: the desk's answer, handled on the host's thread,
  // may come before this call returns, and must follow the wait.
  const bool choosing = KXClientState::of(core_->client()).choosesGroupFirst(core_->deskId);
  if (!choosing) {
    KXCSServiceStatus next;
    next.state = State::WaitingForAgent;
    core_->move(next);
  }
  core_->client().switchToHumanMode(core_->deskId);
  return Result::Done;
}

KXCSServiceResult KXCSService::chooseGroup(const std::string& groupId) {
  const KXCSServiceStatus now = core_->snapshot();
  if (now.state != State::ChoosingGroup || !hasGroups(now.groups)) return Result::NotChoosingGroup;
  const bool offered = std::any_of(now.groups->begin(), now.groups->end(), [&](const auto& group) {
    return group && group->groupId() == groupId;
  });
  if (!offered) return Result::GroupNotOffered;
  // The wait first: the desk's answer may come before the send returns (above).
  KXCSServiceStatus next;
  next.state = State::WaitingForAgent;
  core_->move(next);
  core_->client().selectCustomerServiceGroup(core_->deskId, groupId);
  return Result::Done;
}

KXCSServiceResult KXCSService::rateRobot(const KXCSRobotRating& rating) {
  const KXCSServiceStatus now = core_->snapshot();
  if (!now.config) return Result::NotConnected;
  if (now.config->robotSessionNoEva()) return Result::RatingNotOffered;
  if (!allUtf8({&rating.knowledgeId, &rating.suggestion})) return Result::InvalidText;
  core_->client().evaluateCustomerService(core_->deskId, rating.knowledgeId, rating.resolved,
                                          rating.suggestion);
  return Result::Done;
}

KXCSServiceResult KXCSService::rateAgent(const KXCSAgentRating& rating) {
  const KXCSServiceStatus now = core_->snapshot();
  if (!now.config) return Result::NotConnected;
  if (now.config->humanSessionNoEva()) return Result::RatingNotOffered;
  if (!allUtf8({&rating.dialogId, &rating.suggestion, &rating.tags})) return Result::InvalidText;
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
  Core& core = *core_;
  bool keepHandshake;
  {
    std::lock_guard<std::mutex> lock(core.mutex);
    if (!running(core.status.state)) return Result::NotConnected;
    // Sent and not yet answered: the client's service stays until the answer (or a new start
    // takes it over), so the answer cannot be taken for another handshake's.
    keepHandshake = core.status.state == State::Connecting && core.handshakes.keepForAnswer();
  }
  core.detach();
  core.typing.forget();
  if (!keepHandshake) core.client().stopCustomerService(core.deskId);
  KXCSServiceStatus next;
  next.state = State::Ended;
  next.reason = Reason::StoppedByApp;
  core.move(next);
  return Result::Done;
}

KXCSServiceResult KXCSService::sendText(const std::string& text) {
  const State now = core_->snapshot().state;
  if (!running(now) || now == State::Connecting) return Result::NotConnected;
  // No host carries it (the app uninstalled its host, or a test's kit is gone).
  if (!KXCoreClient::sharedCoreClient()) return Result::NotConnected;
  if (text.empty()) return Result::EmptyText;
  if (!KXUtf8::isValid(text)) return Result::InvalidText;
  auto content = KXTextMessage::messageWithContent(text);
  const KXData body = content->encode();
  if (!body) return Result::InvalidText;
  if (body->size() > core_->maxTextBytes.load()) return Result::TooLarge;
  const KXCSConversationMessage line = core_->conversation.sending(text);
  core_->unsettled.add(line);
  core_->tell([line](KXCSServiceObserver& w) { w.onMessage(line); });
  auto [success, error] = core_->outcomeOf(line.sequence, 0);
  KXHost::send(core_->deskId, std::move(content), std::move(success), std::move(error));
  core_->typing.forget();  // the line ends the typing
  return Result::Done;
}

KXCSServiceResult KXCSService::retry(uint64_t sequence) {
  const State now = core_->snapshot().state;
  if (!running(now) || now == State::Connecting) return Result::NotConnected;
  if (!KXCoreClient::sharedCoreClient()) return Result::NotConnected;
  KXCSConversationMessage before;
  uint64_t attempt;
  if (!core_->unsettled.beginRetry(sequence, &before, &attempt)) return Result::NotRetryable;
  // Reported before the host is called: its outcome may be posted while it is called.
  KXCSConversationMessage sending = before;
  sending.delivery = KXCSDelivery::Sending;
  sending.errorCode = 0;
  core_->tell([sending](KXCSServiceObserver& w) { w.onMessageDelivery(sending); });
  auto [success, error] = core_->outcomeOf(sequence, attempt);
  if (before.messageId != 0 && KXHost::resend(before.messageId, success, error))
    return Result::Done;
  if (before.delivery == KXCSDelivery::Failed && before.file) {
    core_->upload(sequence, attempt, KXCSFileLines::contentOf(*before.file));
    return Result::Done;
  }
  if (before.delivery == KXCSDelivery::Failed) {
    // The host cannot send it under its id; it never arrived, so a new copy is no second one.
    KXHost::send(core_->deskId, KXTextMessage::messageWithContent(before.text), std::move(success),
                 std::move(error));
    return Result::Done;
  }
  core_->unsettled.undoRetry(before);
  core_->tell([before](KXCSServiceObserver& w) { w.onMessageDelivery(before); });
  return Result::NotRetryable;
}

KXCSServiceResult KXCSService::sendFile(const KXCSFileToSend& file) {
  const State now = core_->snapshot().state;
  if (!running(now) || now == State::Connecting) return Result::NotConnected;
  if (!KXCoreClient::sharedCoreClient()) return Result::NotConnected;
  std::shared_ptr<KXFileMessage> content;
  const Result checked = core_->files.prepare(file, KXHost::maxFileBytes(), &content);
  if (checked != Result::Done) return checked;
  KXCSConversationMessage line = core_->conversation.sending("");
  line.file = KXCSFileLines::lineFile(*content);
  core_->unsettled.add(line);
  core_->tell([line](KXCSServiceObserver& w) { w.onMessage(line); });
  core_->upload(line.sequence, 0, std::move(content));
  core_->typing.forget();
  return Result::Done;
}

KXCSServiceResult KXCSService::cancelFile(uint64_t sequence) {
  return core_->files.cancel(sequence) ? Result::Done : Result::NoSuchFile;
}

KXCSServiceResult KXCSService::downloadFile(uint64_t sequence) {
  auto content = core_->files.receivedFile(sequence);
  if (!content) return Result::NoSuchFile;
  auto cancel = core_->files.begin(sequence);
  if (!cancel) return Result::Done;  // already on its way
  const KXSendOutcome outcome;
  auto done = [weak = std::weak_ptr<Core>(core_), sequence, content](const std::string& path,
                                                                     int64_t code) {
    KXCSFile file = KXCSFileLines::lineFile(*content);
    if (code == 0 && path.empty()) code = -1;
    if (code == 0) {
      // Read on the host's thread: at most the file's first 64 KiB.
      file.mimeType = KXCSFileType::trusted(file.mimeType, KXCSFileType::sniff(path));
      file.localPath = path;
    }
    auto core = weak.lock();
    if (!core) return;
    core->files.end(sequence);
    core->tell([sequence, file, code](KXCSServiceObserver& w) {
      w.onFileDownloaded(sequence, file, code);
    });
  };
  KXHost::download(std::move(content), std::move(cancel), core_->progressOf(sequence),
                   outcome.once(std::move(done)));
  return Result::Done;
}

void KXCSService::setAcceptedFileTypes(std::vector<std::string> types) {
  core_->files.setAccepted(std::move(types));
}

std::vector<std::string> KXCSService::acceptedFileTypes() const { return core_->files.accepted(); }

uint64_t KXCSService::maxFileBytes() { return KXHost::maxFileBytes(); }

std::size_t KXCSService::maxTextBytes() const { return core_->maxTextBytes.load(); }

void KXCSService::setMaxTextBytes(std::size_t bytes) { core_->maxTextBytes.store(bytes); }

uint64_t KXCSService::unreadCount() const { return core_->conversation.unread(); }

KXCSServiceResult KXCSService::setTyping(bool typing) {
  const State now = core_->snapshot().state;
  if (!running(now) || now == State::Connecting) {
    core_->typing.forget();
    return Result::NotConnected;
  }
  if (typing) {
    core_->typing.keystroke();
  } else {
    core_->typing.stop();
  }
  return Result::Done;
}

void KXCSService::markRead() {
  if (!core_->conversation.markRead()) return;
  core_->tell([](KXCSServiceObserver& w) { w.onUnreadCountChanged(0); });
  // The account's other devices read it too; nothing goes out for a service that is over.
  if (running(core_->snapshot().state)) KXHost::markRead(core_->deskId);
}

}  // namespace quor
