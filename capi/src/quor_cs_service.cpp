// The session API in C: a service handle owns its KXCSService and a C++ observer that turns
// each report into the C structs and calls the app's function pointers.
#include <vector>

#include "QuorCApi.h"

namespace quor::capi {
namespace {

// The header's enumerators are the C++ enums' values: checked here, so that the two never drift
// (the bindings are checked against the header by tests/check-enum-lists.py).
QUOR_CS_SAME(QUOR_CS_STATE_NOT_STARTED, KXCSServiceState::NotStarted);
QUOR_CS_SAME(QUOR_CS_STATE_CONNECTING, KXCSServiceState::Connecting);
QUOR_CS_SAME(QUOR_CS_STATE_CONNECTED, KXCSServiceState::Connected);
QUOR_CS_SAME(QUOR_CS_STATE_ROBOT, KXCSServiceState::Robot);
QUOR_CS_SAME(QUOR_CS_STATE_CHOOSING_GROUP, KXCSServiceState::ChoosingGroup);
QUOR_CS_SAME(QUOR_CS_STATE_WAITING_FOR_AGENT, KXCSServiceState::WaitingForAgent);
QUOR_CS_SAME(QUOR_CS_STATE_AGENT, KXCSServiceState::Agent);
QUOR_CS_SAME(QUOR_CS_STATE_ENDED, KXCSServiceState::Ended);
QUOR_CS_SAME(QUOR_CS_STATE_FAILED, KXCSServiceState::Failed);
QUOR_CS_SAME(QUOR_CS_REASON_NONE, KXCSServiceReason::None);
QUOR_CS_SAME(QUOR_CS_REASON_CONNECTION_FAILED, KXCSServiceReason::ConnectionFailed);
QUOR_CS_SAME(QUOR_CS_REASON_HANDSHAKE_REFUSED, KXCSServiceReason::HandshakeRefused);
QUOR_CS_SAME(QUOR_CS_REASON_TIMEOUT, KXCSServiceReason::Timeout);
QUOR_CS_SAME(QUOR_CS_REASON_DESK_ENDED, KXCSServiceReason::DeskEnded);
QUOR_CS_SAME(QUOR_CS_REASON_BLOCKED, KXCSServiceReason::Blocked);
QUOR_CS_SAME(QUOR_CS_REASON_NO_AGENT_AVAILABLE, KXCSServiceReason::NoAgentAvailable);
QUOR_CS_SAME(QUOR_CS_REASON_STOPPED_BY_APP, KXCSServiceReason::StoppedByApp);
QUOR_CS_SAME(QUOR_CS_AUTHOR_CUSTOMER, KXCSMessageAuthor::Customer);
QUOR_CS_SAME(QUOR_CS_AUTHOR_ROBOT, KXCSMessageAuthor::Robot);
QUOR_CS_SAME(QUOR_CS_AUTHOR_AGENT, KXCSMessageAuthor::Agent);
QUOR_CS_SAME(QUOR_CS_AUTHOR_NOTICE, KXCSMessageAuthor::Notice);
QUOR_CS_SAME(QUOR_CS_AUTHOR_LEAVE_MESSAGE_INVITATION, KXCSMessageAuthor::LeaveMessageInvitation);
QUOR_CS_SAME(QUOR_CS_DELIVERY_RECEIVED, KXCSDelivery::Received);
QUOR_CS_SAME(QUOR_CS_DELIVERY_SENDING, KXCSDelivery::Sending);
QUOR_CS_SAME(QUOR_CS_DELIVERY_SENT, KXCSDelivery::Sent);
QUOR_CS_SAME(QUOR_CS_DELIVERY_FAILED, KXCSDelivery::Failed);
QUOR_CS_SAME(QUOR_CS_DELIVERY_UNCONFIRMED, KXCSDelivery::Unconfirmed);
QUOR_CS_SAME(QUOR_CS_DELIVERY_READ, KXCSDelivery::Read);
QUOR_CS_SAME(QUOR_CS_OK, KXCSServiceResult::Done);
QUOR_CS_SAME(QUOR_CS_ALREADY_STARTED, KXCSServiceResult::AlreadyStarted);
QUOR_CS_SAME(QUOR_CS_NOT_CONNECTED, KXCSServiceResult::NotConnected);
QUOR_CS_SAME(QUOR_CS_AGENT_NOT_OFFERED, KXCSServiceResult::AgentNotOffered);
QUOR_CS_SAME(QUOR_CS_ALREADY_WITH_AGENT, KXCSServiceResult::AlreadyWithAgent);
QUOR_CS_SAME(QUOR_CS_BLOCKED, KXCSServiceResult::Blocked);
QUOR_CS_SAME(QUOR_CS_NOT_CHOOSING_GROUP, KXCSServiceResult::NotChoosingGroup);
QUOR_CS_SAME(QUOR_CS_GROUP_NOT_OFFERED, KXCSServiceResult::GroupNotOffered);
QUOR_CS_SAME(QUOR_CS_RATING_NOT_OFFERED, KXCSServiceResult::RatingNotOffered);
QUOR_CS_SAME(QUOR_CS_NO_DIALOG_TO_RATE, KXCSServiceResult::NoDialogToRate);
QUOR_CS_SAME(QUOR_CS_STARS_NOT_OFFERED, KXCSServiceResult::StarsNotOffered);
QUOR_CS_SAME(QUOR_CS_INVALID_FORM, KXCSServiceResult::InvalidForm);
QUOR_CS_SAME(QUOR_CS_EMPTY_TEXT, KXCSServiceResult::EmptyText);
QUOR_CS_SAME(QUOR_CS_INVALID_TEXT, KXCSServiceResult::InvalidText);
QUOR_CS_SAME(QUOR_CS_TOO_LARGE, KXCSServiceResult::TooLarge);
QUOR_CS_SAME(QUOR_CS_NOT_RETRYABLE, KXCSServiceResult::NotRetryable);
QUOR_CS_SAME(QUOR_CS_NO_SUCH_FILE, KXCSServiceResult::NoSuchFile);

// A status with the storage its C view points into.
struct StatusView {
  explicit StatusView(const KXCSServiceStatus& status) {
    text = status.text;
    // The JSON object the C header describes: the C++ fields' names.
    if (status.config) {
      config = status.config->configuration().toJson().dump(-1, ' ', false,
                                                            KXDictionary::error_handler_t::replace);
    }
    if (status.groups) {
      for (const auto& group : *status.groups) {
        if (!group) continue;
        ids.push_back(group->groupId().value_or(""));
        names.push_back(group->name().value_or(""));
        online.push_back(group->online());
      }
    }
    for (std::size_t i = 0; i < ids.size(); ++i)
      groups.push_back({ids[i].c_str(), names[i].c_str(), online[i] ? 1 : 0});
    view.size = sizeof view;
    view.state = static_cast<int>(status.state);
    view.reason = static_cast<int>(status.reason);
    view.can_ask_for_agent = status.canAskForAgent ? 1 : 0;
    view.code = status.code;
    view.text = text.c_str();
    view.group_count = groups.size();
    view.groups = groups.empty() ? nullptr : groups.data();
    view.config_json = config ? config->c_str() : nullptr;
  }
  StatusView(const StatusView&) = delete;
  StatusView& operator=(const StatusView&) = delete;

