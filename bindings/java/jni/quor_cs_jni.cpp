// The JNI layer of the Java binding: each native method of com.quor.cs.Native calls one function
// of the C API (quor_cs.h) and nothing else of the library. Strings cross as UTF-8 byte arrays.
// Calls into Java come from the C layer's callbacks: each runs inside its own local frame (no
// local reference outlives it) and clears whatever Java threw (the Java bridges catch first).
#include <jni.h>
#include <pthread.h>

#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/quor_cs.h"
#include "QuorJniBytes.h"

namespace {

using namespace quor::jni;

JavaVM* vm = nullptr;
pthread_key_t attachedKey;

struct Classes {
  jclass byteArray, quorCS, status, observer, host;
  jmethodID post, statusFromNative;
  jmethodID stateChanged, ratingRequested, evaluationSettings, messageLeft, message, unread,
      deskTyping, fileProgress, fileDownloaded, attachment;
  jclass attachmentClass;
  jmethodID send, insertIncoming, deliverLocal, registerType, log, suspendWhenLeave;
} java;

// Threads of the library (workers, the XMPP client) that call into Java are attached as daemons
// on first use and detached when they end.
void detachAtExit(void*) {
  if (vm) vm->DetachCurrentThread();
}

JNIEnv* currentEnv() {
  JNIEnv* env = nullptr;
  if (!vm) return nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) == JNI_OK) return env;
  if (vm->AttachCurrentThreadAsDaemon(reinterpret_cast<void**>(&env), nullptr) != JNI_OK) {
    return nullptr;
  }
  pthread_setspecific(attachedKey, env);
  return env;
}

// One callback's local references, released when it returns.
class LocalFrame {
 public:
  explicit LocalFrame(JNIEnv* env) : env_(env), pushed_(env->PushLocalFrame(16) == 0) {}
  ~LocalFrame() {
    if (env_->ExceptionCheck()) env_->ExceptionClear();  // never back into the library
    if (pushed_) env_->PopLocalFrame(nullptr);
  }
  LocalFrame(const LocalFrame&) = delete;
  LocalFrame& operator=(const LocalFrame&) = delete;
  bool ok() const { return pushed_; }

 private:
  JNIEnv* env_;
  bool pushed_;
};

jobject makeStatus(JNIEnv* env, const quor_cs_status& status) {
  const auto count = static_cast<jsize>(status.group_count);
  jobjectArray ids = env->NewObjectArray(count, java.byteArray, nullptr);
  jobjectArray names = env->NewObjectArray(count, java.byteArray, nullptr);
  jbooleanArray online = env->NewBooleanArray(count);
  if (!ids || !names || !online) return nullptr;
  for (jsize i = 0; i < count; ++i) {
    const quor_cs_group& group = status.groups[i];
    env->SetObjectArrayElement(ids, i, bytes(env, group.id));
    env->SetObjectArrayElement(names, i, bytes(env, group.name));
    const jboolean on = group.online ? JNI_TRUE : JNI_FALSE;
    env->SetBooleanArrayRegion(online, i, 1, &on);
  }
  if (env->ExceptionCheck()) return nullptr;
  jobject made = env->CallStaticObjectMethod(
      java.status, java.statusFromNative, status.state, status.reason,
      status.can_ask_for_agent ? JNI_TRUE : JNI_FALSE, static_cast<jlong>(status.code),
      bytes(env, status.text), ids, names, online, bytes(env, status.config_json));
  return env->ExceptionCheck() ? nullptr : made;
}

// ---- The observer: the C callbacks call the Java ObserverBridge -------------------------------

jobject bridgeOf(void* user) { return static_cast<jobject>(user); }

void onStateChanged(void* user, const quor_cs_status* status) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  if (!frame.ok()) return;
  jobject made = makeStatus(env, *status);
  if (made) env->CallVoidMethod(bridgeOf(user), java.stateChanged, made);
}

