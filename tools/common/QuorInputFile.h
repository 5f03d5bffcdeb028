// Reads a tool's input file whole, within a size limit: a directory, a device that never ends
// (/dev/zero) or a file beyond the limit is refused with a clear reason instead of exhausting
// memory. Header-only; shared by the desk simulator, the replay tool and the programs.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace quor {

class QuorInputFile {
 public:
  // Input files are profiles and scripts: 16 MiB is far beyond any real one.
  static constexpr std::size_t kMaxBytes = 16u << 20;

  // The bytes of `path` ("-" for standard input), or absent with the reason in `error`.
  static std::optional<std::string> read(const std::string& path, std::string* error) {
    std::FILE* file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (!file) return fail(error, "cannot open " + path + ": " + std::strerror(errno));
    struct stat info {};
    if (fstat(fileno(file), &info) == 0 && S_ISDIR(info.st_mode)) {
      close(file);
      return fail(error, path + " is a directory");
    }
    std::string bytes;
    char buffer[1 << 16];
    std::size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) {
      if (bytes.size() + got > kMaxBytes) {
        close(file);
        return fail(error, path + " is larger than " + std::to_string(kMaxBytes >> 20) + " MiB");
      }
      bytes.append(buffer, got);
    }
    const bool failed = std::ferror(file) != 0;
    const int code = errno;
    close(file);
    if (failed) return fail(error, "cannot read " + path + ": " + std::strerror(code));
    return bytes;
  }

  // A program's secret: the first line of `path` when given, else the environment variable
  // `name` (unset leaves `secret` as it was). False, with the reason, when the file fails.
  static bool secret(const char* name, const std::string& path, std::string* secret,
                     std::string* error) {
    if (!path.empty()) {
      const auto bytes = read(path, error);
      if (!bytes) return false;
      *secret = bytes->substr(0, bytes->find_first_of("\r\n"));
      return true;
    }
    if (const char* value = std::getenv(name)) *secret = value;
    return true;
  }

 private:
  static void close(std::FILE* file) {
    if (file != stdin) std::fclose(file);
  }
  static std::optional<std::string> fail(std::string* error, std::string reason) {
    if (error) *error = std::move(reason);
    return std::nullopt;
  }
};

}  // namespace quor
