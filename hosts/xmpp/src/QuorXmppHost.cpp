#include "QuorXmppHost/QuorXmppHost.h"

#include <chrono>
#include <filesystem>

#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorHttpTransfer.h"
#include "QuorServiceRecord.h"
#include "QuorXmppHost/QuorDeskJid.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "QuorXmppStanza.h"

namespace quor {
namespace {

// One transfer's options on the files thread: the link's certificate rule, and an end when the
// app cancels or the host stops.
QuorHttpTransfer::Options transferOptions(const QuorXmppOptions& link,
                                          const std::atomic<bool>& stopping,
                                          std::shared_ptr<const std::atomic<bool>> cancel,
                                          KXCoreClient::ProgressBlock progress) {
  QuorHttpTransfer::Options options;
  options.trustSelfSignedCertificate = link.trustSelfSignedCertificate;
  options.cancelled = [&stopping, cancel] { return stopping.load() || (cancel && cancel->load()); };
  options.progress = std::move(progress);
  return options;
}

bool isStored(const std::shared_ptr<KXMessageContent>& content) {
  return content && (content->messagePersistentFlag() & KXMessagePersistentFlagIsPersisted);
}

}  // namespace

std::shared_ptr<QuorXmppHost> QuorXmppHost::create(Options options, std::string* error) {
  QuorMessageStore::Options storeOptions;
  storeOptions.path = options.storePath;
  storeOptions.account = QuorXmppStanza::bareJid(options.connection.jid);
  storeOptions.limitBytes = options.storeLimitBytes;
  auto store = QuorMessageStore::open(storeOptions, error);
  if (!store) return nullptr;
  // A device keeps its own resource, so that two devices of one account never take turns.
  if (options.connection.resource.empty()) options.connection.resource = store->deviceResource();
  return std::shared_ptr<QuorXmppHost>(new QuorXmppHost(std::move(options), std::move(store)));
}

QuorXmppHost::QuorXmppHost(Options options, std::unique_ptr<QuorMessageStore> store)
    : options_(std::move(options)),
      store_(std::move(store)),
      unsent_(store_->unsent()),
      delivery_(std::make_unique<QuorWorkerThread>("delivery")),
      files_(std::make_unique<QuorWorkerThread>("files")) {
  connection_ = std::make_unique<QuorXmppConnection>(
      options_.connection, static_cast<QuorXmppConnection::Events&>(*this));
  bareJid_ = connection_->bareJid();
  userId_ = QuorDeskJid::fromJid(bareJid_, connection_->domain());
  deskDomain_ = options_.deskDomain.empty() ? connection_->domain() : options_.deskDomain;
  registerHostTypes();
}

QuorXmppHost::~QuorXmppHost() {
  // Stopped first: the sends still waiting fail through the delivery thread, which then finishes
  // its work (a closure may still send; the stopped connection refuses it) before it ends.
  connection_->stop();
  // A transfer that runs ends now; what waits fails through the delivery thread.
  stopping_ = true;
  files_.reset();
  delivery_.reset();
  connection_.reset();
}

void QuorXmppHost::connect() { connection_->start(); }

void QuorXmppHost::logout() {
  delivery_->runAndWait([this] {
    for (auto* module : loadedModules()) module->notifyLogoutEvent();
  });
  connection_->stop(/*leaveAccount=*/true);
  if (!delivery_->isCurrent()) delivery_->waitIdle();
}

bool QuorXmppHost::waitUntilOnline(std::chrono::milliseconds timeout) const {
  return connection_->waitUntilOnline(timeout);
}

std::string QuorXmppHost::jidOfDesk(const std::string& deskId) const {
  return QuorDeskJid::toJid(deskId, deskDomain_);
}

void QuorXmppHost::transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) {
  const auto record = send.record;
  record->setSenderUserId(currentUserId());
  QuorXmppPayload payload;
  payload.peer = send.targetId ? jidOfDesk(*send.targetId) : "";
  payload.objectName = send.objectName;
  payload.body = send.body;
  payload.sender = currentUserId();
  if (payload.peer.empty()) {
    delivery_->post([pending] { pending->fail(QuorXmppErrorNotSendable); });
    return;
  }
  if (isStored(send.content)) {
    // A stored send keeps its stanza id, so that a later run can write it again under it.
    payload.stanzaId = QuorXmppStanza::uniqueId();
    QuorStoredMessage stored{0,
                             send.conversationType,
                             *send.targetId,
                             KXMessageDirectionSend,
                             record->senderUserId(),
                             send.objectName,
                             send.body,
                             0,
                             0,
                             QuorDeliveryStatus::Pending,
                             payload.stanzaId};
    // Its id now; its row on the delivery thread, so that the caller (the app's main thread)
    // never waits for the disk.
    record->setMessageId(store_->insertLater(std::move(stored)));
  }
  // Written after its row, so that nothing reaches the server that the store does not know;
  // every send takes this way, so sends go out in the order they were made.
  delivery_->post([this, payload, pending] {
    writeQueuedSends();
    carry(payload, pending, false);
  });
}