void onRatingRequested(void* user, const char* dialogId) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  if (frame.ok()) env->CallVoidMethod(bridgeOf(user), java.ratingRequested, bytes(env, dialogId));
}

void onEvaluationSettings(void* user, const char* settings) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  if (frame.ok())
    env->CallVoidMethod(bridgeOf(user), java.evaluationSettings, bytes(env, settings));
}

void onMessageLeft(void* user, int sent, int64_t value) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  env->CallVoidMethod(bridgeOf(user), java.messageLeft, sent ? JNI_TRUE : JNI_FALSE,
                      static_cast<jlong>(value));
}

// A line's file as a com.quor.cs.Attachment; null for none.
jobject makeAttachment(JNIEnv* env, const quor_cs_file* file) {
  if (!file) return nullptr;
  jobject made = env->CallStaticObjectMethod(
      java.attachmentClass, java.attachment, bytes(env, file->name), bytes(env, file->mime_type),
      static_cast<jlong>(file->size), static_cast<jint>(file->width),
      static_cast<jint>(file->height), bytes(env, file->url), bytes(env, file->local_path));
  return env->ExceptionCheck() ? nullptr : made;
}

void message(void* user, const quor_cs_message* line, bool deliveryUpdate) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  if (!frame.ok()) return;
  env->CallVoidMethod(bridgeOf(user), java.message, deliveryUpdate ? JNI_TRUE : JNI_FALSE,
                      static_cast<jlong>(line->sequence), line->author, line->delivery,
                      bytes(env, line->text), bytes(env, line->sender_name),
                      static_cast<jlong>(line->message_id), static_cast<jlong>(line->sent_time),
                      static_cast<jlong>(line->error_code), makeAttachment(env, line->file));
}
void onMessage(void* user, const quor_cs_message* line) { message(user, line, false); }
void onMessageDelivery(void* user, const quor_cs_message* line) { message(user, line, true); }

void onUnreadCountChanged(void* user, uint64_t unread) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  env->CallVoidMethod(bridgeOf(user), java.unread, static_cast<jlong>(unread));
}

void onDeskTyping(void* user, int typing) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  env->CallVoidMethod(bridgeOf(user), java.deskTyping, typing ? JNI_TRUE : JNI_FALSE);
}

void onFileProgress(void* user, uint64_t sequence, uint64_t done, uint64_t total) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  env->CallVoidMethod(bridgeOf(user), java.fileProgress, static_cast<jlong>(sequence),
                      static_cast<jlong>(done), static_cast<jlong>(total));
}

void onFileDownloaded(void* user, uint64_t sequence, const quor_cs_file* file, int64_t code) {
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  if (!frame.ok()) return;
  env->CallVoidMethod(bridgeOf(user), java.fileDownloaded, static_cast<jlong>(sequence),
                      makeAttachment(env, file), static_cast<jlong>(code));
}

void releaseObserver(void* user) {
  if (JNIEnv* env = currentEnv()) env->DeleteGlobalRef(bridgeOf(user));
}

// ---- The dispatcher: tasks go to the app's Executor ---------------------------------------------

void post(void*, quor_cs_task* task) {
  JNIEnv* env = currentEnv();
  if (!env) {
    quor_cs_drop_task(task);
    return;
  }
  LocalFrame frame(env);
  env->CallStaticVoidMethod(java.quorCS, java.post, toLong(task));
}

// ---- A host written in Java ---------------------------------------------------------------------

// The Java HostBridge behind a C host. After uninstall its reference is cleared (waiting for the
// calls in flight) but the state stays: a late call from a library thread finds it empty.
struct JavaHost {
  std::shared_mutex mutex;
  jobject bridge = nullptr;
  quor_cs_host* host = nullptr;
};

template <class Call>
void withHost(void* user, Call&& call) {
  auto* javaHost = static_cast<JavaHost*>(user);
  std::shared_lock<std::shared_mutex> lock(javaHost->mutex);
  if (!javaHost->bridge) return;
  JNIEnv* env = currentEnv();
  if (!env) return;
  LocalFrame frame(env);
  if (frame.ok()) call(env, javaHost->bridge);
}

