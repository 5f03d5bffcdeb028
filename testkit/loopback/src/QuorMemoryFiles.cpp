#include "QuorLoopbackHost/QuorMemoryFiles.h"

#include <filesystem>
#include <fstream>

#include "QuorHostBase/QuorFileCache.h"

namespace quor {

QuorMemoryFiles::QuorMemoryFiles(std::string scheme) : scheme_(std::move(scheme)) {}

std::string QuorMemoryFiles::keep(std::string bytes) {
  std::lock_guard<std::mutex> lock(mutex_);
  const std::string url = scheme_ + "://files/" + std::to_string(files_.size() + 1);
  files_[url] = std::move(bytes);
  return url;
}

std::string QuorMemoryFiles::at(const std::string& url) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = files_.find(url);
  return found == files_.end() ? "" : found->second;
}

void QuorMemoryFiles::setCacheDirectory(std::string directory) {
  std::lock_guard<std::mutex> lock(mutex_);
  cacheDirectory_ = std::move(directory);
}

std::string QuorMemoryFiles::save(const std::string& url, const std::string& name) const {
  std::string directory;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    directory = cacheDirectory_;
  }
  const std::string bytes = at(url);
  if (directory.empty() || bytes.empty()) return "";
  std::error_code failed;
  std::filesystem::create_directories(directory, failed);
  const std::string path = QuorFileCache(directory).pathFor(url, name);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
  return out.flush() ? path : "";
}

void QuorMemoryFiles::upload(std::function<void()> upload, const Post& post) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (held_) return heldUploads_.push_back(std::move(upload));
  }
  post(std::move(upload));
}

void QuorMemoryFiles::holdUploads(bool held, const Post& post) {
  std::vector<std::function<void()>> released;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    held_ = held;
    if (!held) released.swap(heldUploads_);
  }
  for (auto& upload : released) post(std::move(upload));
}

}  // namespace quor
