#pragma once

#include <cstdint>
#include <string>

namespace quor {

// One push notification as the push service (quor-cs-push) hands it on to the deployer's relay
// and as the relay passes it to the device (FCM data, an APNs payload's custom key): which
// account and device it is for, which desk wrote, and how many of the desk's messages came since
// the app last went to the background. The app reads it without a link to say "Shop answered
// (2)" and to open that desk's conversation. A plain value; safe on any thread.
//
// Its JSON, one object (unknown members are ignored, so later versions may add some):
//   {"account":"mei@example.com","node":"n1","token":"T","desk":"shop",
//    "deskJid":"shop@example.com","unread":2,"since":1764140000000}
struct QuorPushNotification {
  std::string account;  // the customer's bare JID
  std::string node;     // the device's node at the push service
  std::string token;    // the device's token (FCM, APNs) the host registered
  std::string deskId;   // the desk's id, as the session API names it
  std::string deskJid;  // the desk's bare JID
  int64_t unread = 0;   // the desk's messages since `since`, this one included
  int64_t since = 0;    // when the app went to the background, ms since the epoch

  std::string toJson() const;
  // Reads a notification's JSON: false, leaving `out` as it was, for anything that is not such
  // an object (not JSON, not an object, no desk, a member of the wrong type). Cost is linear in
  // the text; deep nesting is refused, never followed.
  static bool fromJson(const std::string& json, QuorPushNotification* out);

  // The publish options (XEP-0357) the host registers with the server and the push service reads
  // back from every notification.
  static constexpr const char* kTokenOption = "token";
  static constexpr const char* kAccountOption = "account";
  static constexpr const char* kSinceOption = "since";
  static constexpr const char* kSecretOption = "secret";
};

}  // namespace quor