uint64_t QuorXmppHost::maxFileBytes() const {
  const auto service = connection_->uploadService();
  if (service.jid.empty()) return 0;
  // A service that names no limit still has one; the largest file the library lets go.
  return service.maxBytes > 0 ? service.maxBytes : kDefaultMaxFileBytes;
}

void QuorXmppHost::sendFileMessage(int32_t conversationType, const KXString& targetId,
                                   std::shared_ptr<KXFileMessage> content,
                                   std::shared_ptr<const std::atomic<bool>> cancel,
                                   ProgressBlock progress, SuccessBlock success, ErrorBlock error) {
  const auto fail = [this, error](int64_t code) {
    delivery_->post([error, code] {
      if (error) error(code, 0);
    });
  };
  if (!content || !targetId || jidOfDesk(*targetId).empty()) return fail(QuorXmppErrorNotSendable);
  if (maxFileBytes() == 0) return fail(QuorXmppErrorUploadFailed);
  auto upload = [this, conversationType, targetId, content, cancel, progress, success, error,
                 fail](const QuorXmppUploadSlot& slot) {
    auto options = transferOptions(options_.connection, stopping_, cancel, progress);
    options.contentType = content->mimeType();
    const std::string failed = QuorHttpTransfer::put(slot, content->localPath(), options);
    if (failed == "cancelled") return fail(QuorXmppErrorCancelled);
    if (!failed.empty()) {
      onLog(KXLogLevelError, "files", "upload of " + content->name() + " failed: " + failed);
      return fail(QuorXmppErrorUploadFailed);
    }
    content->setUrl(slot.getUrl);
    sendMessage(conversationType, targetId, content, std::nullopt, std::nullopt, success, error);
  };
  // The service puts the name in the file's URL: only a safe one (the message keeps the name).
  connection_->requestUploadSlot(
      QuorFileCache::safeName(content->name()), content->size(), content->mimeType(),
      [this, upload, fail, cancel](const QuorXmppUploadSlot& slot, const std::string& reason) {
        if (reason.empty() && !(cancel && cancel->load())) {
          files_->post([upload, slot] { upload(slot); });
        } else if (cancel && cancel->load()) {
          fail(QuorXmppErrorCancelled);
        } else {
          onLog(KXLogLevelError, "files", "no upload slot: " + reason);
          fail(connection_->status() == QuorXmppConnectionStatus::Connected
                   ? QuorXmppErrorUploadFailed
                   : QuorXmppErrorNotOnline);
        }
      });
}

void QuorXmppHost::downloadFile(std::shared_ptr<const KXFileMessage> content,
                                std::shared_ptr<const std::atomic<bool>> cancel,
                                ProgressBlock progress, DownloadBlock done) {
  if (!done) return;
  std::string directory = options_.fileCacheDirectory;
  if (directory.empty() && options_.storePath != ":memory:")
    directory = options_.storePath + ".files";
  if (!content || directory.empty()) return done("", QuorXmppErrorDownloadFailed);
  files_->post([this, content, cancel, progress, done, directory] {
    const std::string path = QuorFileCache(directory).pathFor(content->url(), content->name());
    std::error_code failed;
    // Whole already: a file is never changed under its URL.
    if (content->size() > 0 && std::filesystem::file_size(path, failed) == content->size() &&
        !failed) {
      return done(path, 0);
    }
    std::filesystem::create_directories(directory, failed);
    auto options = transferOptions(options_.connection, stopping_, cancel, progress);
    options.maxBytes = content->size() > 0 ? content->size() : kDefaultMaxFileBytes;
    const std::string part = path + ".part";
    const std::string reason = QuorHttpTransfer::get(content->url(), part, options);
    if (reason == "cancelled") return done("", QuorXmppErrorCancelled);
    if (reason.empty()) std::filesystem::rename(part, path, failed);
    if (!reason.empty() || failed) {
      std::filesystem::remove(part, failed);
      onLog(KXLogLevelError, "files", "download of " + content->name() + " failed: " + reason);
      return done("", QuorXmppErrorDownloadFailed);
    }
    done(path, 0);
  });
}

