// What the JNI libraries share: strings as UTF-8 byte arrays both ways, owned C strings handed
// out, and C handles as Java longs.
#pragma once

#include <jni.h>

#include <cstdint>
#include <string>

#include "QuorCustomerService/quor_cs.h"

namespace quor::jni {

inline jbyteArray bytes(JNIEnv* env, const char* text, size_t length) {
  if (!text) return nullptr;
  jbyteArray array = env->NewByteArray(static_cast<jsize>(length));
  if (array && !env->ExceptionCheck()) {
    env->SetByteArrayRegion(array, 0, static_cast<jsize>(length),
                            reinterpret_cast<const jbyte*>(text));
  }
  return array;
}

inline jbyteArray bytes(JNIEnv* env, const char* text) {
  return text ? bytes(env, text, std::char_traits<char>::length(text)) : nullptr;
}

// A Java byte array as a NUL-terminated C string; null stays NULL.
class Text {
 public:
  Text(JNIEnv* env, jbyteArray array) : present_(array != nullptr) {
    if (!array) return;
    const jsize length = env->GetArrayLength(array);
    text_.resize(static_cast<size_t>(length));
    env->GetByteArrayRegion(array, 0, length, reinterpret_cast<jbyte*>(&text_[0]));
  }
  const char* get() const { return present_ ? text_.c_str() : nullptr; }
  size_t size() const { return text_.size(); }

 private:
  bool present_;
  std::string text_;
};

// Puts an owned C string (quor_cs_free) into out[index] as bytes.
inline void giveOut(JNIEnv* env, jobjectArray out, jsize index, char* text) {
  if (out && text && index < env->GetArrayLength(out)) {
    env->SetObjectArrayElement(out, index, bytes(env, text));
  }
  quor_cs_free(text);
}

template <class Handle>
Handle* handle(jlong value) {
  return reinterpret_cast<Handle*>(static_cast<intptr_t>(value));
}
inline jlong toLong(const void* pointer) {
  return static_cast<jlong>(reinterpret_cast<intptr_t>(pointer));
}

// A handle made by `create(text, &reason)` from a Java byte array's text, as a long; when it
// fails (0), the reason goes to out[0].
template <class Handle>
jlong createWithReason(JNIEnv* env, jbyteArray text, jobjectArray error,
                       Handle* (*create)(const char*, char**)) {
  char* reason = nullptr;
  Handle* made = create(Text(env, text).get(), &reason);
  giveOut(env, error, 0, reason);
  return toLong(made);
}

}  // namespace quor::jni