  std::string text;
  std::optional<std::string> config;
  std::vector<std::string> ids, names;
  std::vector<bool> online;
  std::vector<quor_cs_group> groups;
  quor_cs_status view{};
};

quor_cs_file fileView(const KXCSFile& file) {
  quor_cs_file view{};
  view.name = file.name.c_str();
  view.mime_type = file.mimeType.c_str();
  view.size = file.size;
  view.width = file.width;
  view.height = file.height;
  view.url = file.url.c_str();
  view.local_path = file.localPath.c_str();
  return view;
}

// A line as the C callbacks see it; `file` points into `fileSpace` (the caller's).
quor_cs_message messageView(const KXCSConversationMessage& line, quor_cs_file* fileSpace) {
  quor_cs_message view{};
  if (line.file) {
    *fileSpace = fileView(*line.file);
    view.file = fileSpace;
  }
  view.sequence = line.sequence;
  view.author = static_cast<int>(line.author);
  view.delivery = static_cast<int>(line.delivery);
  view.text = line.text.c_str();
  view.sender_name = line.senderName.c_str();
  view.message_id = line.messageId;
  view.sent_time = line.sentTime;
  view.error_code = line.errorCode;
  return view;
}

// The app's function pointers behind the C++ observer interface. Runs on the main thread. A
// callback may destroy its own service: nothing is called after that, and `release` comes once
// the callback has returned (a closure of the library may hold several calls).
class CObserver : public KXCSServiceObserver {
 public:
  explicit CObserver(const quor_cs_observer& functions) : f_(functions) {}