bool QuorXmppHost::isUnconfirmedError(int64_t errorCode) const {
  return errorCode == QuorXmppErrorConnectionLost || errorCode == QuorXmppErrorTimeout;
}

bool QuorXmppHost::resendMessage(int64_t messageId, SuccessBlock success, ErrorBlock error) {
  const auto stored = messageId > 0 ? store_->find(messageId) : std::nullopt;
  if (!stored || stored->direction != KXMessageDirectionSend || stored->stanzaId.empty())
    return false;
  auto pending = std::make_shared<QuorPendingSend>(recordOf(*stored), std::move(success),
                                                   std::move(error), nullptr, nullptr);
  if (stored->status == QuorDeliveryStatus::Sent) {
    delivery_->post([pending] { pending->succeed(); });
    return true;
  }
  carry(payloadOf(*stored), std::move(pending), stored->status == QuorDeliveryStatus::Unconfirmed);
  return true;
}

QuorXmppPayload QuorXmppHost::payloadOf(const QuorStoredMessage& stored) const {
  QuorXmppPayload payload;
  payload.peer = jidOfDesk(stored.targetId);
  payload.objectName = stored.objectName;
  payload.body = stored.body;
  payload.sender = stored.senderUserId.value_or(currentUserId());
  payload.stanzaId = stored.stanzaId;
  return payload;
}

void QuorXmppHost::carry(QuorXmppPayload payload, std::shared_ptr<QuorPendingSend> pending,
                         bool writtenBefore) {
  std::shared_ptr<QuorXmppPayload> sent;
  {
    // Kept for the wire observer only: a body is not copied when no one watches.
    std::lock_guard<std::mutex> lock(mutex_);
    if (wireObserver_) sent = std::make_shared<QuorXmppPayload>(payload);
  }
  // A control message of the customer's own moves the service's record once the server has it.
  const std::string recordFor = QuorServiceRecord::concerns(payload.objectName)
                                    ? QuorDeskJid::fromJid(payload.peer, deskDomain_)
                                    : "";
  const std::string objectName = recordFor.empty() ? "" : payload.objectName;
  connection_->send(std::move(payload), [this, pending, sent, writtenBefore, recordFor, objectName](
                                            int64_t errorCode, int64_t stamp) {
    delivery_->post([this, pending, sent, writtenBefore, recordFor, objectName, errorCode, stamp] {
      const int64_t id = pending->record()->messageId();
      if (errorCode != 0) {
        // Not written this time, but an earlier copy was: it may still have arrived.
        const int64_t code = writtenBefore && (errorCode == QuorXmppErrorNotOnline ||
                                               errorCode == QuorXmppErrorStopped)
                                 ? QuorXmppErrorConnectionLost
                                 : errorCode;
        if (id != 0) {
          keepOutcome(id,
                      isUnconfirmedError(code) ? QuorDeliveryStatus::Unconfirmed
                                               : QuorDeliveryStatus::Failed,
                      0);
        }
        pending->fail(code);
        return;
      }
      if (sent) {
        sent->stamp = stamp;
        observeWire(*sent, true);
      }
      pending->record()->setSentTime(stamp);
      if (id != 0) keepOutcome(id, QuorDeliveryStatus::Sent, stamp);
      if (!recordFor.empty()) recordService(recordFor, objectName, std::nullopt, true, stamp);
      pending->succeed();
    });
  });
}

