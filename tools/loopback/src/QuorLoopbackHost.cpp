#include "QuorLoopbackHost/QuorLoopbackHost.h"

#include <cstdio>

#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"
#include "QuorCustomerService/Host/KXLocalConfiguration.h"
#include "QuorCustomerService/Host/KXTextMessage.h"
#include "QuorWorkerThread.h"

namespace quor {
namespace {

thread_local std::string threadName;

// The host's own content for a type name nobody registered: it keeps the bytes.
class RawContent : public KXMessageContent {
 public:
  explicit RawContent(std::string objectName) : objectName_(std::move(objectName)) {}
  std::string objectName() const override { return objectName_; }
  uint32_t messagePersistentFlag() const override { return KXMessagePersistentFlagIsPersisted; }
  KXData encode() override { return bytes_; }
  void decodeWithData(const KXData& data) override { bytes_ = data; }

 private:
  std::string objectName_;
  KXData bytes_;
};

constexpr int32_t kDirectionSend = 1;

}  // namespace

struct QuorLoopbackHost::PendingSend {
  std::shared_ptr<KXMessage> record;
  QuorWireMessage wire;
  SuccessBlock success;
  ErrorBlock error;
  RecordSuccessBlock recordSuccess;
  RecordErrorBlock recordError;
};

QuorLoopbackHost::QuorLoopbackHost()
    : mainRunLoop_(std::make_shared<KXMainRunLoop>()),
      logSink_([](const QuorLogEntry& entry) {
        std::fprintf(stderr, "[%d %s] %s\n", entry.level, entry.tag.c_str(), entry.text.c_str());
      }),
      hostThread_(std::make_unique<QuorWorkerThread>("host")),
      deliveryThread_(std::make_unique<QuorWorkerThread>("delivery")) {
  types_[KXTextMessage::getObjectName()] = KXMessageContentType::of<KXTextMessage>();
  types_[KXInformationNotificationMessage::getObjectName()] =
      KXMessageContentType::of<KXInformationNotificationMessage>();
}

QuorLoopbackHost::~QuorLoopbackHost() {
  hostThread_.reset();
  deliveryThread_.reset();
}

void QuorLoopbackHost::install() {
  auto self = shared_from_this();
  KXCoreClient::setSharedCoreClient(self);
  KXFwLog::setInstance(self);
  KXLocalConfiguration::setSharedInstance(self);
  KXMainThreadDispatcher::setShared(self);
}

void QuorLoopbackHost::uninstall() {
  KXCoreClient::setSharedCoreClient(nullptr);
  KXFwLog::setInstance(nullptr);
  KXLocalConfiguration::setSharedInstance(nullptr);
  KXMainThreadDispatcher::setShared(nullptr);
}

QuorIMLibExtensionModule& QuorLoopbackHost::loadExtensionModule() {
  QuorIMLibExtensionModule& module = QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto* loaded : modules_) {
    if (loaded == &module) return module;
  }
  modules_.push_back(&module);
  return module;
}

void QuorLoopbackHost::connectPeer(std::shared_ptr<QuorLoopbackPeer> peer) {
  std::lock_guard<std::mutex> lock(mutex_);
  peer_ = std::move(peer);
}

void QuorLoopbackHost::setObserver(std::shared_ptr<QuorLoopbackObserver> observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  observer_ = std::move(observer);
}

std::shared_ptr<QuorLoopbackObserver> QuorLoopbackHost::observer() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return observer_;
}

void QuorLoopbackHost::addMessageListener(MessageListener listener) {
  std::lock_guard<std::mutex> lock(mutex_);
  listeners_.push_back(std::move(listener));
}

void QuorLoopbackHost::setLogSink(LogSink sink, int32_t maxLevel) {
  std::lock_guard<std::mutex> lock(mutex_);
  logSink_ = std::move(sink);
  logMaxLevel_ = maxLevel;
}

void QuorLoopbackHost::setCurrentUserId(std::string userId) {
  std::lock_guard<std::mutex> lock(mutex_);
  currentUserId_ = std::move(userId);
}

std::string QuorLoopbackHost::currentThreadName() {
  return threadName.empty() ? "main" : threadName;
}