  void onStateChanged(const KXCSServiceStatus& status) override {
    call(f_.on_state_changed, [&](auto function) {
      const StatusView view(status);
      function(f_.user, &view.view);
    });
  }
  void onRatingRequested(const KXString& dialogId) override {
    call(f_.on_rating_requested,
         [&](auto function) { function(f_.user, dialogId ? dialogId->c_str() : nullptr); });
  }
  void onEvaluationSettings(const KXDictionary& settings) override {
    call(f_.on_evaluation_settings, [&](auto function) {
      const std::string json =
          settings.dump(-1, ' ', false, KXDictionary::error_handler_t::replace);
      function(f_.user, json.c_str());
    });
  }
  void onMessageLeft(bool sent, int64_t value) override {
    call(f_.on_message_left, [&](auto function) { function(f_.user, sent ? 1 : 0, value); });
  }
  void onMessage(const KXCSConversationMessage& line) override {
    call(f_.on_message, [&](auto function) {
      quor_cs_file file;
      const quor_cs_message view = messageView(line, &file);
      function(f_.user, &view);
    });
  }
  void onMessageDelivery(const KXCSConversationMessage& line) override {
    call(f_.on_message_delivery, [&](auto function) {
      quor_cs_file file;
      const quor_cs_message view = messageView(line, &file);
      function(f_.user, &view);
    });
  }
  void onUnreadCountChanged(uint64_t unread) override {
    call(f_.on_unread_count_changed, [&](auto function) { function(f_.user, unread); });
  }
  void onDeskTyping(bool typing) override {
    call(f_.on_desk_typing, [&](auto function) { function(f_.user, typing ? 1 : 0); });
  }
  void onFileProgress(uint64_t sequence, uint64_t done, uint64_t total) override {
    call(f_.on_file_progress, [&](auto function) { function(f_.user, sequence, done, total); });
  }
  void onFileDownloaded(uint64_t sequence, const KXCSFile& file, int64_t errorCode) override {
    call(f_.on_file_downloaded, [&](auto function) {
      const quor_cs_file view = fileView(file);
      function(f_.user, sequence, &view, errorCode);
    });
  }
  // The service is destroyed: no call from now on; `release` now, or when the running callback
  // returns.
  void release() {
    released_ = true;
    if (depth_ == 0) releaseNow();
  }

 private:
  template <class Function, class Call>
  void call(Function function, Call&& invoke) {
    if (!function || released_) return;
    ++depth_;
    invoke(function);
    if (--depth_ == 0 && released_) releaseNow();
  }
  void releaseNow() {
    if (releaseCalled_) return;
    releaseCalled_ = true;
    if (f_.release) f_.release(f_.user);
  }

  const quor_cs_observer f_;
  int depth_ = 0;  // callbacks running (main thread only)
  bool released_ = false;
  bool releaseCalled_ = false;
};

}  // namespace
}  // namespace quor::capi

struct quor_cs_service {
  std::string deskId;
  std::shared_ptr<quor::capi::CObserver> observer;
  std::shared_ptr<quor::KXCSService> service;
  std::unique_ptr<quor::capi::StatusView> lastStatus;  // what quor_cs_service_status() showed
};

