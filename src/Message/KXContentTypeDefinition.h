// Defines the parts that every message content type has in common: its object name, its
// storage flags, and the one-way rule (a received type encodes to absent, a sent type ignores
// received bytes).
#pragma once

#define KX_CONTENT_TYPE(Class, name, flag)                          \
  std::string Class::getObjectName() { return name; }               \
  uint32_t Class::persistentFlag() { return flag; }                 \
  std::string Class::objectName() const { return getObjectName(); } \
  uint32_t Class::messagePersistentFlag() const { return persistentFlag(); }

#define KX_RECEIVED_CONTENT_TYPE(Class, name, flag) \
  KX_CONTENT_TYPE(Class, name, flag)                \
  KXData Class::encode() { return std::nullopt; }

#define KX_SENT_CONTENT_TYPE(Class, name, flag) \
  KX_CONTENT_TYPE(Class, name, flag)            \
  void Class::decodeWithData(const KXData&) {}
