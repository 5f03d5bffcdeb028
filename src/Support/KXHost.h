// The library's calls into the host. Each fetches the installed implementation afresh and is
// guarded: without a host installed a call does nothing, and a host that throws is logged and
// treated as having returned nothing, so its exception never unwinds through the library.
#pragma once

#include <memory>

#include "QuorCustomerService/Host/KXCoreClient.h"

namespace quor {

class KXHost {
 public:
  // Sends a content to a desk in the customer-service conversation, without push texts.
  static void send(const KXString& kefuId, std::shared_ptr<KXMessageContent> content,
                   KXCoreClient::SuccessBlock success = nullptr,
                   KXCoreClient::ErrorBlock error = nullptr);
  // The same with the variant whose closures receive the message record (the handshake).
  static void sendReportingRecords(const KXString& kefuId,
                                   std::shared_ptr<KXMessageContent> content,
                                   KXCoreClient::RecordSuccessBlock success,
                                   KXCoreClient::RecordErrorBlock error);
  // The host's resendMessage() and isUnconfirmedError(); false without a host or when it threw.
  static bool resend(int64_t messageId, KXCoreClient::SuccessBlock success,
                     KXCoreClient::ErrorBlock error);
  static bool isUnconfirmed(int64_t errorCode);
  // The host's markConversationRead() for the desk's conversation.
  static void markRead(const std::string& kefuId);
  // The host's sendTypingStatus() for the desk's conversation.
  static void sendTyping(const std::string& kefuId, bool typing);
  // The host's maxFileBytes(); 0 without a host or when it threw.
  static uint64_t maxFileBytes();
  // The host's sendFileMessage() to the desk; a host that threw or is missing gets `error`
  // called with -1, so the line never stays Sending.
  static void sendFile(const std::string& kefuId, std::shared_ptr<KXFileMessage> content,
                       std::shared_ptr<const std::atomic<bool>> cancel,
                       KXCoreClient::ProgressBlock progress, KXCoreClient::SuccessBlock success,
                       KXCoreClient::ErrorBlock error);
  // The host's downloadFile(); `done` with -1 as above.
  static void download(std::shared_ptr<const KXFileMessage> content,
                       std::shared_ptr<const std::atomic<bool>> cancel,
                       KXCoreClient::ProgressBlock progress, KXCoreClient::DownloadBlock done);
  // Stores a local message of the desk's conversation as received from the desk, read; returns
  // its record, or null.
  static std::shared_ptr<KXMessage> insertIncoming(const KXString& kefuId,
                                                   std::shared_ptr<KXMessageContent> content);
  // Hands a local record (possibly null) to the application's receive listeners.
  static void receiveFake(std::shared_ptr<KXMessage> message);
  // Registers a type; false when the host threw.
  static bool registerType(const KXMessageContentType& type);
  // The host's local setting csSuspendWhenLeave; false without settings.
  static bool suspendWhenLeave();
};

}  // namespace quor