void QuorXmppHost::onStatus(QuorXmppConnectionStatus status) {
  const auto after = catchUp_.onStatus(status, store_->archiveMark());
  if (after) connection_->queryArchive(*after);
  delivery_->post([this, status] {
    for (auto* module : loadedModules()) {
      if (status == QuorXmppConnectionStatus::Connected) module->setUserId(currentUserId());
      module->notifyConnectionStatusChanged(static_cast<int64_t>(status));
    }
    if (status == QuorXmppConnectionStatus::Connected) sendUnsent();
  });
}

void QuorXmppHost::sendUnsent() {
  std::vector<QuorStoredMessage> unsent;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    unsent.swap(unsent_);
  }
  if (unsent.empty()) return;
  writeEntry({threadName(), KXLogLevelInfo, 0, "QuorXmppHost",
              "sending again " + std::to_string(unsent.size()) +
                  " messages an earlier run left without an outcome"});
  for (const auto& stored : unsent) {
    carry(payloadOf(stored),
          std::make_shared<QuorPendingSend>(recordOf(stored), nullptr, nullptr, nullptr, nullptr),
          stored.status == QuorDeliveryStatus::Unconfirmed);
  }
}

void QuorXmppHost::onPayload(QuorXmppPayload payload) {
  const bool movesPlace = catchUp_.onPayload(payload);
  delivery_->post([this, movesPlace, payload = std::move(payload)] {
    if (payload.outgoing) {
      keepSentElsewhere(payload);
    } else {
      deliver(payload);
    }
    if (QuorServiceRecord::concerns(payload.objectName)) {
      recordService(QuorDeskJid::fromJid(payload.peer, deskDomain_), payload.objectName,
                    payload.body, payload.outgoing,
                    payload.stamp > 0 ? payload.stamp : QuorXmppStanza::wallClockMs());
    }
    // The place moves once the message was taken (stored, or held by the library).
    if (movesPlace && !store_->setArchiveMark(payload.archiveId)) {
      writeEntry(
          {threadName(), 2, 0, "xmpp", "cannot keep the archive's place: " + store_->lastError()});
    }
  });
}

void QuorXmppHost::onArchiveEnd(bool complete, const std::string& lastId) {
  const auto next = catchUp_.onArchiveEnd(complete, lastId);
  if (next) connection_->queryArchive(*next);
}

void QuorXmppHost::markConversationRead(int32_t conversationType, const KXString& targetId) {
  if (conversationType != KXConversationTypeCustomerService || !targetId) return;
  std::string newest;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = newestTaken_.find(*targetId);
    if (it != newestTaken_.end()) newest = it->second;
  }
  if (!newest.empty()) connection_->sendReadMarker(jidOfDesk(*targetId), newest);
}

void QuorXmppHost::onConversationRead(const std::string& peer) {
  delivery_->post([this, deskId = QuorDeskJid::fromJid(peer, deskDomain_)] {
    for (auto* module : loadedModules())
      module->notifyConversationRead(KXConversationTypeCustomerService, deskId);
  });
}

void QuorXmppHost::sendTypingStatus(int32_t conversationType, const KXString& targetId,
                                    bool typing) {
  if (conversationType != KXConversationTypeCustomerService || !targetId) return;
  connection_->sendChatState(jidOfDesk(*targetId), typing);
}

void QuorXmppHost::onChatState(const std::string& peer, bool typing) {
  delivery_->post([this, deskId = QuorDeskJid::fromJid(peer, deskDomain_), typing] {
    for (auto* module : loadedModules())
      module->notifyTypingStatus(KXConversationTypeCustomerService, deskId, typing);
  });
}

// The desk's read marker names a stanza this account sent; the modules hear its message id.
void QuorXmppHost::onDisplayed(const std::string& peer, const std::string& stanzaId) {
  delivery_->post([this, deskId = QuorDeskJid::fromJid(peer, deskDomain_), stanzaId] {
    const auto messageId = store_->findSent(stanzaId);
    if (!messageId) return;
    for (auto* module : loadedModules())
      module->notifyReadReceipt(KXConversationTypeCustomerService, deskId, *messageId);
  });
}

void QuorXmppHost::onLog(int32_t level, const std::string& area, const std::string& text) {
  writeEntry({threadName(), level, 0, area, text});
}

