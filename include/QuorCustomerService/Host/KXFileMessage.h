#pragma once

#include <cstdint>
#include <string>

#include "QuorCustomerService/Host/KXMessageContent.h"

namespace quor {

// The host's file content ("KX:FileMsg", stored): a picture or another file that was uploaded
// to where the other side can fetch it. On the wire a JSON object:
//   {"name": "parcel.jpg", "type": "image/jpeg", "size": 48213,
//    "url": "https://upload.example.com/...", "width": 1024, "height": 768, "user": {...}}
// "width" and "height" only for pictures whose pixel size is known; absent values left out.
// The local path (the file to upload, or where a received file was saved) never travels.
// Same threading rules as KXMessageContent.
class QUOR_CS_EXPORT KXFileMessage : public KXMessageContent {
 public:
  static std::string getObjectName();
  static uint32_t persistentFlag();

  std::string objectName() const override;
  uint32_t messagePersistentFlag() const override;
  KXData encode() override;
  void decodeWithData(const KXData& data) override;
  // "[file] name" (the conversation list's preview).
  KXString conversationDigest() const override;

  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  // The MIME type the sender gave; a receiver checks the bytes before it trusts it.
  const std::string& mimeType() const { return mimeType_; }
  void setMimeType(std::string type) { mimeType_ = std::move(type); }
  uint64_t size() const { return size_; }
  void setSize(uint64_t size) { size_ = size; }
  const std::string& url() const { return url_; }
  void setUrl(std::string url) { url_ = std::move(url); }
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  void setPixelSize(uint32_t width, uint32_t height) {
    width_ = width;
    height_ = height;
  }
  const std::string& localPath() const { return localPath_; }
  void setLocalPath(std::string path) { localPath_ = std::move(path); }

 private:
  std::string name_;
  std::string mimeType_;
  uint64_t size_ = 0;
  std::string url_;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  std::string localPath_;
};

}  // namespace quor
