#include "QuorPrivateServer/QuorChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

namespace quor {
std::string QuorChildProcess::readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::unique_ptr<QuorChildProcess> QuorChildProcess::start(const std::vector<std::string>& arguments,
                                                          const std::string& outputPath,
                                                          std::string* error, bool diesWithCaller) {
  if (arguments.empty()) {
    if (error) *error = "no program";
    return nullptr;
  }
  std::vector<std::string> copies = arguments;
  std::vector<char*> argv;
  for (auto& argument : copies) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) {
    if (error) *error = "fork failed";
    return nullptr;
  }
  if (child == 0) {
    // The child dies with the thread that started it, however that thread ends.
    if (diesWithCaller) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::getppid() != parent) ::_exit(127);
    }
    const int out = ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (out >= 0) {
      ::dup2(out, STDOUT_FILENO);
      ::dup2(out, STDERR_FILENO);
    }
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  return std::unique_ptr<QuorChildProcess>(new QuorChildProcess(child, outputPath));
}

QuorChildProcess::~QuorChildProcess() { stop(SIGTERM); }

bool QuorChildProcess::running() {
  if (pid_ <= 0) return false;
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) == pid_) pid_ = -1;
  return pid_ > 0;
}

void QuorChildProcess::stop(int signal, std::chrono::milliseconds patience) {
  if (!running()) return;
  ::kill(pid_, signal);
  const auto deadline = std::chrono::steady_clock::now() + patience;
  int status = 0;
  while (::waitpid(pid_, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() >= deadline) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  pid_ = -1;
}

bool QuorChildProcess::waitForOutput(const std::string& text, std::size_t from,
                                     std::chrono::milliseconds patience, std::string* error) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (;;) {
    const std::string output = readFile(outputPath_);
    if (output.size() > from && output.find(text, from) != std::string::npos) return true;
    const bool ended = !running();
    if (ended || std::chrono::steady_clock::now() >= deadline) {
      if (error)
        *error = (ended ? "it exited: " : "it did not say \"" + text + "\" in time: ") +
                 (output.size() > from ? output.substr(from) : "");
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

double QuorChildProcess::cpuSeconds() const {
  if (pid_ <= 0) return 0;
  // /proc/PID/stat: after the name in parentheses, fields 14 and 15 are utime and stime.
  const std::string stat = readFile("/proc/" + std::to_string(pid_) + "/stat");
  const auto close = stat.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream fields(stat.substr(close + 2));
  std::string field;
  unsigned long long user = 0, system = 0;
  for (int index = 3; fields >> field; ++index) {
    if (index == 14) user = std::stoull(field);
    if (index == 15) {
      system = std::stoull(field);
      break;
    }
  }
  return static_cast<double>(user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

}  // namespace quor