void QuorLoopbackHost::setCurrentThreadName(std::string name) { threadName = std::move(name); }

std::shared_ptr<KXMessage> QuorLoopbackHost::sendMessage(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, SuccessBlock success, ErrorBlock error) {
  auto pending = std::make_shared<PendingSend>();
  pending->success = std::move(success);
  pending->error = std::move(error);
  const bool closures = pending->success || pending->error;
  return send(conversationType, targetId, std::move(content), pushContent, pushData,
              closures ? QuorSendClosures::Ids : QuorSendClosures::None, std::move(pending));
}

std::shared_ptr<KXMessage> QuorLoopbackHost::sendMessageSuccessBlock(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, RecordSuccessBlock successBlock,
    RecordErrorBlock errorBlock) {
  auto pending = std::make_shared<PendingSend>();
  pending->recordSuccess = std::move(successBlock);
  pending->recordError = std::move(errorBlock);
  return send(conversationType, targetId, std::move(content), pushContent, pushData,
              QuorSendClosures::Records, std::move(pending));
}

std::shared_ptr<KXMessage> QuorLoopbackHost::send(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, QuorSendClosures closures,
    std::shared_ptr<PendingSend> pending) {
  const std::string objectName = content ? content->objectName() : "";
  auto record = std::make_shared<KXMessage>(conversationType, targetId, kDirectionSend,
                                            nextMessageId_++, content);
  record->setSentTime(nextSentTime());
  {
    std::lock_guard<std::mutex> lock(mutex_);
    record->setSenderUserId(currentUserId_);
  }
  const KXData body = content ? content->encode() : std::nullopt;
  pending->record = record;
  pending->wire = {objectName, conversationType,    targetId,           record->senderUserId(),
                   body,       record->messageId(), record->sentTime(), false};
  if (auto watcher = observer()) {
    watcher->onSend({currentThreadName(), conversationType, targetId, objectName, body, closures,
                     pushContent, pushData, record->messageId(), record->sentTime()});
  }
  if (closures != QuorSendClosures::None && !autoConfirm_) {
    std::lock_guard<std::mutex> lock(mutex_);
    waiting_.push_back(std::move(pending));
  } else {
    hostThread_->post([this, pending] { report(pending, true, 0); });
  }
  return record;
}

void QuorLoopbackHost::report(const std::shared_ptr<PendingSend>& pending, bool ok,
                              int64_t errorCode) {
  const auto& record = pending->record;
  if (ok) {
    if (pending->success) pending->success(record->messageId());
    if (pending->recordSuccess) pending->recordSuccess(record);
  } else {
    if (pending->error) pending->error(errorCode, record->messageId());
    if (pending->recordError) pending->recordError(errorCode, record);
    return;
  }
  std::shared_ptr<QuorLoopbackPeer> peer;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    peer = peer_;
  }
  if (auto watcher = observer()) watcher->onWire(pending->wire, true);
  if (peer) peer->onMessageFromClient(pending->wire);
}

bool QuorLoopbackHost::confirmOldestSend(bool ok, std::optional<int64_t> sentTime,
                                         int64_t errorCode) {
  std::shared_ptr<PendingSend> pending;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.empty()) return false;
    pending = waiting_.front();
    waiting_.pop_front();
  }
  if (ok && sentTime) {
    pending->record->setSentTime(*sentTime);
    pending->wire.sentTime = *sentTime;
  }
  hostThread_->runAndWait([&] { report(pending, ok, errorCode); });
  return true;
}

bool QuorLoopbackHost::receive(QuorWireMessage message, bool keepSentTime) {
  if (!keepSentTime && message.sentTime == 0) message.sentTime = nextSentTime();
  bool held = false;
  deliveryThread_->runAndWait([&] { held = deliver(std::move(message)); });
  return held;
}

void QuorLoopbackHost::receiveAsync(QuorWireMessage message) {
  if (message.sentTime == 0) message.sentTime = nextSentTime();
  deliveryThread_->post(
      [this, message = std::move(message)]() mutable { deliver(std::move(message)); });
}

std::shared_ptr<KXMessageContent> QuorLoopbackHost::contentFor(
    const std::string& objectName) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = types_.find(objectName);
  if (it != types_.end()) {
    if (auto content = it->second.create()) return content;
  }
  return std::make_shared<RawContent>(objectName);
}

