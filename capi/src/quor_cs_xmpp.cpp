// QuorXmppHost in C: the whole stack for an app without an IM core of its own.
#include "KXJsonMembers.h"
#include "QuorCApi.h"
#include "QuorXmppHost/QuorPushNotification.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "QuorXmppHost/QuorXmppHost.h"

// The header's XMPP enumerators are the host's own values.
QUOR_CS_SAME(QUOR_CS_XMPP_CONNECTED, quor::QuorXmppConnectionStatus::Connected);
QUOR_CS_SAME(QUOR_CS_XMPP_CONNECTING, quor::QuorXmppConnectionStatus::Connecting);
QUOR_CS_SAME(QUOR_CS_XMPP_DISCONNECTED, quor::QuorXmppConnectionStatus::Disconnected);
QUOR_CS_SAME(QUOR_CS_XMPP_SIGNED_OUT, quor::QuorXmppConnectionStatus::SignedOut);
QUOR_CS_SAME(QUOR_CS_XMPP_REPLACED, quor::QuorXmppConnectionStatus::Replaced);
QUOR_CS_SAME(QUOR_CS_XMPP_REFUSED, quor::QuorXmppConnectionStatus::Refused);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_NOT_ONLINE, quor::QuorXmppErrorNotOnline);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_CONNECTION_LOST, quor::QuorXmppErrorConnectionLost);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_TIMEOUT, quor::QuorXmppErrorTimeout);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_REJECTED, quor::QuorXmppErrorRejected);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_NO_SUCH_RECIPIENT, quor::QuorXmppErrorNoSuchRecipient);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_NOT_SENDABLE, quor::QuorXmppErrorNotSendable);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_STOPPED, quor::QuorXmppErrorStopped);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_TOO_LARGE, quor::QuorXmppErrorTooLarge);
QUOR_CS_SAME(QUOR_CS_XMPP_ERROR_DOWNLOAD_FAILED, quor::QuorXmppErrorDownloadFailed);
QUOR_CS_SAME(QUOR_CS_APP_FOREGROUND, quor::QuorAppState::Foreground);
QUOR_CS_SAME(QUOR_CS_APP_BACKGROUND, quor::QuorAppState::Background);
QUOR_CS_SAME(QUOR_CS_APP_SUSPENDED, quor::QuorAppState::Suspended);

struct quor_cs_xmpp_host {
  std::shared_ptr<quor::QuorXmppHost> host;
  bool connected = false;
};

namespace {

using namespace quor;

// The options object of the header, read into the host's options; false with a reason.
bool optionsOf(const KXDictionary& json, QuorXmppHost::Options& options, std::string& problem) {
  QuorXmppOptions& c = options.connection;
  c.jid = KXJsonMembers::text(json, "jid");
  c.password = KXJsonMembers::text(json, "password");
  if (c.jid.empty() || c.password.empty()) {
    problem = "\"jid\" and \"password\" are required";
    return false;
  }
  c.server = KXJsonMembers::text(json, "server");
  c.resource = KXJsonMembers::text(json, "resource");
  if (const auto port = json.find("port"); port != json.end()) {
    if (!port->is_number_integer() || port->get<int64_t>() < 1 || port->get<int64_t>() > 65535) {
      problem = "\"port\" takes a number from 1 to 65535";
      return false;
    }
    c.port = static_cast<uint16_t>(port->get<int64_t>());
  }
  const std::string tls = KXJsonMembers::text(json, "tls");
  if (tls == "required") {
    c.tls = QuorXmppOptions::Tls::Required;
  } else if (tls == "disabled") {
    c.tls = QuorXmppOptions::Tls::Disabled;
  } else if (!tls.empty() && tls != "whenOffered") {
    problem = "\"tls\" takes whenOffered, required or disabled";
    return false;
  }
  if (const auto trust = json.find("trustSelfSignedCertificate"); trust != json.end())
    c.trustSelfSignedCertificate = trust->is_boolean() && trust->get<bool>();
  if (!KXJsonMembers::text(json, "storePath").empty())
    options.storePath = KXJsonMembers::text(json, "storePath");
  options.deskDomain = KXJsonMembers::text(json, "deskDomain");
  options.fileCacheDirectory = KXJsonMembers::text(json, "fileCacheDirectory");
  if (const auto push = json.find("push"); push != json.end()) {
    if (!push->is_object()) {
      problem = "\"push\" takes an object: {\"service\", \"node\", \"token\", \"secret\"}";
      return false;
    }
    c.push = {KXJsonMembers::text(*push, "service"), KXJsonMembers::text(*push, "node"),
              KXJsonMembers::text(*push, "token"), KXJsonMembers::text(*push, "secret")};
  }
  return true;
}

std::string textOr(const char* text) { return text ? std::string(text) : std::string(); }

const char* statusName(QuorDeliveryStatus status) {
  switch (status) {
    case QuorDeliveryStatus::Pending:
      return "pending";
    case QuorDeliveryStatus::Sent:
      return "sent";
    case QuorDeliveryStatus::Failed:
      return "failed";
    case QuorDeliveryStatus::Unconfirmed:
      return "unconfirmed";
  }
  return "?";
}

}  // namespace

