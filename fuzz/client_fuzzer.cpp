// Drives the client through a fuzzer-chosen sequence of application operations and received
// control messages (bodies from the fuzzer) on the recording host, draining the main queue
// between steps.
#include <fuzzer/FuzzedDataProvider.h>

#include "KXJsonTree.h"
#include "QuorCustomerService/QuorCustomerService.h"
#include "support/RecordingHost.h"

namespace {

using namespace quor;
using quor::test::RecordingHost;

template <class T>
std::shared_ptr<KXMessage> received(FuzzedDataProvider& in, const std::string& desk) {
  auto content = std::make_shared<T>();
  content->decodeWithData(in.ConsumeRandomLengthString(1 << 20));
  return test::receivedMessage(content, desk, in.ConsumeIntegralInRange<int64_t>(-1, 3),
                               in.ConsumeBool() ? 5 : 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  auto host = RecordingHost::install();
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  const auto noop = [](auto&&...) {};
  for (int step = 0; step < 64 && in.remaining_bytes() > 0; ++step) {
    const std::string desk = "desk-" + std::to_string(in.ConsumeIntegralInRange(0, 2));
    const KXString text =
        in.ConsumeBool() ? KXString(in.ConsumeRandomLengthString(16)) : std::nullopt;
    switch (in.ConsumeIntegralInRange(0, 17)) {
      case 0:
        client.startCustomerService(desk, std::make_shared<KXCustomerServiceInfo>(), noop, noop,
                                    noop, noop, noop, noop);
        break;
      case 1:
        client.stopCustomerService(desk);
        break;
      case 2:
        client.switchToHumanMode(desk);
        break;
      case 3:
        client.selectCustomerServiceGroup(desk, text);
        break;
      case 4:
        client.evaluateCustomerService(desk, text, in.ConsumeBool(), text);
        break;
      case 5:
        client.evaluateCustomerService(desk, text, in.ConsumeIntegral<int32_t>(), text,
                                       in.ConsumeIntegral<uint64_t>());
        break;
      case 6:
        // An extra from the fuzzer: many keys, deep nesting, repeated keys.
        client.evaluateCustomerService(
            desk, text, 3, text, 1, text,
            std::make_shared<const KXDictionary>(
                KXJsonTree::parse(in.ConsumeRandomLengthString(1 << 20), 1 << 20)
                    .value_or(KXDictionary::object())));
        break;
      case 7:
        client.getHumanEvaluateCustomerServiceConfig(noop);
        break;
      case 8:
        client.leaveMessageCustomerService(desk, nullptr, noop, noop);
        break;
      case 9:
        client.notifyCustomerService(desk, text, in.ConsumeBool());
        break;
      case 10: {
        const auto sends = host->sends().size();
        if (sends > 0) {
          const auto index = in.ConsumeIntegralInRange<std::size_t>(0, sends - 1);
          if (in.ConsumeBool()) {
            host->confirmSend(index, in.ConsumeIntegralInRange<int64_t>(0, 3));
          } else {
            host->failSend(index, in.ConsumeIntegral<int64_t>());
          }
        }
        break;
      }
      case 11:
        client.onCustomerServiceMessageReceived(received<KXCSHandShakeResponseMessage>(in, desk));
        break;
      case 12:
        client.onCustomerServiceMessageReceived(received<KXCSChangeModeResponseMessage>(in, desk));
        break;
      case 13:
        client.onCustomerServiceMessageReceived(received<KXCSTerminateMessage>(in, desk));
        break;
      case 14:
        client.onCustomerServiceMessageReceived(received<KXCSUpdateMessage>(in, desk));
        break;
      case 15:
        client.onCustomerServiceMessageReceived(received<KXCSPullEvaluateMessage>(in, desk));
        break;
      case 16:
        host->setInsertFails(in.ConsumeBool());
        break;
      default:
        break;
    }
    host->drainMain();
  }
  RecordingHost::uninstall();
  return 0;
}
