#pragma once

#include <cstdint>
#include <functional>
#include <memory>

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
};

}  // namespace quor
