#include "RecordingHost.h"

#include <thread>

namespace quor::test {
namespace {
thread_local std::string threadName = "app";
}

const std::string& currentThreadName() { return threadName; }

ThreadName::ThreadName(std::string name) : previous_(threadName) { threadName = std::move(name); }
ThreadName::~ThreadName() { threadName = previous_; }

void runOnThread(const std::string& name, const std::function<void()>& work) {
  std::thread thread([&] {
    ThreadName label(name);
    work();
  });
  thread.join();
}

std::shared_ptr<RecordingHost> RecordingHost::install() {
  auto host = std::make_shared<RecordingHost>();
  KXCoreClient::setSharedCoreClient(host);
  KXFwLog::setInstance(host);
  KXLocalConfiguration::setSharedInstance(host);
  KXMainThreadDispatcher::setShared(host);
  return host;
}

void RecordingHost::uninstall() {
  KXCoreClient::setSharedCoreClient(nullptr);
  KXFwLog::setInstance(nullptr);
  KXLocalConfiguration::setSharedInstance(nullptr);
  KXMainThreadDispatcher::setShared(nullptr);
}

std::shared_ptr<KXMessage> RecordingHost::recordSend(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, Closures closures, PendingSend pending) {
  RecordedSend send;
  send.thread = currentThreadName();
  send.conversationType = conversationType;
  send.targetId = targetId;
  send.content = content;
  send.objectName = content ? content->objectName() : "";
  // Encoding happens outside the lock: it may log.
  send.bytes = content ? content->encode() : std::nullopt;
  if (send.bytes) send.body = KXDictionary::parse(*send.bytes, nullptr, false);
  if (send.body.is_discarded()) send.body = nullptr;
  send.pushContent = pushContent;
  send.pushData = pushData;
  send.closures = closures;
  std::lock_guard<std::mutex> lock(mutex_);
  send.record =
      std::make_shared<KXMessage>(conversationType, targetId, 1, nextMessageId_++, content);
  auto record = send.record;
  sends_.push_back(std::move(send));
  pending_.push_back(std::move(pending));
  return record;
}

std::shared_ptr<KXMessage> RecordingHost::sendMessage(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, SuccessBlock success, ErrorBlock error) {
  const Closures closures = (success || error) ? Closures::Ids : Closures::None;
  return recordSend(conversationType, targetId, std::move(content), pushContent, pushData, closures,
                    {std::move(success), std::move(error), nullptr, nullptr});
}

std::shared_ptr<KXMessage> RecordingHost::sendMessageSuccessBlock(
    int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
    const KXString& pushContent, const KXString& pushData, RecordSuccessBlock successBlock,
    RecordErrorBlock errorBlock) {
  return recordSend(conversationType, targetId, std::move(content), pushContent, pushData,
                    Closures::Records,
                    {nullptr, nullptr, std::move(successBlock), std::move(errorBlock)});
}

RecordingHost::PendingSend RecordingHost::takePending(std::size_t index,
                                                      std::shared_ptr<KXMessage>& record) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (index >= pending_.size()) return {};
  record = sends_[index].record;
  // Each send reports at most once.
  return std::exchange(pending_[index], PendingSend{});
}

void RecordingHost::confirmSend(std::size_t index, int64_t sentTime) {
  std::shared_ptr<KXMessage> record;
  PendingSend pending = takePending(index, record);
  if (!record) return;
  record->setSentTime(sentTime);
  if (pending.success) pending.success(record->messageId());
  if (pending.recordSuccess) pending.recordSuccess(record);
}

void RecordingHost::failSend(std::size_t index, int64_t errorCode) {
  std::shared_ptr<KXMessage> record;
  PendingSend pending = takePending(index, record);
  if (!record) return;
  if (pending.error) pending.error(errorCode, record->messageId());
  if (pending.recordError) pending.recordError(errorCode, record);
}

std::shared_ptr<KXMessage> RecordingHost::insertIncomingMessage(
    int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
    int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) {
  std::lock_guard<std::mutex> lock(mutex_);
  RecordedInsert insert{currentThreadName(), conversationType, targetId, senderUserId,
                        receivedStatus,      content,          nullptr};
  if (!insertFails_) {
    insert.record =
        std::make_shared<KXMessage>(conversationType, targetId, 2, nextMessageId_++, content);
    insert.record->setSenderUserId(senderUserId);
    insert.record->setReceivedStatus(receivedStatus);
  }
  inserts_.push_back(insert);
  return insert.record;
}

void RecordingHost::onReceiveFakeMessage(std::shared_ptr<KXMessage> message) {
  std::lock_guard<std::mutex> lock(mutex_);
  fakeReceives_.push_back({currentThreadName(), std::move(message)});
}

void RecordingHost::registerMessageType(const KXMessageContentType& type) {
  std::lock_guard<std::mutex> lock(mutex_);
  registrations_.push_back(type);
}

void RecordingHost::write(int32_t level, int32_t type, std::string_view tag,
                          std::string_view format, std::initializer_list<KXLogArgument> keys) {
  RecordedLog log{
      currentThreadName(),          level, type, std::string(tag), std::string(format), {},
      KXFwLog::format(format, keys)};
  for (const KXLogArgument& key : keys) {
    log.arguments.push_back(
        {key.kind(), std::string(key.text()), key.json() ? *key.json() : KXDictionary()});
  }
  std::lock_guard<std::mutex> lock(mutex_);
  logs_.push_back(std::move(log));
}

void RecordingHost::post(std::function<void()> closure) {
  std::lock_guard<std::mutex> lock(mutex_);
  mainQueue_.push_back(std::move(closure));
}

std::size_t RecordingHost::drainMain() {
  std::size_t count = 0;
  runOnThread("main", [&] {
    for (;;) {
      std::function<void()> closure;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (mainQueue_.empty()) return;
        closure = std::move(mainQueue_.front());
        mainQueue_.pop_front();
      }
      if (closure) closure();
      ++count;
    }
  });
  return count;
}

std::size_t RecordingHost::pendingMain() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return mainQueue_.size();
}

std::vector<RecordedSend> RecordingHost::sends() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sends_;
}

std::vector<RecordedInsert> RecordingHost::inserts() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return inserts_;
}

std::vector<RecordedFakeReceive> RecordingHost::fakeReceives() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return fakeReceives_;
}

std::vector<KXMessageContentType> RecordingHost::registrations() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return registrations_;
}

std::vector<RecordedLog> RecordingHost::logs() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return logs_;
}

void RecordingHost::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  sends_.clear();
  pending_.clear();
  inserts_.clear();
  fakeReceives_.clear();
  registrations_.clear();
  logs_.clear();
}

std::shared_ptr<KXMessage> receivedMessage(std::shared_ptr<KXMessageContent> content,
                                           const KXString& targetId, int64_t sentTime,
                                           int32_t conversationType) {
  auto message = std::make_shared<KXMessage>(conversationType, targetId, 2, 0, std::move(content));
  message->setSenderUserId(targetId);
  message->setSentTime(sentTime);
  return message;
}

}  // namespace quor::test
