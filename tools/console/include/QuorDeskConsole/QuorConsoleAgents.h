#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "QuorXmppDesk/QuorDeskStore.h"

namespace quor {

// The desk's agents and their console sessions, kept in the desk's store: each agent is a name
// with a salted password hash (libsodium's Argon2id, crypto_pwhash_str), and each login a random
// session cookie of which only a hash is stored, valid for kSessionLife. A desk without agents
// offers a one-time setup code, with which the first agent is made.
//
// Threads: every function may be called from any thread. A password check takes about 0.1 s and
// 64 MiB; checks run one at a time, so that a flood of logins costs time, not memory.
class QuorConsoleAgents {
 public:
  static constexpr std::size_t kShortestPassword = 10;
  static constexpr std::size_t kLongestName = 64;
  static constexpr std::chrono::hours kSessionLife{12};

  explicit QuorConsoleAgents(QuorDeskStore& store);

  // Adds an agent or sets their password: "" when done, else why not (a weak password, a name
  // that is empty, too long or holds control characters).
  std::string add(const std::string& name, const std::string& password);
  bool remove(const std::string& name);
  std::vector<std::string> names() const;

  // A new session of `name` when the password is right: its cookie value; "" when not.
  std::string logIn(const std::string& name, const std::string& password);
  // The agent of a session cookie; "" for none, an unknown one or one that expired.
  std::string agentOf(const std::string& cookie) const;
  void logOut(const std::string& cookie);

  // The one-time code that makes the first agent; "" once the desk has one.
  std::string setupCode();
  // Makes the first agent with the setup code and logs them in: the session's cookie in
  // `cookie`; "" when done, else why not.
  std::string setUp(const std::string& code, const std::string& name, const std::string& password,
                    std::string* cookie);

 private:
  static std::string cookieKey(const std::string& cookie);

  QuorDeskStore& store_;
  mutable std::mutex checking_;  // one password check at a time
  std::mutex setup_;
  std::string setupCode_;
};

}  // namespace quor
