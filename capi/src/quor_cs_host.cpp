// A host written in C: the function pointers of quor_cs_host_functions behind the host base, so
// that an IM core in any language carries the library with the same receive pipeline and send
// bookkeeping as the shipped hosts.
#include "QuorCApi.h"
#include "QuorHostBase/QuorHostBase.h"

struct quor_cs_send {
  std::shared_ptr<quor::QuorPendingSend> pending;
};

// A file's upload (then its message's send) or download, as the C host sees it.
struct quor_cs_transfer {
  std::shared_ptr<const std::atomic<bool>> cancel;
  quor::KXCoreClient::ProgressBlock progress;
  std::function<void(const std::string& urlOrPath)> done;
  std::function<void(int64_t errorCode)> failed;
};

namespace quor::capi {
namespace {

const char* orEmpty(const KXString& text) { return text ? text->c_str() : ""; }

class CHost : public QuorHostBase {
 public:
  explicit CHost(const quor_cs_host_functions& functions) : f_(functions) {
    registerHostTypes();  // texts and notices decode for the conversation's lines
    setLogSink(
        [this](const QuorLogEntry& entry) {
          if (f_.log) f_.log(f_.user, entry.level, entry.tag.c_str(), entry.text.c_str());
        },
        f_.log ? 5 : 0);
  }

  std::shared_ptr<KXMessage> insertIncomingMessage(
      int32_t conversationType, const KXString& targetId, const KXString& senderUserId,
      int32_t receivedStatus, std::shared_ptr<KXMessageContent> content) override {
    if (!f_.insert_incoming || !content) return nullptr;
    const std::string objectName = content->objectName();
    const KXData body = content->encode();
    const int64_t id =
        f_.insert_incoming(f_.user, orEmpty(targetId), orEmpty(senderUserId), objectName.c_str(),
                           body ? body->data() : nullptr, body ? body->size() : 0);
    if (id < 0) return nullptr;
    auto record = std::make_shared<KXMessage>(conversationType, targetId, KXMessageDirectionReceive,
                                              id, std::move(content));
    record->setSenderUserId(senderUserId);
    record->setReceivedStatus(receivedStatus);
    record->setObjectName(objectName);
    return record;
  }

  // The C core shows it; in-process listeners of the base (a C++ test) see it too.
  void onReceiveFakeMessage(std::shared_ptr<KXMessage> message) override {
    if (!message) return;
    notifyListeners(message);
    if (!f_.deliver_local || !message->content()) return;
    const std::string objectName = message->content()->objectName();
    const KXData body = message->content()->encode();
    f_.deliver_local(f_.user, message->messageId(), orEmpty(message->targetId()),
                     objectName.c_str(), body ? body->data() : nullptr, body ? body->size() : 0);
  }

  void registerMessageType(const KXMessageContentType& type) override {
    QuorHostBase::registerMessageType(type);
    if (f_.register_type)
      f_.register_type(f_.user, type.objectName().c_str(), type.persistentFlag());
  }

  // The host's received message, through the base's pipeline: whether a module held it.
  bool take(const QuorReceivedMessage& received) { return receive(received); }

  bool csSuspendWhenLeave() const override {
    return f_.suspend_when_leave && f_.suspend_when_leave(f_.user) != 0;
  }

  void markConversationRead(int32_t conversationType, const KXString& targetId) override {
    if (f_.mark_conversation_read && conversationType == KXConversationTypeCustomerService)
      f_.mark_conversation_read(f_.user, orEmpty(targetId));
  }

  void sendTypingStatus(int32_t conversationType, const KXString& targetId, bool typing) override {
    if (f_.send_typing_status && conversationType == KXConversationTypeCustomerService)
      f_.send_typing_status(f_.user, orEmpty(targetId), typing ? 1 : 0);
  }

  uint64_t maxFileBytes() const override {
    return f_.upload_file && f_.max_file_bytes ? f_.max_file_bytes(f_.user) : 0;
  }

