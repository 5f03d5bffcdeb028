// A small application built against an installed copy of the library.
#include <QuorCustomerService/QuorCustomerService.h>

#include <cstdio>

namespace {

// The least host that can carry a start: it counts what it is asked to send.
class CountingHost : public quor::KXCoreClient {
 public:
  int sends = 0;
  std::shared_ptr<quor::KXMessage> sendMessage(int32_t, const quor::KXString&,
                                               std::shared_ptr<quor::KXMessageContent>,
                                               const quor::KXString&, const quor::KXString&,
                                               SuccessBlock, ErrorBlock) override {
    ++sends;
    return nullptr;
  }
  std::shared_ptr<quor::KXMessage> sendMessageSuccessBlock(
      int32_t, const quor::KXString&, std::shared_ptr<quor::KXMessageContent> content,
      const quor::KXString&, const quor::KXString&, RecordSuccessBlock, RecordErrorBlock) override {
    sends += content && content->encode() ? 1 : 0;
    return nullptr;
  }
  std::shared_ptr<quor::KXMessage> insertIncomingMessage(
      int32_t, const quor::KXString&, const quor::KXString&, int32_t,
      std::shared_ptr<quor::KXMessageContent>) override {
    return nullptr;
  }
  void onReceiveFakeMessage(std::shared_ptr<quor::KXMessage>) override {}
  void registerMessageType(const quor::KXMessageContentType&) override { ++registrations; }
  int registrations = 0;
};

}  // namespace

int main() {
  auto host = std::make_shared<CountingHost>();
  quor::KXCoreClient::setSharedCoreClient(host);
  quor::QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  auto info = std::make_shared<quor::KXCustomerServiceInfo>();
  info->setUserId("consumer");
  quor::KXCustomerServiceClient::sharedCustomerServiceClient().startCustomerService(
      "desk", info, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  std::printf("QuorCustomerService %s (%.1f): %d registrations, %d sends\n",
              QuorCustomerServiceVersionString, QuorCustomerServiceVersionNumber,
              host->registrations, host->sends);
  return host->registrations == 10 && host->sends == 1 ? 0 : 1;
}
