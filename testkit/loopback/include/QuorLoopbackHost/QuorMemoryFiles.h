#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace quor {

// The files of a test kit's host, kept in memory: an upload's bytes under a URL of their own
// ("SCHEME://files/N"), a download saved into the cache directory under QuorFileCache's names,
// and uploads held until released, so that a test can cancel one while it waits.
//
// Threads: any (one mutex); held uploads are handed to the given post function.
class QuorMemoryFiles {
 public:
  using Post = std::function<void(std::function<void()>)>;
  explicit QuorMemoryFiles(std::string scheme);

  // Keeps `bytes`: their URL.
  std::string keep(std::string bytes);
  // The bytes kept under `url` ("" for none).
  std::string at(const std::string& url) const;
  void setCacheDirectory(std::string directory);
  // Writes the bytes of `url` into the cache directory under `name` (made safe): the path, or
  // "" when there are none or no cache directory.
  std::string save(const std::string& url, const std::string& name) const;
  // Hands `upload` to `post` now, or when holdUploads(false) releases it.
  void upload(std::function<void()> upload, const Post& post);
  void holdUploads(bool held, const Post& post);

 private:
  const std::string scheme_;
  mutable std::mutex mutex_;
  std::map<std::string, std::string> files_;  // bytes by URL
  std::string cacheDirectory_;
  bool held_ = false;
  std::vector<std::function<void()>> heldUploads_;
};

}  // namespace quor