void hostSend(void* user, const char* target, const char* name, const char* body, size_t length,
              quor_cs_send* send) {
  bool handed = false;
  withHost(user, [&](JNIEnv* env, jobject bridge) {
    env->CallVoidMethod(bridge, java.send, bytes(env, target), bytes(env, name),
                        bytes(env, body ? body : "", body ? length : 0), toLong(send));
    handed = true;  // the bridge completes it, also when the Java host throws
  });
  if (!handed) quor_cs_send_failed(send, -1);
}

int64_t hostInsertIncoming(void* user, const char* target, const char* sender, const char* name,
                           const char* body, size_t length) {
  jlong id = -1;
  withHost(user, [&](JNIEnv* env, jobject bridge) {
    id = env->CallLongMethod(bridge, java.insertIncoming, bytes(env, target), bytes(env, sender),
                             bytes(env, name), bytes(env, body ? body : "", body ? length : 0));
    if (env->ExceptionCheck()) id = -1;
  });
  return id;
}

void hostDeliverLocal(void* user, int64_t id, const char* target, const char* name,
                      const char* body, size_t length) {
  withHost(user, [&](JNIEnv* env, jobject bridge) {
    env->CallVoidMethod(bridge, java.deliverLocal, static_cast<jlong>(id), bytes(env, target),
                        bytes(env, name), bytes(env, body ? body : "", body ? length : 0));
  });
}

void hostRegisterType(void* user, const char* name, uint32_t flag) {
  withHost(user, [&](JNIEnv* env, jobject bridge) {
    env->CallVoidMethod(bridge, java.registerType, bytes(env, name), static_cast<jint>(flag));
  });
}

void hostLog(void* user, int level, const char* tag, const char* text) {
  withHost(user, [&](JNIEnv* env, jobject bridge) {
    env->CallVoidMethod(bridge, java.log, level, bytes(env, tag), bytes(env, text));
  });
}

int hostSuspendWhenLeave(void* user) {
  jboolean value = JNI_FALSE;
  withHost(user, [&](JNIEnv* env, jobject bridge) {
    value = env->CallBooleanMethod(bridge, java.suspendWhenLeave);
    if (env->ExceptionCheck()) value = JNI_FALSE;
  });
  return value ? 1 : 0;
}

bool lookUp(JNIEnv* env) {
  auto global = [env](const char* name) {
    jclass local = env->FindClass(name);
    return local ? static_cast<jclass>(env->NewGlobalRef(local)) : nullptr;
  };
  java.byteArray = global("[B");
  java.quorCS = global("com/quor/cs/QuorCS");
  java.status = global("com/quor/cs/Status");
  java.observer = global("com/quor/cs/ObserverBridge");
  java.host = global("com/quor/cs/HostBridge");
  java.attachmentClass = global("com/quor/cs/Attachment");
  if (!java.byteArray || !java.quorCS || !java.status || !java.observer || !java.host ||
      !java.attachmentClass)
    return false;
  java.attachment = env->GetStaticMethodID(java.attachmentClass, "fromNative",
                                           "([B[BJII[B[B)Lcom/quor/cs/Attachment;");
  java.post = env->GetStaticMethodID(java.quorCS, "post", "(J)V");
  java.statusFromNative =
      env->GetStaticMethodID(java.status, "fromNative", "(IIZJ[B[[B[[B[Z[B)Lcom/quor/cs/Status;");
  java.stateChanged = env->GetMethodID(java.observer, "stateChanged", "(Lcom/quor/cs/Status;)V");
  java.ratingRequested = env->GetMethodID(java.observer, "ratingRequested", "([B)V");
  java.evaluationSettings = env->GetMethodID(java.observer, "evaluationSettings", "([B)V");
  java.messageLeft = env->GetMethodID(java.observer, "messageLeft", "(ZJ)V");
  java.message =
      env->GetMethodID(java.observer, "message", "(ZJII[B[BJJJLcom/quor/cs/Attachment;)V");
  java.unread = env->GetMethodID(java.observer, "unreadCountChanged", "(J)V");
  java.deskTyping = env->GetMethodID(java.observer, "deskTyping", "(Z)V");
  java.fileProgress = env->GetMethodID(java.observer, "fileProgress", "(JJJ)V");
  java.fileDownloaded =
      env->GetMethodID(java.observer, "fileDownloaded", "(JLcom/quor/cs/Attachment;J)V");
  java.send = env->GetMethodID(java.host, "send", "([B[B[BJ)V");
  java.insertIncoming = env->GetMethodID(java.host, "insertIncoming", "([B[B[B[B)J");
  java.deliverLocal = env->GetMethodID(java.host, "deliverLocal", "(J[B[B[B)V");
  java.registerType = env->GetMethodID(java.host, "registerType", "([BI)V");
  java.log = env->GetMethodID(java.host, "log", "(I[B[B)V");
  java.suspendWhenLeave = env->GetMethodID(java.host, "suspendWhenLeave", "()Z");
  return !env->ExceptionCheck();
}

}  // namespace

