// The fixture of client tests: a fresh recording host, a client reset to its initial state, and
// an application that records every callback with the thread it ran on.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "HostFixture.h"
#include "QuorCustomerService/QuorCustomerService.h"

namespace quor::test {

class ClientFixture : public HostFixture {
 public:
  void SetUp() override {
    HostFixture::SetUp();
    client().setCustomerServiceSessions({});
    client().setKefuId(std::nullopt);
    client().setCurrentCSModeType(KXCSModeNoService);
    client().setHandShakeMessageSendTime(0);
  }

  static KXCustomerServiceClient& client() {
    return KXCustomerServiceClient::sharedCustomerServiceClient();
  }

  // Records "name(args)@thread"; a mode callback also records the mode the client holds then.
  void record(const std::string& event) {
    std::lock_guard<std::mutex> lock(eventsMutex_);
    events_.push_back(event + "@" + currentThreadName());
  }
  std::vector<std::string> events() {
    std::lock_guard<std::mutex> lock(eventsMutex_);
    return events_;
  }
  std::vector<std::string> takeEvents() {
    std::lock_guard<std::mutex> lock(eventsMutex_);
    return std::exchange(events_, {});
  }

  // Starts a service for `kefuId` with all six callbacks recording.
  void start(const std::string& kefuId, std::shared_ptr<KXCustomerServiceInfo> info = nullptr) {
    client().startCustomerService(
        kefuId, std::move(info),
        [this](std::shared_ptr<KXCustomerServiceConfig> config) {
          lastConfig = config;
          record("success");
        },
        [this](int64_t code, const std::string& text) {
          record("error(" + std::to_string(code) + "," + text + ")");
        },
        [this](KXCSModeType mode) {
          record("mode(" + std::to_string(mode) +
                 ") current=" + std::to_string(client().currentCSModeType()));
        },
        [this](const KXString& dialogId) {
          record("pullEvaluation(" + dialogId.value_or("null") + ")");
        },
        [this](const KXCustomerServiceGroupList& groups) {
          std::string ids;
          for (const auto& group : *groups)
            ids += (ids.empty() ? "" : ",") + group->groupId().value_or("");
          record("selectGroup(" + ids + ")");
        },
        [this](const std::string& text) { record("quit(" + text + ")"); });
  }

  // Starts `kefuId`, confirms the handshake at time 100 and delivers a response with `data`.
  void startAndAnswer(const std::string& kefuId, const char* data, int64_t sentTime = 100) {
    start(kefuId);
    host->confirmSend(host->sends().size() - 1, sentTime);
    deliver<KXCSHandShakeResponseMessage>(
        kefuId, std::string(R"({"status":1,"data":)") + data + "}", sentTime);
  }

  // Delivers a received message of type T with `body` from desk `kefuId` on a "delivery" thread;
  // returns the client's answer.
  template <class T>
  bool deliver(const std::string& kefuId, const std::string& body, int64_t sentTime = 200,
               int32_t conversationType = 5) {
    bool held = false;
    runOnThread("delivery", [&] {
      auto content = std::make_shared<T>();
      content->decodeWithData(body);
      held = client().onCustomerServiceMessageReceived(
          receivedMessage(content, kefuId, sentTime, conversationType));
    });
    return held;
  }

  std::shared_ptr<KXCustomerServiceSession> session(const std::string& kefuId) {
    const auto sessions = client().customerServiceSessions();
    const auto it = sessions.find(kefuId);
    return it == sessions.end() ? nullptr : it->second;
  }

  // The sends so far as "objectName body" lines.
  std::vector<std::string> sent() const {
    std::vector<std::string> lines;
    for (const auto& send : host->sends())
      lines.push_back(send.objectName + " " + send.json.dump());
    return lines;
  }

  std::shared_ptr<KXCustomerServiceConfig> lastConfig;

 private:
  std::mutex eventsMutex_;
  std::vector<std::string> events_;
};

}  // namespace quor::test