  void sendFileMessage(int32_t conversationType, const KXString& targetId,
                       std::shared_ptr<KXFileMessage> content,
                       std::shared_ptr<const std::atomic<bool>> cancel, ProgressBlock progress,
                       SuccessBlock success, ErrorBlock error) override {
    if (!f_.upload_file || !content)
      return KXCoreClient::sendFileMessage(conversationType, targetId, content, cancel, progress,
                                           success, error);
    auto* transfer = new quor_cs_transfer{std::move(cancel), std::move(progress), nullptr, nullptr};
    std::weak_ptr<QuorHostBase> weak = weak_from_this();
    transfer->done = [weak, conversationType, targetId, content, success,
                      error](const std::string& url) {
      auto host = weak.lock();
      if (!host) return error ? error(-1, 0) : void();
      content->setUrl(url);
      host->sendMessage(conversationType, targetId, content, std::nullopt, std::nullopt, success,
                        error);
    };
    transfer->failed = [error](int64_t code) {
      if (error) error(code, 0);
    };
    f_.upload_file(f_.user, content->localPath().c_str(), content->name().c_str(),
                   content->mimeType().c_str(), content->size(), transfer);
  }

  void downloadFile(std::shared_ptr<const KXFileMessage> content,
                    std::shared_ptr<const std::atomic<bool>> cancel, ProgressBlock progress,
                    DownloadBlock done) override {
    if (!f_.download_file || !content)
      return KXCoreClient::downloadFile(content, cancel, progress, done);
    auto* transfer = new quor_cs_transfer{std::move(cancel), std::move(progress), nullptr, nullptr};
    transfer->done = [done](const std::string& path) {
      if (done) done(path, 0);
    };
    transfer->failed = [done](int64_t code) {
      if (done) done("", code);
    };
    f_.download_file(f_.user, content->url().c_str(), content->name().c_str(), content->size(),
                     transfer);
  }

  // Hands a signal of the other side (or of another device) to every loaded module.
  template <class Tell>
  void tellModules(Tell tell) {
    for (auto* module : loadedModules()) tell(*module);
  }

 protected:
  void transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) override {
    if (!f_.send) {
      pending->fail(-1);
      return;
    }
    auto* handle = new quor_cs_send{std::move(pending)};
    f_.send(f_.user, orEmpty(send.targetId), send.objectName.c_str(),
            send.body ? send.body->data() : nullptr, send.body ? send.body->size() : 0, handle);
  }

 private:
  const quor_cs_host_functions f_;
};

}  // namespace
}  // namespace quor::capi

struct quor_cs_host {
  std::shared_ptr<quor::capi::CHost> host;
};

quor::QuorHostBase& quor::capi::hostBaseOf(quor_cs_host& host) { return *host.host; }

namespace quor::capi {
namespace {

// Runs `tell` on each module of `host` for the conversation `target_id`.
template <class Tell>
int tellModules(quor_cs_host* host, const char* target_id, Tell tell) {
  if (!host || !target_id) return QUOR_CS_ERROR_ARGUMENT;
  return quor::capi::guarded([&] {
    const quor::KXString target = std::string(target_id);
    host->host->tellModules([&](quor::QuorIMLibExtensionModule& module) { tell(module, target); });
    return QUOR_CS_OK;
  });
}

}  // namespace
}  // namespace quor::capi