// ---- The native methods of com.quor.cs.Native
// ----------------------------------------------------

#define NATIVE(type, name) extern "C" JNIEXPORT type JNICALL Java_com_quor_cs_Native_##name

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* loaded, void*) {
  JNIEnv* env = nullptr;
  if (loaded->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
  if (pthread_key_create(&attachedKey, detachAtExit) != 0) return JNI_ERR;
  vm = loaded;
  return lookUp(env) ? JNI_VERSION_1_6 : JNI_ERR;
}

NATIVE(jbyteArray, version)(JNIEnv* env, jclass) { return bytes(env, quor_cs_version()); }

NATIVE(void, setDispatcher)(JNIEnv*, jclass, jboolean install) {
  quor_cs_set_dispatcher(install ? post : nullptr, nullptr);
}
NATIVE(void, runTask)(JNIEnv*, jclass, jlong task) { quor_cs_run_task(handle<quor_cs_task>(task)); }
NATIVE(void, dropTask)(JNIEnv*, jclass, jlong task) {
  quor_cs_drop_task(handle<quor_cs_task>(task));
}

NATIVE(jlong, serviceCreate)(JNIEnv* env, jclass, jbyteArray deskId, jobject bridge) {
  quor_cs_observer observer{};
  observer.size = sizeof observer;
  observer.user = env->NewGlobalRef(bridge);
  if (!observer.user) return 0;
  observer.on_state_changed = onStateChanged;
  observer.on_rating_requested = onRatingRequested;
  observer.on_evaluation_settings = onEvaluationSettings;
  observer.on_message_left = onMessageLeft;
  observer.on_message = onMessage;
  observer.on_message_delivery = onMessageDelivery;
  observer.on_unread_count_changed = onUnreadCountChanged;
  observer.release = releaseObserver;
  observer.on_desk_typing = onDeskTyping;
  observer.on_file_progress = onFileProgress;
  observer.on_file_downloaded = onFileDownloaded;
  quor_cs_service* service = quor_cs_service_create(Text(env, deskId).get(), &observer);
  if (!service) env->DeleteGlobalRef(static_cast<jobject>(observer.user));
  return toLong(service);
}
NATIVE(void, serviceDestroy)(JNIEnv*, jclass, jlong service) {
  quor_cs_service_destroy(handle<quor_cs_service>(service));
}
NATIVE(jint, serviceStart)(JNIEnv* env, jclass, jlong service, jbyteArray customer, jlong timeout) {
  return quor_cs_service_start(handle<quor_cs_service>(service), Text(env, customer).get(),
                               timeout);
}
NATIVE(jint, serviceAskForAgent)(JNIEnv*, jclass, jlong service) {
  return quor_cs_service_ask_for_agent(handle<quor_cs_service>(service));
}
NATIVE(jint, serviceChooseGroup)(JNIEnv* env, jclass, jlong service, jbyteArray group) {
  return quor_cs_service_choose_group(handle<quor_cs_service>(service), Text(env, group).get());
}
NATIVE(jint, serviceRateRobot)
(JNIEnv* env, jclass, jlong service, jbyteArray knowledge, jboolean resolved,
 jbyteArray suggestion) {
  return quor_cs_service_rate_robot(handle<quor_cs_service>(service), Text(env, knowledge).get(),
                                    resolved ? 1 : 0, Text(env, suggestion).get());
}
NATIVE(jint, serviceRateAgent)
(JNIEnv* env, jclass, jlong service, jbyteArray dialog, jint stars, jbyteArray suggestion,
 jlong resolved, jbyteArray tags, jbyteArray extra) {
  return quor_cs_service_rate_agent(
      handle<quor_cs_service>(service), Text(env, dialog).get(), stars, Text(env, suggestion).get(),
      static_cast<uint64_t>(resolved), Text(env, tags).get(), Text(env, extra).get());
}
NATIVE(jint, serviceLeaveMessage)
(JNIEnv* env, jclass, jlong service, jbyteArray values, jobjectArray out) {
  char* errors = nullptr;
  char* url = nullptr;
  const int code = quor_cs_service_leave_message(handle<quor_cs_service>(service),
                                                 Text(env, values).get(), &errors, &url);
  giveOut(env, out, 0, errors);
  giveOut(env, out, 1, url);
  return code;
}
NATIVE(jint, serviceEnd)(JNIEnv*, jclass, jlong service) {
  return quor_cs_service_end(handle<quor_cs_service>(service));
}
NATIVE(jint, serviceSendText)(JNIEnv* env, jclass, jlong service, jbyteArray text) {
  return quor_cs_service_send_text(handle<quor_cs_service>(service), Text(env, text).get());
}
NATIVE(jint, serviceRetry)(JNIEnv*, jclass, jlong service, jlong sequence) {
  return quor_cs_service_retry(handle<quor_cs_service>(service), static_cast<uint64_t>(sequence));
}
NATIVE(jlong, serviceMaxTextBytes)(JNIEnv*, jclass, jlong service) {
  return static_cast<jlong>(quor_cs_service_max_text_bytes(handle<quor_cs_service>(service)));
}
NATIVE(void, serviceSetMaxTextBytes)(JNIEnv*, jclass, jlong service, jlong bytes) {
  quor_cs_service_set_max_text_bytes(handle<quor_cs_service>(service), static_cast<size_t>(bytes));
}
NATIVE(jlong, serviceUnreadCount)(JNIEnv*, jclass, jlong service) {
  return static_cast<jlong>(quor_cs_service_unread_count(handle<quor_cs_service>(service)));
}
NATIVE(void, serviceMarkRead)(JNIEnv*, jclass, jlong service) {
  quor_cs_service_mark_read(handle<quor_cs_service>(service));
}
NATIVE(jint, serviceSetTyping)(JNIEnv*, jclass, jlong service, jboolean typing) {
  return quor_cs_service_set_typing(handle<quor_cs_service>(service), typing ? 1 : 0);
}
NATIVE(jint, serviceSendFile)
(JNIEnv* env, jclass, jlong service, jbyteArray path, jbyteArray name, jbyteArray mimeType) {
  return quor_cs_service_send_file(handle<quor_cs_service>(service), Text(env, path).get(),
                                   Text(env, name).get(), Text(env, mimeType).get());
}
NATIVE(jint, serviceCancelFile)(JNIEnv*, jclass, jlong service, jlong sequence) {
  return quor_cs_service_cancel_file(handle<quor_cs_service>(service),
                                     static_cast<uint64_t>(sequence));
}
NATIVE(jint, serviceDownloadFile)(JNIEnv*, jclass, jlong service, jlong sequence) {
  return quor_cs_service_download_file(handle<quor_cs_service>(service),
                                       static_cast<uint64_t>(sequence));
}
NATIVE(jint, serviceSetAcceptedFileTypes)(JNIEnv* env, jclass, jlong service, jobjectArray types) {
  const jsize count = types ? env->GetArrayLength(types) : 0;
  std::vector<std::string> kept;
  std::vector<const char*> pointers;
  for (jsize i = 0; i < count; ++i) {
    auto item = static_cast<jbyteArray>(env->GetObjectArrayElement(types, i));
    const Text type(env, item);
    kept.emplace_back(type.get() ? type.get() : "");
    env->DeleteLocalRef(item);
  }
  for (const auto& type : kept) pointers.push_back(type.c_str());
  return quor_cs_service_set_accepted_file_types(handle<quor_cs_service>(service), pointers.data(),
                                                 pointers.size());
}
NATIVE(jlong, maxFileBytes)(JNIEnv*, jclass) {
  return static_cast<jlong>(quor_cs_max_file_bytes());
}
NATIVE(jobject, serviceStatus)(JNIEnv* env, jclass, jlong service) {
  quor_cs_status status{};
  status.size = sizeof status;
  if (quor_cs_service_status(handle<quor_cs_service>(service), &status) != QUOR_CS_OK) {
    return nullptr;
  }
  return makeStatus(env, status);
}

NATIVE(jlong, hostInstall)(JNIEnv* env, jclass, jobject bridge) {
  auto* javaHost = new (std::nothrow) JavaHost;
  if (!javaHost) return 0;
  javaHost->bridge = env->NewGlobalRef(bridge);
  quor_cs_host_functions functions{};
  functions.size = sizeof functions;
  functions.user = javaHost;
  functions.send = hostSend;
  functions.insert_incoming = hostInsertIncoming;
  functions.deliver_local = hostDeliverLocal;
  functions.register_type = hostRegisterType;
  functions.log = hostLog;
  functions.suspend_when_leave = hostSuspendWhenLeave;
  javaHost->host = quor_cs_host_install(&functions);
  if (!javaHost->host) {
    env->DeleteGlobalRef(javaHost->bridge);
    delete javaHost;
    return 0;
  }
  return toLong(javaHost);
}
NATIVE(void, hostUninstall)(JNIEnv* env, jclass, jlong value) {
  auto* javaHost = handle<JavaHost>(value);
  quor_cs_host_uninstall(javaHost->host);
  std::unique_lock<std::shared_mutex> lock(javaHost->mutex);
  env->DeleteGlobalRef(javaHost->bridge);
  javaHost->bridge = nullptr;  // the state itself stays for late calls (see JavaHost)
}
NATIVE(jint, hostReceive)
(JNIEnv* env, jclass, jlong value, jbyteArray name, jbyteArray body, jbyteArray target,
 jbyteArray sender, jlong sentTime, jboolean offline) {
  const Text bodyText(env, body);
  int held = 0;
  const int code = quor_cs_host_receive(handle<JavaHost>(value)->host, Text(env, name).get(),
                                        bodyText.get(), bodyText.size(), Text(env, target).get(),
                                        Text(env, sender).get(), sentTime, offline ? 1 : 0, &held);
  return code != QUOR_CS_OK ? code : held;
}
NATIVE(jlong, hostRunMain)(JNIEnv*, jclass, jlong value) {
  return static_cast<jlong>(quor_cs_host_run_main(handle<JavaHost>(value)->host));
}
NATIVE(void, sendSucceeded)(JNIEnv*, jclass, jlong send, jlong id, jlong time) {
  quor_cs_send_succeeded(handle<quor_cs_send>(send), id, time);
}
NATIVE(void, sendFailed)(JNIEnv*, jclass, jlong send, jlong code) {
  quor_cs_send_failed(handle<quor_cs_send>(send), code);
}

NATIVE(jlong, xmppCreate)(JNIEnv* env, jclass, jbyteArray options, jobjectArray error) {
  return createWithReason(env, options, error, quor_cs_xmpp_host_create);
}
NATIVE(void, xmppDestroy)(JNIEnv*, jclass, jlong host) {
  quor_cs_xmpp_host_destroy(handle<quor_cs_xmpp_host>(host));
}
NATIVE(jint, xmppConnect)(JNIEnv*, jclass, jlong host) {
  return quor_cs_xmpp_host_connect(handle<quor_cs_xmpp_host>(host));
}
NATIVE(void, xmppLogout)(JNIEnv*, jclass, jlong host) {
  quor_cs_xmpp_host_logout(handle<quor_cs_xmpp_host>(host));
}
NATIVE(jboolean, xmppWaitOnline)(JNIEnv*, jclass, jlong host, jlong timeout) {
  return quor_cs_xmpp_host_wait_online(handle<quor_cs_xmpp_host>(host), timeout) ? JNI_TRUE
                                                                                 : JNI_FALSE;
}
NATIVE(jint, xmppStatus)(JNIEnv*, jclass, jlong host) {
  return quor_cs_xmpp_host_status(handle<quor_cs_xmpp_host>(host));
}
NATIVE(void, xmppSettle)(JNIEnv*, jclass, jlong host, jlong quiet) {
  quor_cs_xmpp_host_settle(handle<quor_cs_xmpp_host>(host), quiet);
}
NATIVE(jint, xmppSendText)(JNIEnv* env, jclass, jlong host, jbyteArray desk, jbyteArray text) {
  return quor_cs_xmpp_host_send_text(handle<quor_cs_xmpp_host>(host), Text(env, desk).get(),
                                     Text(env, text).get());
}
NATIVE(jint, xmppSetAppState)(JNIEnv*, jclass, jlong host, jint state) {
  return quor_cs_xmpp_host_set_app_state(handle<quor_cs_xmpp_host>(host), state);
}
NATIVE(jint, xmppAppState)(JNIEnv*, jclass, jlong host) {
  return quor_cs_xmpp_host_app_state(handle<quor_cs_xmpp_host>(host));
}
NATIVE(jint, xmppSetPush)
(JNIEnv* env, jclass, jlong host, jbyteArray service, jbyteArray node, jbyteArray token,
 jbyteArray secret) {
  return quor_cs_xmpp_host_set_push(handle<quor_cs_xmpp_host>(host), Text(env, service).get(),
                                    Text(env, node).get(), Text(env, token).get(),
                                    Text(env, secret).get());
}
NATIVE(jint, pushRead)(JNIEnv* env, jclass, jbyteArray json, jobjectArray out, jlongArray unread) {
  char* desk = nullptr;
  char* account = nullptr;
  int64_t count = 0;
  const int code = quor_cs_push_notification_read(Text(env, json).get(), &desk, &count, &account);
  giveOut(env, out, 0, desk);
  giveOut(env, out, 1, account);
  const jlong value = static_cast<jlong>(count);
  env->SetLongArrayRegion(unread, 0, 1, &value);
  return code;
}
NATIVE(jint, xmppLastServiceState)(JNIEnv* env, jclass, jlong host, jbyteArray desk) {
  return quor_cs_xmpp_host_last_service_state(handle<quor_cs_xmpp_host>(host),
                                              Text(env, desk).get());
}
NATIVE(jint, xmppHistory)
(JNIEnv* env, jclass, jlong host, jbyteArray desk, jlong before, jint count, jobjectArray out) {
  char* history = nullptr;
  const int code = quor_cs_xmpp_host_history(handle<quor_cs_xmpp_host>(host), Text(env, desk).get(),
                                             before, count, &history);
  giveOut(env, out, 0, history);
  return code;
}
