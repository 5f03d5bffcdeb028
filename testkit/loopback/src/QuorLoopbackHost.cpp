#include "QuorLoopbackHost/QuorLoopbackHost.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "QuorHostBase/QuorFileCache.h"

#include "QuorCustomerService/Host/KXHostConstants.h"

namespace quor {
// A send with closures that waits for its outcome, and what goes to the peer once it is sent.
struct QuorLoopbackHost::WaitingSend {
  std::shared_ptr<QuorPendingSend> pending;
  QuorWireMessage wire;
};

QuorLoopbackHost::QuorLoopbackHost()
    : hostThread_(std::make_unique<QuorWorkerThread>("host")),
      deliveryThread_(std::make_unique<QuorWorkerThread>("delivery")) {
  registerHostTypes();
}

QuorLoopbackHost::~QuorLoopbackHost() {
  hostThread_.reset();
  deliveryThread_.reset();
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

void QuorLoopbackHost::setCurrentUserId(std::string userId) {
  std::lock_guard<std::mutex> lock(mutex_);
  currentUserId_ = std::move(userId);
}

void QuorLoopbackHost::transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) {
  const auto& record = send.record;
  record->setSentTime(nextSentTime());
  {
    std::lock_guard<std::mutex> lock(mutex_);
    record->setSenderUserId(currentUserId_);
  }
  auto waiting = std::make_shared<WaitingSend>();
  waiting->pending = std::move(pending);
  waiting->wire = {
      send.objectName, send.conversationType, send.targetId,      record->senderUserId(),
      send.body,       record->messageId(),   record->sentTime(), false};
  if (auto watcher = observer()) watcher->onSend(send);
  if (send.closures != QuorSendClosures::None && !autoConfirm_) {
    std::lock_guard<std::mutex> lock(mutex_);
    waiting_.push_back(std::move(waiting));
  } else {
    hostThread_->post([this, waiting] { report(waiting, true, 0); });
  }
}

void QuorLoopbackHost::report(const std::shared_ptr<WaitingSend>& waiting, bool ok,
                              int64_t errorCode) {
  if (!ok) {
    waiting->pending->fail(errorCode);
    return;
  }
  waiting->pending->succeed();
  std::shared_ptr<QuorLoopbackPeer> peer;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    peer = peer_;
  }
  if (auto watcher = observer()) watcher->onWire(waiting->wire, true);
  if (peer) peer->onMessageFromClient(waiting->wire);
}

bool QuorLoopbackHost::confirmOldestSend(bool ok, std::optional<int64_t> sentTime,
                                         int64_t errorCode) {
  std::shared_ptr<WaitingSend> waiting;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.empty()) return false;
    waiting = waiting_.front();
    waiting_.pop_front();
  }
  if (ok && sentTime) {
    waiting->pending->record()->setSentTime(*sentTime);
    waiting->wire.sentTime = *sentTime;
  }
  hostThread_->runAndWait([&] { report(waiting, ok, errorCode); });
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

bool QuorLoopbackHost::deliver(QuorWireMessage wire) {
  if (auto watcher = observer()) watcher->onWire(wire, false);
  QuorReceivedMessage received;
  received.conversationType = wire.conversationType;
  received.targetId = wire.targetId;
  received.senderUserId = wire.senderUserId;
  received.objectName = wire.objectName;
  received.body = wire.body;
  received.sentTime = wire.sentTime;
  received.messageId = wire.messageId;
  received.offline = wire.offline;
  return QuorHostBase::receive(received);
}

bool QuorLoopbackHost::storeReceived(const std::shared_ptr<KXMessage>& message,
                                     const QuorReceivedMessage&) {
  store(message);
  return true;
}

void QuorLoopbackHost::forgetReceived(const std::shared_ptr<KXMessage>& message) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& lines = conversations_[message->targetId().value_or("")];
  lines.erase(std::remove(lines.begin(), lines.end(), message), lines.end());
}

std::shared_ptr<KXMessage> QuorLoopbackHost::insertIncomingMessage(
    int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
    int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) {
  auto record = std::make_shared<KXMessage>(conversationType, targetId, KXMessageDirectionReceive,
                                            nextLocalMessageId_++, std::move(content));
  record->setSenderUserId(senderUserId);
  record->setReceivedStatus(receivedStatus);
  store(record);
  if (auto watcher = observer()) watcher->onInsert(record, threadName());
  return record;
}