void QuorXmppHost::deliver(const QuorXmppPayload& payload) {
  QuorReceivedMessage received;
  received.storeKey = QuorRecentPayloads::keyOf(payload);
  if (recent_.seenBefore(received.storeKey)) return;
  observeWire(payload, false);
  received.targetId = QuorDeskJid::fromJid(payload.peer, deskDomain_);
  if (!payload.stanzaId.empty()) {
    std::lock_guard<std::mutex> lock(mutex_);
    newestTaken_[*received.targetId] = payload.stanzaId;
  }
  received.senderUserId = payload.sender.empty() ? received.targetId : KXString(payload.sender);
  received.objectName = payload.objectName;
  received.body = payload.body;
  received.sentTime = payload.stamp > 0 ? payload.stamp : QuorXmppStanza::wallClockMs();
  received.offline = payload.offline;
  receive(received);
}

void QuorXmppHost::keepSentElsewhere(const QuorXmppPayload& payload) {
  if (!isStored(contentFor(payload.objectName)) || payload.stanzaId.empty()) return;
  QuorStoredMessage stored{0,
                           KXConversationTypeCustomerService,
                           QuorDeskJid::fromJid(payload.peer, deskDomain_),
                           KXMessageDirectionSend,
                           payload.sender.empty() ? currentUserId() : payload.sender,
                           payload.objectName,
                           payload.body,
                           payload.stamp,
                           0,
                           QuorDeliveryStatus::Sent,
                           payload.stanzaId};
  // A duplicate is this device's own send, stored when it was made; a new line is shown.
  switch (store_->insert(stored)) {
    case QuorMessageStore::Insert::Stored:
      notifyListeners(recordOf(stored));
      break;
    case QuorMessageStore::Insert::Failed:
      tellStoreError("cannot store a message sent to " + stored.targetId, recordOf(stored));
      break;
    case QuorMessageStore::Insert::Duplicate:
      break;
  }
}

void QuorXmppHost::recordService(const std::string& deskId, const std::string& objectName,
                                 const KXData& body, bool sent, int64_t stamp) {
  auto record = QuorServiceRecord::fromNote(store_->serviceNote(deskId));
  if (!record.take(objectName, body, sent, stamp)) return;
  if (!store_->setServiceNote(deskId, record.note())) {
    writeEntry(
        {threadName(), KXLogLevelError, 0, "QuorXmppHost",
         "cannot keep the state of the service with " + deskId + ": " + store_->lastError()});
  }
}

KXCSServiceState QuorXmppHost::lastServiceState(const std::string& deskId) const {
  return QuorServiceRecord::fromNote(store_->serviceNote(deskId)).state();
}

bool QuorXmppHost::storeReceived(const std::shared_ptr<KXMessage>& message,
                                 const QuorReceivedMessage& received) {
  QuorStoredMessage stored{0,
                           message->conversationType(),
                           received.targetId.value_or(""),
                           KXMessageDirectionReceive,
                           message->senderUserId(),
                           received.objectName,
                           received.body,
                           message->sentTime(),
                           0,
                           QuorDeliveryStatus::Sent,
                           {}};
  const auto inserted = store(stored, received.storeKey, message);
  // Stored before, by an earlier run of the host: the application has seen it.
  if (inserted == QuorMessageStore::Insert::Duplicate) return false;
  if (inserted == QuorMessageStore::Insert::Stored) message->setMessageId(stored.id);
  return true;
}

void QuorXmppHost::forgetReceived(const std::shared_ptr<KXMessage>& message) {
  if (message->messageId() != 0 && !store_->remove(message->messageId()))
    tellStoreError("cannot remove a held message of " + message->targetId().value_or(""), message);
}

void QuorXmppHost::setWireObserver(WireObserver observer) {
  std::lock_guard<std::mutex> lock(mutex_);
  wireObserver_ = std::move(observer);
}

void QuorXmppHost::observeWire(const QuorXmppPayload& payload, bool fromClient) const {
  WireObserver observer;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    observer = wireObserver_;
  }
  if (observer) observer(payload, fromClient);
}

