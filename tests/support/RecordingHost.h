// The recording test double of the host: every test installs one and checks what the library
// did through it.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "QuorHostBase/QuorHostBase.h"

namespace quor::test {

// The name of the calling thread in recordings: "app" unless set with ThreadName.
const std::string& currentThreadName();

// Names the calling thread for as long as it lives.
class ThreadName {
 public:
  explicit ThreadName(std::string name);
  ~ThreadName();

 private:
  std::string previous_;
};

// Runs `work` on a new thread called `name` and waits for it.
void runOnThread(const std::string& name, const std::function<void()>& work);

// One send: what the host took (the bytes are `body`), and those bytes parsed.
struct RecordedSend : QuorOutgoingSend {
  KXDictionary json;  // null when the bytes are absent or not JSON
};

struct RecordedInsert {
  std::string thread;
  int32_t conversationType = 0;
  KXString targetId;
  KXString senderUserId;
  int32_t receivedStatus = 0;
  std::shared_ptr<KXMessageContent> content;
  std::shared_ptr<KXMessage> record;  // null when the insert was made to fail
};

struct RecordedFakeReceive {
  std::string thread;
  std::shared_ptr<KXMessage> message;
};

struct LoggedArgument {
  KXLogArgument::Kind kind = KXLogArgument::Kind::Absent;
  std::string text;
  KXDictionary json;
};

struct RecordedLog {
  std::string thread;
  int32_t level = 0;
  int32_t type = 0;
  std::string tag;
  std::string format;
  std::vector<LoggedArgument> arguments;
  std::string text;  // the format with its arguments filled in
};

// Host calls that a test can make throw.
enum class HostCall { Send, Insert, FakeReceive, Register, Log, Configuration, Post };

class RecordingHost : public QuorHostBase {
 public:
  // A new host, installed as core client, logger, local configuration and main dispatcher.
  static std::shared_ptr<RecordingHost> install();

  // KXCoreClient
  std::shared_ptr<KXMessage> insertIncomingMessage(
      int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
      int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) override;
  void onReceiveFakeMessage(std::shared_ptr<KXMessage> message) override;
  void registerMessageType(const KXMessageContentType& type) override;

  // KXFwLog: records the entry with its arguments.
  void write(int32_t level, int32_t type, std::string_view tag, std::string_view format,
             std::initializer_list<KXLogArgument> keys) override;

  // KXLocalConfiguration
  bool csSuspendWhenLeave() const override;

  // KXMainThreadDispatcher: closures wait until the test drains them.
  void post(std::function<void()> closure) override;
  // Runs the waiting closures, and those they post, on a thread called "main"; returns how
  // many ran.
  std::size_t drainMain();
  std::size_t pendingMain() const;

  // Reports send `index` as sent (the record gets `sentTime`) or failed, on the calling thread.
  // Like a faulty host, it reports again when asked again: the library must cope.
  void confirmSend(std::size_t index, int64_t sentTime);
  void failSend(std::size_t index, int64_t errorCode);

  // Makes later inserts fail (return no record).
  void setInsertFails(bool fails) { insertFails_ = fails; }
  // Makes later calls of this kind throw std::runtime_error("host fault").
  void setThrows(HostCall call, bool throws);

  std::vector<RecordedSend> sends() const;
  std::vector<RecordedInsert> inserts() const;
  std::vector<RecordedFakeReceive> fakeReceives() const;
  // Every registration, repeated ones included, in order.
  std::vector<KXMessageContentType> registrations() const;
  std::vector<RecordedLog> logs() const;
  void clear();

 protected:
  void transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) override;
  std::string currentThreadName() const override { return test::currentThreadName(); }

 private:
  void throwIf(HostCall call) const;
  std::shared_ptr<QuorPendingSend> pendingAt(std::size_t index) const;

  mutable std::mutex mutex_;
  std::vector<RecordedSend> sends_;
  std::vector<std::shared_ptr<QuorPendingSend>> pending_;
  std::vector<RecordedInsert> inserts_;
  std::vector<RecordedFakeReceive> fakeReceives_;
  std::vector<KXMessageContentType> registrations_;
  std::vector<RecordedLog> logs_;
  std::deque<std::function<void()>> mainQueue_;
  std::atomic<bool> insertFails_{false};
  std::atomic<unsigned> throwing_{0};
};

// A received message record of conversation type 5 holding `content`.
std::shared_ptr<KXMessage> receivedMessage(std::shared_ptr<KXMessageContent> content,
                                           const KXString& targetId, int64_t sentTime,
                                           int32_t conversationType = 5);

// A content of type T decoded from `body` (written compactly).
template <class T>
std::shared_ptr<T> decoded(const KXDictionary& body) {
  auto content = std::make_shared<T>();
  content->decodeWithData(body.dump());
  return content;
}

}  // namespace quor::test