bool QuorLoopbackHost::deliver(QuorWireMessage wire) {
  if (auto watcher = observer()) watcher->onWire(wire, false);
  auto content = contentFor(wire.objectName);
  content->decodeWithData(wire.body);
  auto message = std::make_shared<KXMessage>(wire.conversationType, wire.targetId,
                                             KXMessageDirectionReceive, wire.messageId, content);
  message->setSenderUserId(wire.senderUserId);
  message->setSentTime(wire.sentTime);
  message->setObjectName(wire.objectName);
  std::vector<QuorIMLibExtensionModule*> modules;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    modules = modules_;
  }
  bool held = false;
  for (auto* module : modules) held = module->didHoldReceivedMessage(message, wire.offline) || held;
  if (held) return true;
  if (content->messagePersistentFlag() & KXMessagePersistentFlagIsPersisted) store(message);
  notifyListeners(message);
  return false;
}

std::shared_ptr<KXMessage> QuorLoopbackHost::insertIncomingMessage(
    int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
    int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) {
  auto record = std::make_shared<KXMessage>(conversationType, targetId, KXMessageDirectionReceive,
                                            nextLocalMessageId_++, std::move(content));
  record->setSenderUserId(senderUserId);
  record->setReceivedStatus(receivedStatus);
  store(record);
  if (auto watcher = observer()) watcher->onInsert(record, currentThreadName());
  return record;
}

void QuorLoopbackHost::onReceiveFakeMessage(std::shared_ptr<KXMessage> message) {
  if (auto watcher = observer()) watcher->onFakeReceive(message, currentThreadName());
  if (!message) return;
  bool stored = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& kept : conversations_[message->targetId().value_or("")])
      stored |= kept == message;
  }
  if (!stored) store(message);
  notifyListeners(message);
}

void QuorLoopbackHost::store(const std::shared_ptr<KXMessage>& message) {
  std::lock_guard<std::mutex> lock(mutex_);
  conversations_[message->targetId().value_or("")].push_back(message);
}

void QuorLoopbackHost::notifyListeners(const std::shared_ptr<KXMessage>& message) {
  mainRunLoop_->post([this, message] {
    std::vector<MessageListener> listeners;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      listeners = listeners_;
    }
    for (const auto& listener : listeners) listener(message);
  });
}

std::vector<std::shared_ptr<KXMessage>> QuorLoopbackHost::conversation(
    const std::string& targetId) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = conversations_.find(targetId);
  return it == conversations_.end() ? std::vector<std::shared_ptr<KXMessage>>{} : it->second;
}

void QuorLoopbackHost::registerMessageType(const KXMessageContentType& type) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    types_[type.objectName()] = type;
  }
  if (auto watcher = observer()) watcher->onRegister(type);
}

void QuorLoopbackHost::write(int32_t level, int32_t type, std::string_view tag,
                             std::string_view format, std::initializer_list<KXLogArgument> keys) {
  auto watcher = observer();
  LogSink sink;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (level <= logMaxLevel_) sink = logSink_;
  }
  if (!watcher && !sink) return;
  const QuorLogEntry entry{currentThreadName(), level, type, std::string(tag),
                           KXFwLog::format(format, keys)};
  if (watcher) watcher->onLog(entry);
  if (sink) sink(entry);
}

void QuorLoopbackHost::waitForThreads() {
  for (;;) {
    const uint64_t before = hostThread_->finished() + deliveryThread_->finished();
    hostThread_->waitIdle();
    deliveryThread_->waitIdle();
    if (before == hostThread_->finished() + deliveryThread_->finished()) return;
  }
}

void QuorLoopbackHost::settle() {
  for (;;) {
    const uint64_t before = hostThread_->finished() + deliveryThread_->finished();
    hostThread_->waitIdle();
    deliveryThread_->waitIdle();
    const std::size_t ran = mainRunLoop_->runUntilIdle();
    hostThread_->waitIdle();
    deliveryThread_->waitIdle();
    const uint64_t after = hostThread_->finished() + deliveryThread_->finished();
    if (ran == 0 && before == after && mainRunLoop_->pendingCount() == 0) return;
  }
}

}  // namespace quor
