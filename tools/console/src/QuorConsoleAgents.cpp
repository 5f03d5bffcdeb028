#include "QuorDeskConsole/QuorConsoleAgents.h"

#include <sodium.h>

#include <cstdlib>

namespace quor {
namespace {

constexpr const char* kAgentPrefix = "agent:";
constexpr const char* kSessionPrefix = "session:";

int64_t nowSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::string hex(const unsigned char* bytes, std::size_t size) {
  std::string out(size * 2 + 1, '\0');
  sodium_bin2hex(out.data(), out.size(), bytes, size);
  out.pop_back();
  return out;
}

std::string randomHex(std::size_t bytes) {
  std::string raw(bytes, '\0');
  randombytes_buf(raw.data(), raw.size());
  return hex(reinterpret_cast<const unsigned char*>(raw.data()), raw.size());
}

bool sameText(const std::string& given, const std::string& expected) {
  return given.size() == expected.size() &&
         sodium_memcmp(given.data(), expected.data(), expected.size()) == 0;
}

}  // namespace

QuorConsoleAgents::QuorConsoleAgents(QuorDeskStore& store) : store_(store) {
  if (sodium_init() < 0) std::abort();  // no randomness: nothing here could be trusted
}

std::string QuorConsoleAgents::add(const std::string& name, const std::string& password) {
  if (name.empty() || name.size() > kLongestName) {
    return "an agent's name has 1 to " + std::to_string(kLongestName) + " bytes";
  }
  for (const unsigned char c : name) {
    if (c < 0x20 || c == 0x7f) return "an agent's name has no control characters";
  }
  if (password.size() < kShortestPassword) {
    return "a password has at least " + std::to_string(kShortestPassword) + " characters";
  }
  if (password == name) return "a password is not the agent's name";
  char hash[crypto_pwhash_STRBYTES];
  {
    std::lock_guard<std::mutex> lock(checking_);
    if (crypto_pwhash_str(hash, password.data(), password.size(),
                          crypto_pwhash_OPSLIMIT_INTERACTIVE,
                          crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
      return "no memory to hash the password";
    }
  }
  if (!store_.setFact(kAgentPrefix + name, hash)) return "cannot store: " + store_.lastError();
  return "";
}

bool QuorConsoleAgents::remove(const std::string& name) {
  if (!store_.fact(kAgentPrefix + name)) return false;
  store_.removeFact(kAgentPrefix + name);
  return true;
}

std::vector<std::string> QuorConsoleAgents::names() const {
  std::vector<std::string> found;
  for (const auto& [key, hash] : store_.facts(kAgentPrefix))
    found.push_back(key.substr(std::char_traits<char>::length(kAgentPrefix)));
  return found;
}

std::string QuorConsoleAgents::logIn(const std::string& name, const std::string& password) {
  const std::string hash = store_.fact(kAgentPrefix + name).value_or("");
  {
    std::lock_guard<std::mutex> lock(checking_);
    // An unknown name costs the same as a wrong password.
    static const std::string decoy = [] {
      char made[crypto_pwhash_STRBYTES] = {};
      const bool hashed = crypto_pwhash_str(made, "decoy", 5, crypto_pwhash_OPSLIMIT_INTERACTIVE,
                                            crypto_pwhash_MEMLIMIT_INTERACTIVE) == 0;
      return hashed ? std::string(made) : std::string();
    }();
    const std::string& checked = hash.empty() ? decoy : hash;
    if (crypto_pwhash_str_verify(checked.c_str(), password.data(), password.size()) != 0 ||
        hash.empty()) {
      return "";
    }
  }
  // Sessions that ended go now: the store keeps only those that may still be used.
  for (const auto& [key, session] : store_.facts(kSessionPrefix)) {
    if (std::strtoll(session.c_str(), nullptr, 10) < nowSeconds()) store_.removeFact(key);
  }
  const std::string cookie = randomHex(32);
  const int64_t expires =
      nowSeconds() + std::chrono::duration_cast<std::chrono::seconds>(kSessionLife).count();
  store_.setFact(kSessionPrefix + cookieKey(cookie), std::to_string(expires) + " " + name);
  return cookie;
}

std::string QuorConsoleAgents::agentOf(const std::string& cookie) const {
  if (cookie.size() != 64) return "";
  const auto session = store_.fact(kSessionPrefix + cookieKey(cookie));
  if (!session) return "";
  const auto space = session->find(' ');
  if (space == std::string::npos) return "";
  const int64_t expires = std::strtoll(session->c_str(), nullptr, 10);
  const std::string name = session->substr(space + 1);
  // A session ends with its time, and with its agent.
  if (expires < nowSeconds() || !store_.fact(kAgentPrefix + name)) return "";
  return name;
}

void QuorConsoleAgents::logOut(const std::string& cookie) {
  if (cookie.size() == 64) store_.removeFact(kSessionPrefix + cookieKey(cookie));
}

std::string QuorConsoleAgents::setupCode() {
  std::lock_guard<std::mutex> lock(setup_);
  if (!names().empty()) {
    setupCode_.clear();
    return "";
  }
  if (setupCode_.empty()) setupCode_ = randomHex(16);
  return setupCode_;
}

std::string QuorConsoleAgents::setUp(const std::string& code, const std::string& name,
                                     const std::string& password, std::string* cookie) {
  {
    std::lock_guard<std::mutex> lock(setup_);
    if (setupCode_.empty() || !names().empty() || !sameText(code, setupCode_)) {
      return "this setup link was used already: log in";
    }
    const std::string problem = add(name, password);
    if (!problem.empty()) return problem;
    setupCode_.clear();
  }
  *cookie = logIn(name, password);
  return "";
}

std::string QuorConsoleAgents::cookieKey(const std::string& cookie) {
  unsigned char digest[crypto_generichash_BYTES];
  crypto_generichash(digest, sizeof digest, reinterpret_cast<const unsigned char*>(cookie.data()),
                     cookie.size(), nullptr, 0);
  return hex(digest, sizeof digest);
}

}  // namespace quor