extern "C" {

quor_cs_xmpp_host* quor_cs_xmpp_host_create(const char* options_json, char** error) {
  capi::give(error, std::nullopt);
  return capi::guardedValue<quor_cs_xmpp_host*>(nullptr, [&]() -> quor_cs_xmpp_host* {
    const auto json = capi::parsed(options_json);
    if (!json || !json->is_object()) {
      capi::give(error, std::string("the options are not a JSON object"));
      return nullptr;
    }
    QuorXmppHost::Options options;
    std::string problem;
    if (!optionsOf(*json, options, problem)) {
      capi::give(error, problem);
      return nullptr;
    }
    auto host = QuorXmppHost::create(options, &problem);
    if (!host) {
      capi::give(error, problem);
      return nullptr;
    }
    auto made = std::make_unique<quor_cs_xmpp_host>();
    made->host = std::move(host);
    return made.release();
  });
}

void quor_cs_xmpp_host_destroy(quor_cs_xmpp_host* host) {
  if (!host) return;
  capi::guarded([host] {
    if (host->connected) {
      host->host->logout();
      QuorHostBase::uninstall();
      capi::keepAppDispatcher();
    }
    return QUOR_CS_OK;
  });
  capi::releaseHost(host);
  delete host;
}

int quor_cs_xmpp_host_connect(quor_cs_xmpp_host* host) {
  if (!host) return QUOR_CS_ERROR_ARGUMENT;
  return capi::guarded([host] {
    if (!capi::claimHost(host)) return QUOR_CS_ERROR_STATE;
    if (!host->connected) {
      host->host->install();
      capi::keepAppDispatcher();
      host->host->loadExtensionModule();
      host->connected = true;
    }
    host->host->connect();
    return QUOR_CS_OK;
  });
}

void quor_cs_xmpp_host_logout(quor_cs_xmpp_host* host) {
  if (!host) return;
  capi::guarded([host] {
    host->host->logout();
    return QUOR_CS_OK;
  });
}

int quor_cs_xmpp_host_wait_online(quor_cs_xmpp_host* host, int64_t timeout_ms) {
  if (!host) return 0;
  return capi::guarded([&] {
    return host->host->waitUntilOnline(std::chrono::milliseconds(timeout_ms > 0 ? timeout_ms : 0))
               ? 1
               : 0;
  });
}

int quor_cs_xmpp_host_status(const quor_cs_xmpp_host* host) {
  return host ? static_cast<int>(host->host->connectionStatus()) : -1;
}

int quor_cs_xmpp_host_set_app_state(quor_cs_xmpp_host* host, int state) {
  if (!host || state < QUOR_CS_APP_FOREGROUND || state > QUOR_CS_APP_SUSPENDED) {
    return QUOR_CS_ERROR_ARGUMENT;
  }
  return capi::guarded([&] {
    host->host->setAppState(static_cast<QuorAppState>(state));
    return QUOR_CS_OK;
  });
}

int quor_cs_xmpp_host_app_state(const quor_cs_xmpp_host* host) {
  return host ? static_cast<int>(host->host->appState()) : -1;
}

int quor_cs_xmpp_host_set_push(quor_cs_xmpp_host* host, const char* service, const char* node,
                               const char* token, const char* secret) {
  if (!host) return QUOR_CS_ERROR_ARGUMENT;
  return capi::guarded([&] {
    host->host->setPush({textOr(service), textOr(node), textOr(token), textOr(secret)});
    return QUOR_CS_OK;
  });
}

int quor_cs_push_notification_read(const char* json, char** desk_id, int64_t* unread,
                                   char** account) {
  capi::give(desk_id, std::nullopt);
  capi::give(account, std::nullopt);
  if (!json || !desk_id) return QUOR_CS_ERROR_ARGUMENT;
  return capi::guarded([&] {
    QuorPushNotification notification;
    if (!QuorPushNotification::fromJson(json, &notification)) return QUOR_CS_ERROR_ARGUMENT;
    capi::give(desk_id, notification.deskId);
    capi::give(account, notification.account);
    if (unread) *unread = notification.unread;
    return QUOR_CS_OK;
  });
}

void quor_cs_xmpp_host_settle(quor_cs_xmpp_host* host, int64_t quiet_ms) {
  if (!host) return;
  capi::guarded([&] {
    const auto quiet = std::chrono::milliseconds(quiet_ms > 0 ? quiet_ms : 0);
    for (;;) {
      host->host->waitForDelivery();
      host->host->mainRunLoop().runUntilIdle();
      if (!host->host->mainRunLoop().runOnce(quiet)) return QUOR_CS_OK;
    }
  });
}

int quor_cs_xmpp_host_send_text(quor_cs_xmpp_host* host, const char* desk_id, const char* text) {
  if (!host || !desk_id || !text) return QUOR_CS_ERROR_ARGUMENT;
  return capi::guarded([&] {
    host->host->sendMessage(KXConversationTypeCustomerService, std::string(desk_id),
                            KXTextMessage::messageWithContent(std::string(text)), std::nullopt,
                            std::nullopt, nullptr, nullptr);
    return QUOR_CS_OK;
  });
}

int quor_cs_xmpp_host_last_service_state(quor_cs_xmpp_host* host, const char* desk_id) {
  if (!host || !desk_id) return QUOR_CS_ERROR_ARGUMENT;
  return capi::guarded(
      [&] { return static_cast<int>(host->host->lastServiceState(std::string(desk_id))); });
}

int quor_cs_xmpp_host_history(quor_cs_xmpp_host* host, const char* desk_id,
                              int64_t before_message_id, int count, char** history_json) {
  capi::give(history_json, std::nullopt);
  if (!host || !desk_id || !history_json || count < 0) return QUOR_CS_ERROR_ARGUMENT;
  return capi::guarded([&] {
    KXDictionary entries = KXDictionary::array();
    for (const auto& entry : host->host->history(desk_id, before_message_id, count)) {
      const KXMessage& message = *entry.message;
      KXDictionary json = {{"messageId", message.messageId()},
                           {"objectName", message.objectName().value_or("")},
                           {"direction", message.messageDirection()},
                           {"sentTime", message.sentTime()},
                           {"status", statusName(entry.status)}};
      const KXMessageContent* content = message.content().get();
      if (const auto* text = dynamic_cast<const KXTextMessage*>(content)) {
        json["text"] = text->content().value_or("");
      } else if (const auto* notice =
                     dynamic_cast<const KXInformationNotificationMessage*>(content)) {
        json["text"] = notice->message().value_or("");
      } else if (const auto* invitation = dynamic_cast<const KXCSPullLeaveMessage*>(content)) {
        json["text"] = invitation->content().value_or("");
      }
      entries.push_back(std::move(json));
    }
    capi::give(history_json, entries.dump(-1, ' ', false, KXDictionary::error_handler_t::replace));
    return QUOR_CS_OK;
  });
}

}  // extern "C"
