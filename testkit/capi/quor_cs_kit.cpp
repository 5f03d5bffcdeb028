// The test kit in C: a desk simulator behind a host written over the C API's own host functions.
// The kit's thread carries both ways, in order: a send succeeds and reaches the desk, and what
// the desk says is handed to the library as received.
#include "QuorCustomerService/quor_cs_kit.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "KXJsonTree.h"
#include "QuorCApi.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorHostBase/QuorWorkerThread.h"
#include "QuorLoopbackHost/QuorMemoryFiles.h"

struct quor_cs_kit {
  quor_cs_host* host = nullptr;
  std::shared_ptr<quor::QuorDeskSimulator> desk;
  std::string deskId;
  std::unique_ptr<quor::QuorWorkerThread> thread;
  std::atomic<int64_t> lastMessageId{0};
  std::atomic<int64_t> lastSentId{0};   // the customer's newest message
  std::atomic<int> customerTyping{-1};  // what the library told last: -1 nothing yet
  std::mutex clockMutex;
  int64_t lastTime = 0;
  std::atomic<uint64_t> maxFileBytes{0};
  quor::QuorMemoryFiles files{"kit"};

  void post(std::function<void()> work) { thread->post(std::move(work)); }

  // Milliseconds since the epoch, growing with every call: a reply is never older than the
  // send it answers.
  int64_t nextTime() {
    const int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
    std::lock_guard<std::mutex> lock(clockMutex);
    lastTime = std::max(now, lastTime + 1);
    return lastTime;
  }
};

namespace {

using quor::capi::give;
using quor::capi::guardedValue;

std::string textOf(const char* body, size_t length) {
  return body ? std::string(body, length) : std::string();
}

// The host functions: the kit is their `user`.
void send(void* user, const char* target, const char* objectName, const char* body, size_t length,
          quor_cs_send* pending) {
  auto* kit = static_cast<quor_cs_kit*>(user);
  quor::QuorWireMessage wire;
  wire.objectName = objectName;
  wire.targetId = std::string(target);
  wire.senderUserId = std::string("customer");  // the kit's one customer, as the loopback host's
  if (body) wire.body = textOf(body, length);
  kit->thread->post([kit, wire, pending]() mutable {
    wire.messageId = ++kit->lastMessageId;
    kit->lastSentId = wire.messageId;
    wire.sentTime = kit->nextTime();
    quor_cs_send_succeeded(pending, wire.messageId, wire.sentTime);
    kit->desk->onMessageFromClient(wire);
  });
}

void sendTypingStatus(void* user, const char*, int typing) {
  static_cast<quor_cs_kit*>(user)->customerTyping = typing ? 1 : 0;
}

uint64_t maxFileBytes(void* user) { return static_cast<quor_cs_kit*>(user)->maxFileBytes; }

void uploadFile(void* user, const char* path, const char*, const char*, uint64_t,
                quor_cs_transfer* transfer) {
  auto* kit = static_cast<quor_cs_kit*>(user);
  auto upload = [kit, transfer, from = std::string(path)] {
    if (quor_cs_transfer_cancelled(transfer)) return quor_cs_transfer_failed(transfer, 41001);
    std::ifstream in(from, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in && !in.eof()) return quor_cs_transfer_failed(transfer, 41002);
    quor_cs_transfer_progress(transfer, bytes.size(), bytes.size());
    quor_cs_transfer_uploaded(transfer, kit->files.keep(std::move(bytes)).c_str());
  };
  kit->files.upload(std::move(upload),
                    [kit](std::function<void()> ready) { kit->post(std::move(ready)); });
}

void downloadFile(void* user, const char* url, const char* name, uint64_t,
                  quor_cs_transfer* transfer) {
  auto* kit = static_cast<quor_cs_kit*>(user);
  kit->thread->post([kit, transfer, url = std::string(url), name = std::string(name)] {
    if (quor_cs_transfer_cancelled(transfer)) return quor_cs_transfer_failed(transfer, 41001);
    const std::string path = kit->files.save(url, name);
    if (path.empty()) return quor_cs_transfer_failed(transfer, 41002);
    std::error_code unknown;
    const uint64_t size = std::filesystem::file_size(path, unknown);
    quor_cs_transfer_progress(transfer, size, size);
    quor_cs_transfer_downloaded(transfer, path.c_str());
  });
}

int64_t insertIncoming(void* user, const char*, const char*, const char*, const char*, size_t) {
  return ++static_cast<quor_cs_kit*>(user)->lastMessageId;
}

// On the kit's thread: what the desk says, received.
void receive(quor_cs_kit* kit, const quor::QuorWireMessage& message) {
  const std::string body = message.body.value_or("");
  const std::string sender = message.senderUserId.value_or(kit->deskId);
  quor_cs_host_receive(kit->host, message.objectName.c_str(), message.body ? body.data() : nullptr,
                       body.size(), kit->deskId.c_str(), sender.c_str(), kit->nextTime(), 0,
                       nullptr);
}

// Runs `speak` (the desk speaking) on the kit's thread.
int onKitThread(quor_cs_kit* kit, std::function<void()> speak) {
  return guardedValue<int>(QUOR_CS_ERROR_MEMORY, [&] {
    kit->thread->post(std::move(speak));
    return QUOR_CS_OK;
  });
}

}  // namespace

