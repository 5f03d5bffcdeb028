// The JNI layer of the test kit: each native method of com.quor.cs.KitNative calls one function
// of quor_cs_kit.h. Its own library (libquor_cs_kit_jni), so that an app ships the JNI layer of
// libquor_cs without the kit.
#include "QuorCustomerService/quor_cs_kit.h"
#include "QuorJniBytes.h"

using namespace quor::jni;

#define NATIVE(type, name) extern "C" JNIEXPORT type JNICALL Java_com_quor_cs_KitNative_##name

NATIVE(jlong, kitCreate)(JNIEnv* env, jclass, jbyteArray profile, jobjectArray error) {
  return createWithReason(env, profile, error, quor_cs_kit_create);
}
NATIVE(void, kitDestroy)(JNIEnv*, jclass, jlong kit) {
  quor_cs_kit_destroy(handle<quor_cs_kit>(kit));
}
NATIVE(jbyteArray, kitDeskId)(JNIEnv* env, jclass, jlong kit) {
  return bytes(env, quor_cs_kit_desk_id(handle<quor_cs_kit>(kit)));
}
NATIVE(void, kitSettle)(JNIEnv*, jclass, jlong kit) {
  quor_cs_kit_settle(handle<quor_cs_kit>(kit));
}
NATIVE(jint, kitDeskSay)(JNIEnv* env, jclass, jlong kit, jbyteArray text) {
  return quor_cs_kit_desk_say(handle<quor_cs_kit>(kit), Text(env, text).get());
}
NATIVE(jint, kitDeskRequestRating)(JNIEnv*, jclass, jlong kit) {
  return quor_cs_kit_desk_request_rating(handle<quor_cs_kit>(kit));
}
NATIVE(jint, kitDeskEnd)(JNIEnv* env, jclass, jlong kit, jbyteArray text, jint code) {
  return quor_cs_kit_desk_end(handle<quor_cs_kit>(kit), Text(env, text).get(), code);
}
NATIVE(jint, kitDeskInviteLeaveMessage)(JNIEnv* env, jclass, jlong kit, jbyteArray text) {
  return quor_cs_kit_desk_invite_leave_message(handle<quor_cs_kit>(kit), Text(env, text).get());
}
NATIVE(jint, kitDeskTyping)(JNIEnv*, jclass, jlong kit, jboolean typing) {
  return quor_cs_kit_desk_typing(handle<quor_cs_kit>(kit), typing ? 1 : 0);
}
NATIVE(jint, kitDeskRead)(JNIEnv*, jclass, jlong kit) {
  return quor_cs_kit_desk_read(handle<quor_cs_kit>(kit));
}
NATIVE(jint, kitSetMaxFileBytes)(JNIEnv*, jclass, jlong kit, jlong bytes) {
  return quor_cs_kit_set_max_file_bytes(handle<quor_cs_kit>(kit), static_cast<uint64_t>(bytes));
}
NATIVE(jint, kitHoldUploads)(JNIEnv*, jclass, jlong kit, jboolean held) {
  return quor_cs_kit_hold_uploads(handle<quor_cs_kit>(kit), held ? 1 : 0);
}
NATIVE(jint, kitSetFileCache)(JNIEnv* env, jclass, jlong kit, jbyteArray directory) {
  return quor_cs_kit_set_file_cache(handle<quor_cs_kit>(kit), Text(env, directory).get());
}
NATIVE(jint, kitDeskFile)
(JNIEnv* env, jclass, jlong kit, jbyteArray name, jbyteArray mimeType, jbyteArray data) {
  const Text bytes(env, data);
  return quor_cs_kit_desk_file(handle<quor_cs_kit>(kit), Text(env, name).get(),
                               Text(env, mimeType).get(), bytes.get(), bytes.size());
}
NATIVE(jint, kitCustomerTyping)(JNIEnv*, jclass, jlong kit) {
  return quor_cs_kit_customer_typing(handle<quor_cs_kit>(kit));
}