extern "C" {

quor_cs_host* quor_cs_host_install(const quor_cs_host_functions* functions) {
  using namespace quor;
  quor_cs_host_functions given;
  if (!functions ||
      !capi::readSized(*functions, QUOR_CS_SIZE_THROUGH(quor_cs_host_functions, user), &given))
    return nullptr;
  return capi::guardedValue<quor_cs_host*>(nullptr, [&]() -> quor_cs_host* {
    auto made = std::make_unique<quor_cs_host>();
    if (!capi::claimHost(made.get())) return nullptr;
    made->host = std::make_shared<capi::CHost>(given);
    made->host->install();
    capi::keepAppDispatcher();
    made->host->loadExtensionModule();
    return made.release();
  });
}

void quor_cs_host_uninstall(quor_cs_host* host) {
  if (!host) return;
  quor::capi::guarded([] {
    quor::QuorHostBase::uninstall();
    quor::capi::keepAppDispatcher();
    return QUOR_CS_OK;
  });
  quor::capi::releaseHost(host);
  delete host;
}

int quor_cs_host_receive(quor_cs_host* host, const char* object_name, const char* body,
                         size_t body_length, const char* target_id, const char* sender_id,
                         int64_t sent_time, int offline, int* held) {
  if (held) *held = 0;
  if (!host || !object_name) return QUOR_CS_ERROR_ARGUMENT;
  return quor::capi::guarded([&] {
    quor::QuorReceivedMessage received;
    received.objectName = object_name;
    if (body) received.body = std::string(body, body_length);
    if (target_id) received.targetId = std::string(target_id);
    if (sender_id) received.senderUserId = std::string(sender_id);
    received.sentTime = sent_time;
    received.offline = offline != 0;
    const bool taken = host->host->take(received) || host->host->isSignalType(received.objectName);
    if (held) *held = taken ? 1 : 0;
    return QUOR_CS_OK;
  });
}

int quor_cs_host_notify_typing(quor_cs_host* host, const char* target_id, int typing) {
  return quor::capi::tellModules(
      host, target_id, [typing](auto& module, const quor::KXString& target) {
        module.notifyTypingStatus(quor::KXConversationTypeCustomerService, target, typing != 0);
      });
}

int quor_cs_host_notify_read_receipt(quor_cs_host* host, const char* target_id,
                                     int64_t message_id) {
  return quor::capi::tellModules(
      host, target_id, [message_id](auto& module, const quor::KXString& target) {
        module.notifyReadReceipt(quor::KXConversationTypeCustomerService, target, message_id);
      });
}

int quor_cs_host_notify_conversation_read(quor_cs_host* host, const char* target_id) {
  return quor::capi::tellModules(host, target_id, [](auto& module, const quor::KXString& target) {
    module.notifyConversationRead(quor::KXConversationTypeCustomerService, target);
  });
}

size_t quor_cs_host_run_main(quor_cs_host* host) {
  if (!host) return 0;
  return quor::capi::guardedValue<size_t>(
      0, [host] { return host->host->mainRunLoop().runUntilIdle(); });
}

void quor_cs_send_succeeded(quor_cs_send* send, int64_t message_id, int64_t sent_time) {
  if (!send) return;
  quor::capi::guarded([&] {
    send->pending->record()->setMessageId(message_id);
    send->pending->record()->setSentTime(sent_time);
    send->pending->succeed();
    return QUOR_CS_OK;
  });
  delete send;
}

void quor_cs_transfer_progress(quor_cs_transfer* transfer, uint64_t done, uint64_t total) {
  if (!transfer || !transfer->progress) return;
  quor::capi::guarded([&] {
    transfer->progress(done, total);
    return QUOR_CS_OK;
  });
}

int quor_cs_transfer_cancelled(const quor_cs_transfer* transfer) {
  return transfer && transfer->cancel && transfer->cancel->load() ? 1 : 0;
}

void quor_cs_transfer_uploaded(quor_cs_transfer* transfer, const char* url) {
  if (!transfer) return;
  quor::capi::guarded([&] {
    if (url && *url) {
      transfer->done(url);
    } else {
      transfer->failed(-1);
    }
    return QUOR_CS_OK;
  });
  delete transfer;
}

void quor_cs_transfer_downloaded(quor_cs_transfer* transfer, const char* path) {
  quor_cs_transfer_uploaded(transfer, path);
}

void quor_cs_transfer_failed(quor_cs_transfer* transfer, int64_t error_code) {
  if (!transfer) return;
  quor::capi::guarded([&] {
    transfer->failed(error_code);
    return QUOR_CS_OK;
  });
  delete transfer;
}

void quor_cs_send_failed(quor_cs_send* send, int64_t error_code) {
  if (!send) return;
  quor::capi::guarded([&] {
    send->pending->fail(error_code);
    return QUOR_CS_OK;
  });
  delete send;
}

}  // extern "C"