extern "C" {

quor_cs_kit* quor_cs_kit_create(const char* profile_json, char** error) {
  using namespace quor;
  give(error, std::nullopt);
  return guardedValue<quor_cs_kit*>(nullptr, [&]() -> quor_cs_kit* {
    KXDictionary profile = QuorDeskSimulator::defaultProfile();
    if (profile_json) {
      std::string problem;
      auto changes = KXJsonTree::parse(profile_json, KXJsonTree::kMaxDepth, &problem);
      if (!changes || !changes->is_object()) {
        give(error, "the profile is not a JSON object" +
                        (problem.empty() ? std::string() : ": " + problem));
        return nullptr;
      }
      profile.merge_patch(*changes);
    }
    std::string problem;
    auto desk = QuorDeskSimulator::fromProfile(profile, &problem);
    if (!desk) {
      give(error, problem);
      return nullptr;
    }
    auto kit = std::make_unique<quor_cs_kit>();
    kit->deskId = desk->deskId();
    kit->desk = std::move(desk);
    kit->thread = std::make_unique<QuorWorkerThread>("kit");
    quor_cs_host_functions functions{};
    functions.size = sizeof functions;
    functions.user = kit.get();
    functions.send = send;
    functions.insert_incoming = insertIncoming;
    functions.send_typing_status = sendTypingStatus;
    functions.max_file_bytes = maxFileBytes;
    functions.upload_file = uploadFile;
    functions.download_file = downloadFile;
    kit->host = quor_cs_host_install(&functions);
    if (!kit->host) {
      give(error, "another kit or host is installed: destroy it first");
      return nullptr;
    }
    quor_cs_kit* made = kit.get();
    kit->desk->attach([made](QuorWireMessage message) { receive(made, message); });
    return kit.release();
  });
}

void quor_cs_kit_destroy(quor_cs_kit* kit) {
  if (!kit) return;
  quor_cs_kit_settle(kit);
  quor_cs_host_uninstall(kit->host);
  kit->thread.reset();
  delete kit;
}

const char* quor_cs_kit_desk_id(const quor_cs_kit* kit) { return kit ? kit->deskId.c_str() : ""; }

void quor_cs_kit_settle(quor_cs_kit* kit) {
  if (!kit) return;
  for (;;) {
    kit->thread->waitIdle();
    const uint64_t before = kit->thread->finished();
    const size_t ran = quor_cs_host_run_main(kit->host);
    kit->thread->waitIdle();
    if (ran == 0 && kit->thread->finished() == before) return;
  }
}

int quor_cs_kit_desk_typing(quor_cs_kit* kit, int typing) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  return onKitThread(
      kit, [kit, typing] { quor_cs_host_notify_typing(kit->host, kit->deskId.c_str(), typing); });
}

int quor_cs_kit_desk_read(quor_cs_kit* kit) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  return onKitThread(kit, [kit] {
    quor_cs_host_notify_read_receipt(kit->host, kit->deskId.c_str(), kit->lastSentId.load());
  });
}

int quor_cs_kit_customer_typing(const quor_cs_kit* kit) {
  return kit ? kit->customerTyping.load() : -1;
}

int quor_cs_kit_desk_say(quor_cs_kit* kit, const char* text) {
  if (!kit || !text) return QUOR_CS_ERROR_ARGUMENT;
  return onKitThread(kit, [kit, said = std::string(text)] { kit->desk->say(said); });
}

int quor_cs_kit_desk_request_rating(quor_cs_kit* kit) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  return onKitThread(kit, [kit] { kit->desk->requestEvaluation(); });
}

int quor_cs_kit_desk_end(quor_cs_kit* kit, const char* text, int code) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  return onKitThread(kit, [kit, said = std::string(text ? text : ""), code] {
    kit->desk->endService(said, code);
  });
}

int quor_cs_kit_desk_invite_leave_message(quor_cs_kit* kit, const char* text) {
  if (!kit || !text) return QUOR_CS_ERROR_ARGUMENT;
  return onKitThread(kit, [kit, said = std::string(text)] { kit->desk->inviteLeaveMessage(said); });
}

int quor_cs_kit_set_max_file_bytes(quor_cs_kit* kit, uint64_t bytes) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  kit->maxFileBytes = bytes;
  return QUOR_CS_OK;
}

int quor_cs_kit_hold_uploads(quor_cs_kit* kit, int held) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  return guardedValue<int>(QUOR_CS_ERROR_MEMORY, [&] {
    kit->files.holdUploads(held != 0,
                           [kit](std::function<void()> ready) { kit->post(std::move(ready)); });
    return QUOR_CS_OK;
  });
}

int quor_cs_kit_set_file_cache(quor_cs_kit* kit, const char* directory) {
  if (!kit || !directory) return QUOR_CS_ERROR_ARGUMENT;
  return guardedValue<int>(QUOR_CS_ERROR_MEMORY, [&] {
    kit->files.setCacheDirectory(directory);
    return QUOR_CS_OK;
  });
}

int quor_cs_kit_desk_file(quor_cs_kit* kit, const char* name, const char* mime_type,
                          const char* bytes, size_t length) {
  if (!kit || !name || !mime_type || (!bytes && length > 0)) return QUOR_CS_ERROR_ARGUMENT;
  return guardedValue<int>(QUOR_CS_ERROR_MEMORY, [&] {
    const std::string url = kit->files.keep(std::string(bytes ? bytes : "", length));
    const quor::KXDictionary file = {
        {"name", name}, {"type", mime_type}, {"size", length}, {"url", url}};
    return onKitThread(kit, [kit, file] { kit->desk->sayFile(file); });
  });
}

}  // extern "C"
