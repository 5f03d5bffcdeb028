#include "RecordingHost.h"

#include "KXJsonTree.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
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
  host->QuorHostBase::install();
  return host;
}

void RecordingHost::setThrows(HostCall call, bool throws) {
  const unsigned bit = 1u << static_cast<unsigned>(call);
  if (throws) {
    throwing_ |= bit;
  } else {
    throwing_ &= ~bit;
  }
}

void RecordingHost::throwIf(HostCall call) const {
  if (throwing_ & (1u << static_cast<unsigned>(call))) throw std::runtime_error("host fault");
}

bool RecordingHost::csSuspendWhenLeave() const {
  throwIf(HostCall::Configuration);
  return QuorHostBase::csSuspendWhenLeave();
}

void RecordingHost::transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) {
  throwIf(HostCall::Send);
  RecordedSend recorded;
  static_cast<QuorOutgoingSend&>(recorded) = std::move(send);
  // Parsed in linear time: bodies may hold a rating's extra of any size.
  if (recorded.body) recorded.json = KXJsonTree::parse(*recorded.body, 128).value_or(nullptr);
  std::lock_guard<std::mutex> lock(mutex_);
  sends_.push_back(std::move(recorded));
  pending_.push_back(std::move(pending));
}

std::shared_ptr<QuorPendingSend> RecordingHost::pendingAt(std::size_t index) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return index < pending_.size() ? pending_[index] : nullptr;
}

void RecordingHost::confirmSend(std::size_t index, int64_t sentTime) {
  if (auto pending = pendingAt(index)) {
    pending->record()->setSentTime(sentTime);
    pending->succeedAgain();
  }
}

void RecordingHost::failSend(std::size_t index, int64_t errorCode) {
  if (auto pending = pendingAt(index)) pending->failAgain(errorCode);
}

std::shared_ptr<KXMessage> RecordingHost::insertIncomingMessage(
    int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
    int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) {
  throwIf(HostCall::Insert);
  std::lock_guard<std::mutex> lock(mutex_);
  RecordedInsert insert{currentThreadName(), conversationType, targetId, senderUserId,
                        receivedStatus,      content,          nullptr};
  if (!insertFails_) {
    insert.record = std::make_shared<KXMessage>(conversationType, targetId, 2,
                                                1000000 + int64_t(inserts_.size()), content);
    insert.record->setSenderUserId(senderUserId);
    insert.record->setReceivedStatus(receivedStatus);
  }
  inserts_.push_back(insert);
  return insert.record;
}

void RecordingHost::onReceiveFakeMessage(std::shared_ptr<KXMessage> message) {
  throwIf(HostCall::FakeReceive);
  std::lock_guard<std::mutex> lock(mutex_);
  fakeReceives_.push_back({currentThreadName(), std::move(message)});
}

void RecordingHost::registerMessageType(const KXMessageContentType& type) {
  throwIf(HostCall::Register);
  QuorHostBase::registerMessageType(type);
  std::lock_guard<std::mutex> lock(mutex_);
  registrations_.push_back(type);
}

void RecordingHost::write(int32_t level, int32_t type, std::string_view tag,
                          std::string_view format, std::initializer_list<KXLogArgument> keys) {
  throwIf(HostCall::Log);
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
  throwIf(HostCall::Post);
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
