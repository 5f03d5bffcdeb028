#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "QuorHostBase/QuorHostBase.h"
#include "QuorHostBase/QuorWorkerThread.h"
#include "QuorLoopbackHost/QuorLoopbackObserver.h"
#include "QuorLoopbackHost/QuorLoopbackPeer.h"
#include "QuorLoopbackHost/QuorMemoryFiles.h"

namespace quor {

// An in-memory IM core: a complete implementation of every host interface, with a peer (a
// desk) at the other end of its channel instead of a network.
//
// Threads, as a real IM core has them:
// - "host": sends are reported (the closures run) here, then handed to the peer here.
// - "delivery": messages from the peer are decoded into their registered type (a fresh
//   instance each) and offered to each loaded module here.
// - "main": the application's thread that drives mainRunLoop(); the library's main-thread
//   closures and the application's message listeners run there.
// Every operation may be called from any thread.
class QuorLoopbackHost : public QuorHostBase {
 public:
  QuorLoopbackHost();
  ~QuorLoopbackHost() override;

  void connectPeer(std::shared_ptr<QuorLoopbackPeer> peer);
  void setObserver(std::shared_ptr<QuorLoopbackObserver> observer);
  // The user id the host stamps on the application's sends.
  void setCurrentUserId(std::string userId);

  // When true (the default) a send with closures is reported as sent at once; when false it
  // waits for confirmOldestSend().
  void setAutoConfirm(bool autoConfirm) { autoConfirm_ = autoConfirm; }
  // Reports the oldest waiting send as sent (with `sentTime`, else its own) or failed with
  // `errorCode`, on the host thread; returns false when none waits.
  bool confirmOldestSend(bool ok, std::optional<int64_t> sentTime, int64_t errorCode);

  // A message from the peer: decoded and offered to the modules on the delivery thread. The
  // waiting form returns the modules' answer; a zero sentTime is stamped from the clock unless
  // `keepSentTime`.
  bool receive(QuorWireMessage message, bool keepSentTime = false);
  void receiveAsync(QuorWireMessage message);

  // The messages stored for a conversation (by target id), oldest first.
  std::vector<std::shared_ptr<KXMessage>> conversation(const std::string& targetId) const;
  // The conversations the library marked read (markConversationRead), by target id, in order.
  std::vector<std::string> markedRead() const;
  // The typing states the library told (sendTypingStatus), as "TARGET typing" or
  // "TARGET stopped", in order.
  std::vector<std::string> typingTold() const;

  // Files, kept in memory under "loopback://files/N" URLs; none until setMaxFileBytes() (0
  // carries none). An upload reads its file in 64 KiB pieces on the host thread, telling the
  // progress and stopping at the cancel flag (kFileCancelled; an unreadable file
  // kFileFailed), then sends the content as any send. While uploads are held they wait for
  // holdUploads(false). Downloads write the kept bytes into the file cache directory under
  // QuorFileCache's names; without one, or for an unknown URL, they fail (kFileFailed).
  static constexpr int64_t kFileCancelled = 41001;
  static constexpr int64_t kFileFailed = 41002;
  void setMaxFileBytes(uint64_t bytes) { maxFileBytes_ = bytes; }
  void setFileCacheDirectory(std::string directory);
  void holdUploads(bool held);
  // The bytes kept under `url` ("" for none), and bytes the peer offers, kept under a new URL.
  std::string fileAt(const std::string& url) const;
  std::string keepFile(std::string bytes);

  // Waits until the host and delivery threads have nothing left to do (the main run loop is
  // left alone).
  void waitForThreads();
  // Runs the main run loop, host and delivery threads until none has anything left to do.
  // Call it from the main thread.
  void settle();
  // The host's virtual clock: the next send time (1000, 1001, ...). Sends and messages from
  // the peer without a time are stamped from it.
  int64_t nextSentTime() { return clock_++; }

  // KXCoreClient
  std::shared_ptr<KXMessage> insertIncomingMessage(
      int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
      int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) override;
  void onReceiveFakeMessage(std::shared_ptr<KXMessage> message) override;
  void registerMessageType(const KXMessageContentType& type) override;
  void markConversationRead(int32_t conversationType, const KXString& targetId) override;
  void sendTypingStatus(int32_t conversationType, const KXString& targetId, bool typing) override;
  uint64_t maxFileBytes() const override { return maxFileBytes_; }
  void sendFileMessage(int32_t conversationType, const KXString& targetId,
                       std::shared_ptr<KXFileMessage> content,
                       std::shared_ptr<const std::atomic<bool>> cancel, ProgressBlock progress,
                       SuccessBlock success, ErrorBlock error) override;
  void downloadFile(std::shared_ptr<const KXFileMessage> content,
                    std::shared_ptr<const std::atomic<bool>> cancel, ProgressBlock progress,
                    DownloadBlock done) override;

 protected:
  void transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) override;
  bool observesLogs() const override { return observer() != nullptr; }
  void observeLog(const QuorLogEntry& entry) override;

 private:
  struct WaitingSend;
  void report(const std::shared_ptr<WaitingSend>& waiting, bool ok, int64_t errorCode);
  bool deliver(QuorWireMessage message);
  bool storeReceived(const std::shared_ptr<KXMessage>& message,
                     const QuorReceivedMessage& received) override;
  void forgetReceived(const std::shared_ptr<KXMessage>& message) override;
  void store(const std::shared_ptr<KXMessage>& message);
  std::shared_ptr<QuorLoopbackObserver> observer() const;

  mutable std::mutex mutex_;
  std::shared_ptr<QuorLoopbackPeer> peer_;
  std::shared_ptr<QuorLoopbackObserver> observer_;
  std::map<std::string, std::vector<std::shared_ptr<KXMessage>>> conversations_;
  std::vector<std::string> markedRead_;
  std::vector<std::string> typingTold_;
  std::deque<std::shared_ptr<WaitingSend>> waiting_;
  std::string currentUserId_ = "customer";
  // Local messages (inserts) number apart from sends, so that send ids run 1, 2, 3 ...
  std::atomic<int64_t> nextLocalMessageId_{1000001};
  std::atomic<int64_t> clock_{1000};
  std::atomic<bool> autoConfirm_{true};
  std::atomic<uint64_t> maxFileBytes_{0};
  QuorMemoryFiles files_{"loopback"};
  // Declared last: their threads stop first, while everything they use still exists.
  std::unique_ptr<QuorWorkerThread> hostThread_;
  std::unique_ptr<QuorWorkerThread> deliveryThread_;
};

}  // namespace quor
