#include "QuorHostBase/QuorHostBase.h"

#include <algorithm>
#include <cstdio>

#include "QuorCustomerService/Host/KXFileMessage.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"
#include "QuorCustomerService/Host/KXTextMessage.h"

namespace quor {
namespace {
thread_local std::string threadNameOfThisThread;
}  // namespace

QuorHostBase::QuorHostBase()
    : mainRunLoop_(std::make_shared<KXMainRunLoop>()), logSink_([](const QuorLogEntry& entry) {
        std::fprintf(stderr, "[%d %s] %s\n", entry.level, entry.tag.c_str(), entry.text.c_str());
      }) {}
QuorHostBase::~QuorHostBase() = default;

void QuorHostBase::install() {
  auto self = shared_from_this();
  KXCoreClient::setSharedCoreClient(self);
  KXFwLog::setInstance(self);
  KXLocalConfiguration::setSharedInstance(self);
  KXMainThreadDispatcher::setShared(self);
}

void QuorHostBase::uninstall() {
  KXCoreClient::setSharedCoreClient(nullptr);
  KXFwLog::setInstance(nullptr);
  KXLocalConfiguration::setSharedInstance(nullptr);
  KXMainThreadDispatcher::setShared(nullptr);
}

QuorIMLibExtensionModule& QuorHostBase::loadExtensionModule() {
  QuorCustomerServiceExtensionModule& module =
      QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  // The module registers its types with the host installed at its first load, once per
  // process: a host made later (another test, a new login) takes them from the module.
  for (const auto& type : module.messageTypeList()) {
    if (!types_.knows(type.objectName())) registerMessageType(type);
  }
  loadExtensionModule(module);
  return module;
}

void QuorHostBase::loadExtensionModule(QuorIMLibExtensionModule& module) { modules_.load(module); }

std::string QuorHostBase::threadName() {
  return threadNameOfThisThread.empty() ? "main" : threadNameOfThisThread;
}

void QuorHostBase::setThreadName(std::string name) { threadNameOfThisThread = std::move(name); }

void QuorHostBase::addMessageListener(MessageListener listener) {
  std::lock_guard<std::mutex> lock(mutex_);
  listeners_.push_back(std::move(listener));
}

void QuorHostBase::notifyListeners(const std::shared_ptr<KXMessage>& message) {
  post([this, message] {
    std::vector<MessageListener> listeners;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      listeners = listeners_;
    }
    for (const auto& listener : listeners) listener(message);
  });
}

std::shared_ptr<KXMessage> QuorHostBase::sendMessage(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, SuccessBlock success, ErrorBlock error) {
  const auto closures = success || error ? QuorSendClosures::Ids : QuorSendClosures::None;
  return send(conversationType, targetId, std::move(content), pushContent, pushData, closures,
              std::move(success), std::move(error), nullptr, nullptr);
}

std::shared_ptr<KXMessage> QuorHostBase::sendMessageSuccessBlock(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, RecordSuccessBlock successBlock,
    RecordErrorBlock errorBlock) {
  return send(conversationType, targetId, std::move(content), pushContent, pushData,
              QuorSendClosures::Records, nullptr, nullptr, std::move(successBlock),
              std::move(errorBlock));
}

std::shared_ptr<KXMessage> QuorHostBase::send(int32_t conversationType, const KXString& targetId,
                                              std::shared_ptr<KXMessageContent> content,
                                              const KXString& pushContent, const KXString& pushData,
                                              QuorSendClosures closures, SuccessBlock success,
                                              ErrorBlock error, RecordSuccessBlock recordSuccess,
                                              RecordErrorBlock recordError) {
  QuorOutgoingSend outgoing;
  outgoing.thread = currentThreadName();
  outgoing.conversationType = conversationType;
  outgoing.targetId = targetId;
  outgoing.content = content;
  outgoing.objectName = content ? content->objectName() : "";
  // Encoding may log, so it runs before any lock is taken.
  outgoing.body = content ? content->encode() : std::nullopt;
  outgoing.pushContent = pushContent;
  outgoing.pushData = pushData;
  outgoing.closures = closures;
  outgoing.record = std::make_shared<KXMessage>(conversationType, targetId, KXMessageDirectionSend,
                                                nextMessageId(), std::move(content));
  outgoing.record->setObjectName(outgoing.objectName);
  auto record = outgoing.record;
  if (closures == QuorSendClosures::Ids) success = keepUntilSent(outgoing, std::move(success));
  auto pending =
      std::make_shared<QuorPendingSend>(record, std::move(success), std::move(error),
                                        std::move(recordSuccess), std::move(recordError));
  transmit(std::move(outgoing), std::move(pending));
  return record;
}

