#include "Session/KXCSFileLines.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "QuorCustomerService/Session/KXCSFileType.h"
#include "Support/KXUtf8.h"

namespace quor {

KXCSFileLines::KXCSFileLines() : accepted_(KXCSFileType::defaultAccepted()) {}

KXCSServiceResult KXCSFileLines::prepare(const KXCSFileToSend& file, uint64_t maxBytes,
                                         std::shared_ptr<KXFileMessage>* content) const {
  if (maxBytes == 0) return KXCSServiceResult::FilesNotOffered;
  namespace fs = std::filesystem;
  std::error_code failed;
  const fs::path path(file.path);
  if (file.path.empty() || !fs::is_regular_file(path, failed))
    return KXCSServiceResult::FileUnreadable;
  const uint64_t size = fs::file_size(path, failed);
  if (failed || size == 0 || !std::ifstream(path, std::ios::binary))
    return KXCSServiceResult::FileUnreadable;
  if (size > maxBytes) return KXCSServiceResult::TooLarge;
  const std::string name = file.name.empty() ? path.filename().string() : file.name;
  if (!KXUtf8::isValid(name) || !KXUtf8::isValid(file.mimeType))
    return KXCSServiceResult::InvalidText;
  const KXCSFileType::Seen seen = KXCSFileType::sniff(file.path);
  const std::string type = file.mimeType.empty() ? seen.type : KXCSFileType::essence(file.mimeType);
  if (!KXCSFileType::accepted(accepted(), type)) return KXCSServiceResult::TypeNotAccepted;
  auto made = std::make_shared<KXFileMessage>();
  made->setName(name);
  made->setMimeType(type);
  made->setSize(size);
  made->setLocalPath(file.path);
  // The pixel size only of what the bytes show to be that picture.
  if (seen.type == type) made->setPixelSize(seen.width, seen.height);
  *content = std::move(made);
  return KXCSServiceResult::Done;
}

void KXCSFileLines::setAccepted(std::vector<std::string> types) {
  std::lock_guard<std::mutex> lock(mutex_);
  accepted_ = std::move(types);
}

std::vector<std::string> KXCSFileLines::accepted() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return accepted_;
}

std::shared_ptr<std::atomic<bool>> KXCSFileLines::begin(uint64_t sequence) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto [at, added] = transfers_.try_emplace(sequence);
  if (!added) return nullptr;
  at->second.cancel = std::make_shared<std::atomic<bool>>(false);
  return at->second.cancel;
}

void KXCSFileLines::end(uint64_t sequence) {
  std::lock_guard<std::mutex> lock(mutex_);
  transfers_.erase(sequence);
}

bool KXCSFileLines::cancel(uint64_t sequence) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto at = transfers_.find(sequence);
  if (at == transfers_.end()) return false;
  at->second.cancel->store(true);
  return true;
}

bool KXCSFileLines::progressed(uint64_t sequence, uint64_t done, uint64_t total) {
  if (total == 0) return false;
  const int percent = done >= total ? 100 : static_cast<int>(done * 100.0 / total);
  std::lock_guard<std::mutex> lock(mutex_);
  const auto at = transfers_.find(sequence);
  if (at == transfers_.end() || percent <= at->second.percent) return false;
  at->second.percent = percent;
  return true;
}

void KXCSFileLines::received(uint64_t sequence, std::shared_ptr<const KXFileMessage> content) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!received_.emplace(sequence, std::move(content)).second) return;
  receivedOrder_.push_back(sequence);
  if (receivedOrder_.size() > kKept) {
    received_.erase(receivedOrder_.front());
    receivedOrder_.pop_front();
  }
}

std::shared_ptr<const KXFileMessage> KXCSFileLines::receivedFile(uint64_t sequence) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto at = received_.find(sequence);
  return at == received_.end() ? nullptr : at->second;
}

KXCSFile KXCSFileLines::lineFile(const KXFileMessage& content) {
  KXCSFile file;
  file.name = content.name();
  file.mimeType = content.mimeType();
  file.size = content.size();
  file.width = content.width();
  file.height = content.height();
  file.url = content.url();
  file.localPath = content.localPath();
  return file;
}

std::shared_ptr<KXFileMessage> KXCSFileLines::contentOf(const KXCSFile& file) {
  auto content = std::make_shared<KXFileMessage>();
  content->setName(file.name);
  content->setMimeType(file.mimeType);
  content->setSize(file.size);
  content->setPixelSize(file.width, file.height);
  content->setUrl(file.url);
  content->setLocalPath(file.localPath);
  return content;
}

}  // namespace quor