namespace {

using namespace quor;

int result(KXCSServiceResult value) { return static_cast<int>(value); }

// Runs `call` on a live service; QUOR_CS_ERROR_ARGUMENT for a NULL handle.
template <class Call>
int onService(quor_cs_service* service, Call&& call) {
  if (!service) return QUOR_CS_ERROR_ARGUMENT;
  return capi::guarded([&] { return call(*service->service); });
}

KXString optionalText(const char* text) { return text ? KXString(text) : std::nullopt; }

}  // namespace

extern "C" {

quor_cs_service* quor_cs_service_create(const char* desk_id, const quor_cs_observer* observer) {
  quor_cs_observer functions;
  if (!desk_id || !observer ||
      !capi::readSized(*observer, QUOR_CS_SIZE_THROUGH(quor_cs_observer, user), &functions))
    return nullptr;
  return capi::guardedValue<quor_cs_service*>(nullptr, [&]() -> quor_cs_service* {
    if (!capi::claimDesk(desk_id)) return nullptr;
    try {
      auto made = std::make_unique<quor_cs_service>();
      made->deskId = desk_id;
      made->observer = std::make_shared<capi::CObserver>(functions);
      made->service = KXCSService::make(desk_id, made->observer);
      return made.release();
    } catch (...) {
      capi::releaseDesk(desk_id);
      throw;
    }
  });
}

void quor_cs_service_destroy(quor_cs_service* service) {
  if (!service) return;
  capi::guarded([service] {
    service->service.reset();  // ends a running service; nothing more is reported
    auto observer = std::move(service->observer);
    if (observer) observer->release();
    return QUOR_CS_OK;
  });
  capi::releaseDesk(service->deskId);
  delete service;
}

int quor_cs_service_start(quor_cs_service* service, const char* customer_json, int64_t timeout_ms) {
  std::shared_ptr<KXCustomerServiceInfo> info;
  if (customer_json) {
    const auto body = capi::parsed(customer_json);
    if (!body || !body->is_object()) return QUOR_CS_ERROR_ARGUMENT;
    info = KXCustomerServiceInfo::fromBody(*body);
  }
  return onService(service, [&](KXCSService& s) {
    return result(s.start(info, std::chrono::milliseconds(timeout_ms > 0 ? timeout_ms : 0)));
  });
}

int quor_cs_service_ask_for_agent(quor_cs_service* service) {
  return onService(service, [](KXCSService& s) { return result(s.askForAgent()); });
}

int quor_cs_service_choose_group(quor_cs_service* service, const char* group_id) {
  if (!group_id) return QUOR_CS_ERROR_ARGUMENT;
  return onService(service, [&](KXCSService& s) { return result(s.chooseGroup(group_id)); });
}

int quor_cs_service_rate_robot(quor_cs_service* service, const char* knowledge_id, int resolved,
                               const char* suggestion) {
  return onService(service, [&](KXCSService& s) {
    KXCSRobotRating rating;
    rating.knowledgeId = optionalText(knowledge_id);
    rating.resolved = resolved != 0;
    rating.suggestion = optionalText(suggestion);
    return result(s.rateRobot(rating));
  });
}

int quor_cs_service_rate_agent(quor_cs_service* service, const char* dialog_id, int32_t stars,
                               const char* suggestion, uint64_t resolved, const char* tags,
                               const char* extra_json) {
  std::shared_ptr<const KXDictionary> extra;
  if (extra_json) {
    auto parsed = capi::parsed(extra_json);
    if (!parsed || !parsed->is_object()) return QUOR_CS_ERROR_ARGUMENT;
    extra = std::make_shared<const KXDictionary>(std::move(*parsed));
  }
  return onService(service, [&](KXCSService& s) {
    KXCSAgentRating rating;
    rating.dialogId = optionalText(dialog_id);
    rating.stars = stars;
    rating.suggestion = optionalText(suggestion);
    rating.resolved = resolved;
    rating.tags = optionalText(tags);
    rating.extra = extra;
    return result(s.rateAgent(rating));
  });
}

int quor_cs_service_leave_message(quor_cs_service* service, const char* values_json,
                                  char** field_errors_json, char** web_form_url) {
  capi::give(field_errors_json, std::nullopt);
  capi::give(web_form_url, std::nullopt);
  const auto values = capi::parsed(values_json);
  if (!values || !values->is_object()) return QUOR_CS_ERROR_ARGUMENT;
  return onService(service, [&](KXCSService& s) {
    const KXCSLeaveMessageCheck check = s.leaveMessage(*values);
    if (!check.fieldErrors.empty()) {
      KXDictionary errors = KXDictionary::object();
      for (const auto& [field, problem] : check.fieldErrors) errors[field] = problem;
      capi::give(field_errors_json, errors.dump());
    }
    capi::give(web_form_url, check.webFormUrl);
    return result(check.result);
  });
}

int quor_cs_service_end(quor_cs_service* service) {
  return onService(service, [](KXCSService& s) { return result(s.end()); });
}

int quor_cs_service_send_text(quor_cs_service* service, const char* text) {
  if (!text) return QUOR_CS_ERROR_ARGUMENT;
  return onService(service, [&](KXCSService& s) { return result(s.sendText(text)); });
}

int quor_cs_service_retry(quor_cs_service* service, uint64_t sequence) {
  return onService(service, [&](KXCSService& s) { return result(s.retry(sequence)); });
}

size_t quor_cs_service_max_text_bytes(const quor_cs_service* service) {
  return service ? service->service->maxTextBytes() : 0;
}

void quor_cs_service_set_max_text_bytes(quor_cs_service* service, size_t bytes) {
  if (service) service->service->setMaxTextBytes(bytes);
}

uint64_t quor_cs_service_unread_count(const quor_cs_service* service) {
  return service ? service->service->unreadCount() : 0;
}

void quor_cs_service_mark_read(quor_cs_service* service) {
  onService(service, [](KXCSService& s) {
    s.markRead();
    return QUOR_CS_OK;
  });
}

int quor_cs_service_set_typing(quor_cs_service* service, int typing) {
  return onService(service, [typing](KXCSService& s) { return result(s.setTyping(typing != 0)); });
}

int quor_cs_service_send_file(quor_cs_service* service, const char* path, const char* name,
                              const char* mime_type) {
  if (!path) return QUOR_CS_ERROR_ARGUMENT;
  return onService(service, [&](KXCSService& s) {
    return result(s.sendFile({path, name ? name : "", mime_type ? mime_type : ""}));
  });
}

int quor_cs_service_cancel_file(quor_cs_service* service, uint64_t sequence) {
  return onService(service, [sequence](KXCSService& s) { return result(s.cancelFile(sequence)); });
}

int quor_cs_service_download_file(quor_cs_service* service, uint64_t sequence) {
  return onService(service,
                   [sequence](KXCSService& s) { return result(s.downloadFile(sequence)); });
}

int quor_cs_service_set_accepted_file_types(quor_cs_service* service, const char* const* types,
                                            size_t count) {
  if (!types && count > 0) return QUOR_CS_ERROR_ARGUMENT;
  for (size_t i = 0; i < count; ++i) {
    if (!types[i]) return QUOR_CS_ERROR_ARGUMENT;
  }
  return onService(service, [&](KXCSService& s) {
    s.setAcceptedFileTypes(std::vector<std::string>(types, types + count));
    return QUOR_CS_OK;
  });
}

uint64_t quor_cs_max_file_bytes(void) {
  return capi::guardedValue(uint64_t{0}, [] { return KXCSService::maxFileBytes(); });
}

int quor_cs_service_status(quor_cs_service* service, quor_cs_status* status) {
  if (!status) return QUOR_CS_ERROR_ARGUMENT;
  return onService(service, [&](KXCSService& s) {
    service->lastStatus = std::make_unique<capi::StatusView>(s.status());
    return capi::writeSized(service->lastStatus->view, QUOR_CS_SIZE_THROUGH(quor_cs_status, state),
                            status)
               ? QUOR_CS_OK
               : QUOR_CS_ERROR_ARGUMENT;
  });
}

}  // extern "C"