QuorHostBase::SuccessBlock QuorHostBase::keepUntilSent(const QuorOutgoingSend& send,
                                                       SuccessBlock success) {
  const int64_t id = send.record->messageId();
  if (id == 0) return success;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    unsettled_[id] = send;
    if (unsettled_.size() > kUnsettledKept) unsettled_.erase(unsettled_.begin());  // the oldest
  }
  std::weak_ptr<QuorHostBase> weak = weak_from_this();
  return [weak, id, success = std::move(success)](int64_t messageId) {
    if (auto host = weak.lock()) {
      std::lock_guard<std::mutex> lock(host->mutex_);
      host->unsettled_.erase(id);
    }
    if (success) success(messageId);
  };
}

bool QuorHostBase::resendMessage(int64_t messageId, SuccessBlock success, ErrorBlock error) {
  QuorOutgoingSend again;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = unsettled_.find(messageId);
    if (it == unsettled_.end()) return false;
    again = it->second;
  }
  again.thread = currentThreadName();
  again.again = true;
  success = keepUntilSent(again, std::move(success));
  auto pending = std::make_shared<QuorPendingSend>(again.record, std::move(success),
                                                   std::move(error), nullptr, nullptr);
  transmit(std::move(again), std::move(pending));
  return true;
}

void QuorHostBase::setUnconfirmedErrorCodes(std::vector<int64_t> codes) {
  std::lock_guard<std::mutex> lock(mutex_);
  unconfirmedErrorCodes_ = std::move(codes);
}

bool QuorHostBase::isUnconfirmedError(int64_t errorCode) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::find(unconfirmedErrorCodes_.begin(), unconfirmedErrorCodes_.end(), errorCode) !=
         unconfirmedErrorCodes_.end();
}

void QuorHostBase::registerMessageType(const KXMessageContentType& type) { types_.add(type); }

void QuorHostBase::setLogSink(LogSink sink, int32_t maxLevel) {
  std::lock_guard<std::mutex> lock(mutex_);
  logSink_ = std::move(sink);
  logMaxLevel_ = maxLevel;
}

void QuorHostBase::write(int32_t level, int32_t type, std::string_view tag, std::string_view format,
                         std::initializer_list<KXLogArgument> keys) {
  bool wanted;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    wanted = level <= logMaxLevel_ && logSink_;
  }
  // Formatting costs more than the check: skip it when no one reads the entry.
  if (!wanted && !observesLogs()) return;
  writeEntry({currentThreadName(), level, type, std::string(tag), KXFwLog::format(format, keys)});
}

void QuorHostBase::writeEntry(const QuorLogEntry& entry) {
  LogSink sink;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (entry.level <= logMaxLevel_) sink = logSink_;
  }
  if (observesLogs()) observeLog(entry);
  if (sink) sink(entry);
}

void QuorHostBase::registerHostTypes() {
  QuorHostBase::registerMessageType(KXMessageContentType::of<KXTextMessage>());
  QuorHostBase::registerMessageType(KXMessageContentType::of<KXFileMessage>());
  QuorHostBase::registerMessageType(KXMessageContentType::of<KXInformationNotificationMessage>());
}

std::vector<KXMessageContentType> QuorHostBase::registeredTypes() const { return types_.types(); }

bool QuorHostBase::receive(const QuorReceivedMessage& received) {
  auto content = contentFor(received.objectName);
  content->decodeWithData(received.body);
  auto message =
      std::make_shared<KXMessage>(received.conversationType, received.targetId,
                                  KXMessageDirectionReceive, received.messageId, content);
  message->setSenderUserId(received.senderUserId);
  message->setSentTime(received.sentTime);
  message->setObjectName(received.objectName);
  // Stored before the modules see it, so that every reader of the record (the session's line,
  // the history, markRead) knows it under the store's id; one that an earlier run saw already
  // goes no further.
  const bool persisted = !modules_.isSignal(received.objectName) &&
                         (content->messagePersistentFlag() & KXMessagePersistentFlagIsPersisted);
  if (persisted && !storeReceived(message, received)) return false;
  // Every module is offered every message; a held message or a signal goes no further.
  if (modules_.offer(message, received.offline)) {
    if (persisted) forgetReceived(message);
    return true;
  }
  if (modules_.isSignal(received.objectName)) return false;
  notifyListeners(message);
  return false;
}

}  // namespace quor
