// The client side of SASL authentication for an XMPP login: SCRAM-SHA-1 (RFC 5802) when the
// server offers it, else PLAIN (RFC 4616).
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quor {

class QuorSaslClient {
 public:
  // `nonce`: the client nonce; empty makes a random one (tests give a fixed one).
  QuorSaslClient(std::string user, std::string password, std::string nonce = "");

  // The mechanism to use among the server's, "" when none is supported.
  static std::string choose(const std::vector<std::string>& offered);
  // The initial response for `mechanism` (raw bytes, not yet base64).
  std::string start(const std::string& mechanism);
  // The response to a challenge; nullopt when the challenge is malformed or unsafe.
  std::optional<std::string> respond(const std::string& challenge);
  // Whether the server's final message proves it knew the password (always true for PLAIN).
  bool verifySuccess(const std::string& additionalData) const;

  static std::string base64(const std::string& bytes);
  // Decodes base64; nullopt when it is not base64.
  static std::optional<std::string> unbase64(const std::string& text);

 private:
  std::string user_;
  std::string password_;
  std::string nonce_;
  std::string mechanism_;
  std::string clientFirstBare_;
  std::string serverSignature_;
};

}  // namespace quor
