#pragma once

#include <string>

namespace quor {

// Where received files are saved: one directory that the app chooses and may empty at any time.
// A file's name comes from the other side, so it is made safe before it names anything here:
// only its last part, without control characters, path separators or the characters Windows
// refuses, never "." or "..", never a device name (CON, NUL, COM1 ...), at most 100 bytes of
// UTF-8; each file is kept under a key of its URL, so two files of one name never meet.
//
// Threads: any (no state beyond the directory).
class QuorFileCache {
 public:
  explicit QuorFileCache(std::string directory) : directory_(std::move(directory)) {}
  const std::string& directory() const { return directory_; }
  // "<directory>/<key of url>-<safe name>".
  std::string pathFor(const std::string& url, const std::string& name) const;
  // `name` as a file name that stays inside a directory on every system; "file" when nothing
  // of it is left.
  static std::string safeName(const std::string& name);

 private:
  std::string directory_;
};

}  // namespace quor