void QuorLoopbackHost::onReceiveFakeMessage(std::shared_ptr<KXMessage> message) {
  if (auto watcher = observer()) watcher->onFakeReceive(message, threadName());
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

std::vector<std::shared_ptr<KXMessage>> QuorLoopbackHost::conversation(
    const std::string& targetId) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = conversations_.find(targetId);
  return it == conversations_.end() ? std::vector<std::shared_ptr<KXMessage>>{} : it->second;
}

std::vector<std::string> QuorLoopbackHost::markedRead() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return markedRead_;
}

void QuorLoopbackHost::markConversationRead(int32_t conversationType, const KXString& targetId) {
  if (conversationType != KXConversationTypeCustomerService || !targetId) return;
  std::lock_guard<std::mutex> lock(mutex_);
  markedRead_.push_back(*targetId);
}

std::vector<std::string> QuorLoopbackHost::typingTold() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return typingTold_;
}

void QuorLoopbackHost::sendTypingStatus(int32_t conversationType, const KXString& targetId,
                                        bool typing) {
  if (conversationType != KXConversationTypeCustomerService || !targetId) return;
  std::lock_guard<std::mutex> lock(mutex_);
  typingTold_.push_back(*targetId + (typing ? " typing" : " stopped"));
}

void QuorLoopbackHost::registerMessageType(const KXMessageContentType& type) {
  QuorHostBase::registerMessageType(type);
  if (auto watcher = observer()) watcher->onRegister(type);
}

void QuorLoopbackHost::observeLog(const QuorLogEntry& entry) {
  if (auto watcher = observer()) watcher->onLog(entry);
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
    const std::size_t ran = mainRunLoop().runUntilIdle();
    hostThread_->waitIdle();
    deliveryThread_->waitIdle();
    const uint64_t after = hostThread_->finished() + deliveryThread_->finished();
    if (ran == 0 && before == after && mainRunLoop().pendingCount() == 0) return;
  }
}

void QuorLoopbackHost::setFileCacheDirectory(std::string directory) {
  files_.setCacheDirectory(std::move(directory));
}

void QuorLoopbackHost::holdUploads(bool held) {
  files_.holdUploads(
      held, [this](std::function<void()> upload) { hostThread_->post(std::move(upload)); });
}

std::string QuorLoopbackHost::fileAt(const std::string& url) const { return files_.at(url); }

std::string QuorLoopbackHost::keepFile(std::string bytes) { return files_.keep(std::move(bytes)); }

void QuorLoopbackHost::sendFileMessage(int32_t conversationType, const KXString& targetId,
                                       std::shared_ptr<KXFileMessage> content,
                                       std::shared_ptr<const std::atomic<bool>> cancel,
                                       ProgressBlock progress, SuccessBlock success,
                                       ErrorBlock error) {
  auto upload = [this, conversationType, targetId, content, cancel, progress, success, error] {
    const auto fail = [&error](int64_t code) {
      if (error) error(code, 0);
    };
    std::ifstream in(content ? content->localPath() : "", std::ios::binary);
    if (!in) return fail(kFileFailed);
    std::string bytes;
    std::string piece(64 * 1024, '\0');
    while (in.read(piece.data(), static_cast<std::streamsize>(piece.size())) || in.gcount() > 0) {
      if (cancel && cancel->load()) return fail(kFileCancelled);
      bytes.append(piece.data(), static_cast<std::size_t>(in.gcount()));
      if (progress) progress(bytes.size(), content->size());
    }
    if (bytes.size() > maxFileBytes_.load()) return fail(kFileFailed);
    content->setUrl(keepFile(std::move(bytes)));
    sendMessage(conversationType, targetId, content, std::nullopt, std::nullopt, success, error);
  };
  files_.upload(std::move(upload),
                [this](std::function<void()> ready) { hostThread_->post(std::move(ready)); });
}

void QuorLoopbackHost::downloadFile(std::shared_ptr<const KXFileMessage> content,
                                    std::shared_ptr<const std::atomic<bool>> cancel,
                                    ProgressBlock progress, DownloadBlock done) {
  hostThread_->post([this, content, cancel, progress, done] {
    if (!done) return;
    if (cancel && cancel->load()) return done("", kFileCancelled);
    const std::string path = content ? files_.save(content->url(), content->name()) : "";
    if (path.empty()) return done("", kFileFailed);
    std::error_code unknown;
    const uint64_t size = std::filesystem::file_size(path, unknown);
    if (progress) progress(size, size);
    done(path, 0);
  });
}

}  // namespace quor
