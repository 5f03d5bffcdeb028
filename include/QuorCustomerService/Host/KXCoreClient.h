#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "QuorCustomerService/Host/KXFileMessage.h"
#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXMessageContentType.h"
#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The host's core client: sending, inserting local messages, handing local messages to the
// application and registering message types. A host adapter implements it and installs it
// with setSharedCoreClient(); tests install a recording double.
//
// Threads: the library calls every operation from whatever thread runs its own operation (the
// application's thread, the host's delivery thread, or the main thread), so an implementation
// must be callable from any thread. The send closures may be called on any thread the host
// chooses; each send calls at most one of its two closures, once.
class QUOR_CS_EXPORT KXCoreClient {
 public:
  // Closures of the id-passing send.
  using SuccessBlock = std::function<void(int64_t messageId)>;
  using ErrorBlock = std::function<void(int64_t errorCode, int64_t messageId)>;
  // Closures of the record-passing send.
  using RecordSuccessBlock = std::function<void(std::shared_ptr<KXMessage> message)>;
  using RecordErrorBlock =
      std::function<void(int64_t errorCode, std::shared_ptr<KXMessage> message)>;

  virtual ~KXCoreClient();

  // The installed core client, fetched afresh at every use; null when none is installed, in
  // which case the library's sends, inserts and registrations do nothing.
  static std::shared_ptr<KXCoreClient> sharedCoreClient();
  static void setSharedCoreClient(std::shared_ptr<KXCoreClient> client);

  // sendMessage:targetId:content:pushContent:pushData:success:error:
  // Either closure may be empty. Returns the host's record of the queued message, or null.
  virtual std::shared_ptr<KXMessage> sendMessage(int32_t conversationType, const KXString& targetId,
                                                 std::shared_ptr<KXMessageContent> content,
                                                 const KXString& pushContent,
                                                 const KXString& pushData, SuccessBlock success,
                                                 ErrorBlock error) = 0;

  // sendMessage:targetId:content:pushContent:pushData:successBlock:errorBlock:
  // Like sendMessage(), but the closures receive the message record instead of its id.
  virtual std::shared_ptr<KXMessage> sendMessageSuccessBlock(
      int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
      const KXString& pushContent, const KXString& pushData, RecordSuccessBlock successBlock,
      RecordErrorBlock errorBlock) = 0;

  // insertIncomingMessage:targetId:senderUserId:receivedStatus:content:
  // Stores a local message as if received; returns its record, or null when the insert failed.
  virtual std::shared_ptr<KXMessage> insertIncomingMessage(
      int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
      int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) = 0;

  // Hands a local record (possibly null) to the application's receive listeners.
  virtual void onReceiveFakeMessage(std::shared_ptr<KXMessage> message) = 0;

  // After this the host decodes received messages of the type's object name into that type.
  virtual void registerMessageType(const KXMessageContentType& type) = 0;

  // Delivery the session API reports truthfully. Optional: a host that overrides neither keeps
  // every send's outcome as sent or failed, and lines cannot be sent again under their id.
  //
  // Whether the error code of a send's error closure means that the message was written and
  // may still arrive (the link went before the server confirmed it): the app shows the line as
  // unconfirmed, not as failed. No code does by default.
  virtual bool isUnconfirmedError(int64_t errorCode) const;
  // Sends the message `messageId` that this host sent before (failed or unconfirmed) once more
  // under its original id, so that a receiver takes it once whatever became of the earlier
  // copies; the closures report as sendMessage()'s do. False when the host cannot (no such
  // message, or no support): nothing is sent and no closure runs. False by default.
  virtual bool resendMessage(int64_t messageId, SuccessBlock success, ErrorBlock error);
  // Optional: the app has read the conversation `targetId` of `conversationType` up to its
  // newest line. A host that shares read state tells the account's other devices (which hand it
  // to their modules' notifyConversationRead()) and may tell the other side. Nothing by default.
  virtual void markConversationRead(int32_t conversationType, const KXString& targetId);
  // Optional: the customer is typing in the conversation `targetId` (`typing`), or stopped
  // (false). A host that carries chat states tells the other side; nothing is stored. The
  // library throttles the calls. Nothing by default.
  virtual void sendTypingStatus(int32_t conversationType, const KXString& targetId, bool typing);

  // Optional: files. A host that overrides none carries no files (maxFileBytes() 0), and the
  // session API refuses them before anything is sent.
  //
  // How far a transfer got, in bytes; called on any thread, often: the library thins it out.
  using ProgressBlock = std::function<void(uint64_t done, uint64_t total)>;
  // A download's end: the path of the saved file ("" on failure), or the host's error code.
  using DownloadBlock = std::function<void(const std::string& path, int64_t errorCode)>;
  // The largest file this host can send now, in bytes (its server's upload limit); 0: none.
  virtual uint64_t maxFileBytes() const;
  // Uploads content->localPath() (name, type and size set, url empty) to where the other side
  // can fetch it, sets the url and sends the content as sendMessage() would. Exactly one of
  // `success` and `error` runs, once, also when `cancel` was set (the upload stops; an error
  // closure with the host's code). By default `error` runs at once with code -1.
  virtual void sendFileMessage(int32_t conversationType, const KXString& targetId,
                               std::shared_ptr<KXFileMessage> content,
                               std::shared_ptr<const std::atomic<bool>> cancel,
                               ProgressBlock progress, SuccessBlock success, ErrorBlock error);
  // Fetches a received file (content->url()) into the host's file cache, under a name made
  // from content->name() that stays inside the cache; `done` runs once (also after `cancel`).
  // By default `done` runs at once with code -1.
  virtual void downloadFile(std::shared_ptr<const KXFileMessage> content,
                            std::shared_ptr<const std::atomic<bool>> cancel, ProgressBlock progress,
                            DownloadBlock done);
};

}  // namespace quor
