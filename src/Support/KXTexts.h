// The user-facing texts the library itself supplies, written once.
#pragma once

namespace quor {

struct KXTexts {
  // A handshake that could not be sent, was refused without a text, or got no answer in time.
  static constexpr const char* kConnectFailed = "连接客服失败!";
  // The customer is blocked, when the desk gives no text of its own.
  static constexpr const char* kBlocked = "你已被拉黑";
  // The desk ended the service without a text of its own.
  static constexpr const char* kServiceEnded = "客服会话已结束!";
};

}  // namespace quor
