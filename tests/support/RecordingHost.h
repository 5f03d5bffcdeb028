// The recording test double of the host: every test installs one and checks what the library
// did through it.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXCoreClient.h"
#include "QuorCustomerService/Host/KXFwLog.h"
#include "QuorCustomerService/Host/KXLocalConfiguration.h"
#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"

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

enum class Closures { None, Ids, Records };

struct RecordedSend {
  std::string thread;
  int32_t conversationType = 0;
  KXString targetId;
  std::shared_ptr<KXMessageContent> content;
  std::string objectName;
  KXData bytes;
  KXDictionary body;  // the bytes parsed; null when absent or not JSON
  KXString pushContent;
  KXString pushData;
  Closures closures = Closures::None;
  std::shared_ptr<KXMessage> record;
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

class RecordingHost : public KXCoreClient,
                      public KXFwLog,
                      public KXLocalConfiguration,
                      public KXMainThreadDispatcher,
                      public std::enable_shared_from_this<RecordingHost> {
 public:
  // A new host, installed as core client, logger, local configuration and main dispatcher.
  static std::shared_ptr<RecordingHost> install();
  // Removes every installed host implementation.
  static void uninstall();

  // KXCoreClient
  std::shared_ptr<KXMessage> sendMessage(int32_t conversationType, const KXString& targetId,
                                         std::shared_ptr<KXMessageContent> content,
                                         const KXString& pushContent, const KXString& pushData,
                                         SuccessBlock success, ErrorBlock error) override;
  std::shared_ptr<KXMessage> sendMessageSuccessBlock(
      int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
      const KXString& pushContent, const KXString& pushData, RecordSuccessBlock successBlock,
      RecordErrorBlock errorBlock) override;
  std::shared_ptr<KXMessage> insertIncomingMessage(
      int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
      int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) override;
  void onReceiveFakeMessage(std::shared_ptr<KXMessage> message) override;
  void registerMessageType(const KXMessageContentType& type) override;

  // KXFwLog
  void write(int32_t level, int32_t type, std::string_view tag, std::string_view format,
             std::initializer_list<KXLogArgument> keys) override;

  // KXLocalConfiguration
  bool csSuspendWhenLeave() const override { return suspendWhenLeave_; }
  void setSuspendWhenLeave(bool value) { suspendWhenLeave_ = value; }

  // KXMainThreadDispatcher: closures wait until the test drains them.
  void post(std::function<void()> closure) override;
  // Runs the waiting closures, and those they post, on a thread called "main"; returns how
  // many ran.
  std::size_t drainMain();
  std::size_t pendingMain() const;

  // Reports send `index` as sent (the record gets `sentTime`) or failed, on the calling thread.
  void confirmSend(std::size_t index, int64_t sentTime);
  void failSend(std::size_t index, int64_t errorCode);

  // Makes later inserts fail (return no record).
  void setInsertFails(bool fails) { insertFails_ = fails; }

  std::vector<RecordedSend> sends() const;
  std::vector<RecordedInsert> inserts() const;
  std::vector<RecordedFakeReceive> fakeReceives() const;
  std::vector<KXMessageContentType> registrations() const;
  std::vector<RecordedLog> logs() const;
  void clear();

 private:
  struct PendingSend {
    SuccessBlock success;
    ErrorBlock error;
    RecordSuccessBlock recordSuccess;
    RecordErrorBlock recordError;
  };
  std::shared_ptr<KXMessage> recordSend(int32_t conversationType, const KXString& targetId,
                                        std::shared_ptr<KXMessageContent> content,
                                        const KXString& pushContent, const KXString& pushData,
                                        Closures closures, PendingSend pending);
  PendingSend takePending(std::size_t index, std::shared_ptr<KXMessage>& record);

  mutable std::mutex mutex_;
  std::vector<RecordedSend> sends_;
  std::vector<PendingSend> pending_;
  std::vector<RecordedInsert> inserts_;
  std::vector<RecordedFakeReceive> fakeReceives_;
  std::vector<KXMessageContentType> registrations_;
  std::vector<RecordedLog> logs_;
  std::deque<std::function<void()>> mainQueue_;
  int64_t nextMessageId_ = 1;
  std::atomic<bool> suspendWhenLeave_{false};
  std::atomic<bool> insertFails_{false};
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
