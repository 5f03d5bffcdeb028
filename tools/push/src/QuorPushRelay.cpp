#include "QuorPushRelay.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <thread>

namespace quor {
namespace {

// Writes all of `text` to `fd`, giving up at `deadline`.
bool writeAll(int fd, const std::string& text, std::chrono::steady_clock::time_point deadline) {
  std::size_t done = 0;
  while (done < text.size()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                          deadline - std::chrono::steady_clock::now())
                          .count();
    if (left <= 0) return false;
    pollfd out{fd, POLLOUT, 0};
    if (::poll(&out, 1, static_cast<int>(left)) <= 0) continue;
    const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
    if (wrote < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (wrote > 0) done += static_cast<std::size_t>(wrote);
  }
  return true;
}

}  // namespace

QuorPushRelay::QuorPushRelay(Options options) : options_(std::move(options)) {
  if (options_.kind == Kind::Post) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    curl_ = curl_easy_init();
  }
}

QuorPushRelay::~QuorPushRelay() {
  if (curl_) {
    curl_easy_cleanup(static_cast<CURL*>(curl_));
    curl_global_cleanup();
  }
}

bool QuorPushRelay::deliver(const QuorPushNotification& notification, std::string* error) {
  const std::string json = notification.toJson();
  switch (options_.kind) {
    case Kind::Print:
      std::printf("%s\n", json.c_str());
      std::fflush(stdout);
      return true;
    case Kind::Command:
      return runCommand(json + "\n", error);
    case Kind::Post:
      return post(json, error);
  }
  return false;
}

bool QuorPushRelay::runCommand(const std::string& json, std::string* error) const {
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
    *error = "cannot make a pipe";
    return false;
  }
  const pid_t child = ::fork();
  if (child < 0) {
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);
    *error = "cannot start the command";
    return false;
  }
  if (child == 0) {
    ::dup2(pipeFds[0], STDIN_FILENO);
    ::execl("/bin/sh", "sh", "-c", options_.target.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(pipeFds[0]);
  ::fcntl(pipeFds[1], F_SETFL, O_NONBLOCK);
  const auto deadline = std::chrono::steady_clock::now() + options_.timeout;
  // A command that does not read fails the write (EPIPE): the program ignores SIGPIPE.
  writeAll(pipeFds[1], json, deadline);
  ::close(pipeFds[1]);
  int status = 0;
  for (;;) {
    const pid_t done = ::waitpid(child, &status, WNOHANG);
    if (done == child) break;
    if (std::chrono::steady_clock::now() >= deadline) {
      ::kill(child, SIGKILL);
      ::waitpid(child, &status, 0);
      *error = "the command took longer than " + std::to_string(options_.timeout.count()) + " ms";
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  *error = WIFEXITED(status) ? "the command exited with " + std::to_string(WEXITSTATUS(status))
                             : "the command was ended by a signal";
  return false;
}

bool QuorPushRelay::post(const std::string& json, std::string* error) {
  auto* curl = static_cast<CURL*>(curl_);
  if (!curl) {
    *error = "libcurl did not start";
    return false;
  }
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
  curl_easy_setopt(curl, CURLOPT_URL, options_.target.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, json.c_str());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(json.size()));
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(options_.timeout.count()));
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  // Only the web's protocols: a URL of another scheme is refused, not followed.
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(
      curl, CURLOPT_WRITEFUNCTION,
      +[](char*, size_t size, size_t count, void*) { return size * count; });
  const CURLcode result = curl_easy_perform(curl);
  curl_slist_free_all(headers);
  if (result != CURLE_OK) {
    *error = curl_easy_strerror(result);
    return false;
  }
  long code = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code);
  if (code >= 200 && code < 300) return true;
  *error = "the endpoint answered " + std::to_string(code);
  return false;
}

}  // namespace quor