QuorMessageStore::Insert QuorXmppHost::store(QuorStoredMessage& stored,
                                             const std::string& originKey,
                                             const std::shared_ptr<KXMessage>& record) {
  const auto inserted = store_->insert(stored, originKey);
  if (inserted != QuorMessageStore::Insert::Failed) return inserted;
  // Never a silent loss: the log says it at error level and the app hears it.
  tellStoreError("cannot store a message of " + stored.targetId, record);
  return inserted;
}

void QuorXmppHost::writeQueuedSends() {
  for (const auto& lost : store_->flush()) {
    tellStoreError("cannot store a message of " + lost.message.targetId, recordOf(lost.message),
                   lost.reason);
  }
}

void QuorXmppHost::tellStoreError(const std::string& what,
                                  const std::shared_ptr<KXMessage>& record) {
  tellStoreError(what, record, store_->lastError());
}

void QuorXmppHost::tellStoreError(const std::string& what, const std::shared_ptr<KXMessage>& record,
                                  const std::string& reason) {
  writeEntry({threadName(), KXLogLevelError, 0, "QuorXmppHost", what + ": " + reason});
  StoreErrorListener listener;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    listener = storeErrorListener_;
  }
  if (listener) post([listener, record, reason] { listener(record, reason); });
}

void QuorXmppHost::keepOutcome(int64_t id, QuorDeliveryStatus status, int64_t sentTime) {
  if (store_->setOutcome(id, status, sentTime)) return;
  // The message stays Pending in the store, and the next run sends it again under its id (the
  // desk takes it once); the app hears that its outcome was not kept.
  const auto stored = store_->find(id);
  tellStoreError("cannot store the outcome of message " + std::to_string(id),
                 stored ? recordOf(*stored) : nullptr);
}

void QuorXmppHost::setStoreErrorListener(StoreErrorListener listener) {
  std::lock_guard<std::mutex> lock(mutex_);
  storeErrorListener_ = std::move(listener);
}

std::shared_ptr<KXMessage> QuorXmppHost::insertIncomingMessage(
    int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
    int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) {
  if (!content || !targetId) return nullptr;
  QuorStoredMessage stored{0,
                           conversationType,
                           *targetId,
                           KXMessageDirectionReceive,
                           senderUserId,
                           content->objectName(),
                           content->encode(),
                           QuorXmppStanza::wallClockMs(),
                           receivedStatus,
                           QuorDeliveryStatus::Sent,
                           {}};
  auto record = std::make_shared<KXMessage>(conversationType, targetId, KXMessageDirectionReceive,
                                            0, std::move(content));
  if (store(stored, "", record) != QuorMessageStore::Insert::Stored) return nullptr;
  record->setMessageId(stored.id);
  record->setSenderUserId(senderUserId);
  record->setReceivedStatus(receivedStatus);
  record->setSentTime(stored.sentTime);
  record->setObjectName(stored.objectName);
  return record;
}

void QuorXmppHost::onReceiveFakeMessage(std::shared_ptr<KXMessage> message) {
  // A failed insert hands on no record: there is nothing to show.
  if (!message) {
    writeEntry(
        {threadName(), KXLogLevelInfo, 0, "QuorXmppHost", "a fake receive without a record"});
    return;
  }
  notifyListeners(message);
}

std::vector<QuorXmppHost::HistoryEntry> QuorXmppHost::history(const std::string& deskId,
                                                              int64_t beforeMessageId,
                                                              int count) const {
  std::vector<HistoryEntry> entries;
  for (const auto& stored : store_->page(deskId, beforeMessageId, count)) {
    entries.push_back({recordOf(stored), stored.status});
  }
  return entries;
}

std::shared_ptr<KXMessage> QuorXmppHost::recordOf(const QuorStoredMessage& stored) const {
  auto content = contentFor(stored.objectName);
  content->decodeWithData(stored.body);
  auto record = std::make_shared<KXMessage>(stored.conversationType, stored.targetId,
                                            stored.direction, stored.id, content);
  record->setSenderUserId(stored.senderUserId);
  record->setSentTime(stored.sentTime);
  record->setReceivedStatus(stored.receivedStatus);
  record->setObjectName(stored.objectName);
  return record;
}

}  // namespace quor
