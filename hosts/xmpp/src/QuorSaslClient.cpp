#include "QuorSaslClient.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>

namespace quor {
namespace {

constexpr const char* kScram = "SCRAM-SHA-1";
constexpr const char* kPlain = "PLAIN";
// A server asking for more iterations would make the login a denial of service.
constexpr long kMostIterations = 1000000;

std::string hmac(const std::string& key, const std::string& data) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
       reinterpret_cast<const unsigned char*>(data.data()), data.size(), out, &length);
  return std::string(reinterpret_cast<char*>(out), length);
}

std::string sha1(const std::string& data) {
  unsigned char out[SHA_DIGEST_LENGTH];
  SHA1(reinterpret_cast<const unsigned char*>(data.data()), data.size(), out);
  return std::string(reinterpret_cast<char*>(out), sizeof out);
}

// A user name as SCRAM writes it: ',' and '=' escaped.
std::string saslName(const std::string& user) {
  std::string out;
  for (const char c : user) {
    if (c == ',') {
      out += "=2C";
    } else if (c == '=') {
      out += "=3D";
    } else {
      out += c;
    }
  }
  return out;
}

// The value of `key=` among SCRAM's comma-separated attributes; nullopt when absent.
std::optional<std::string> scramAttribute(const std::string& message, char key) {
  std::size_t at = 0;
  while (at <= message.size()) {
    const std::size_t end = std::min(message.find(',', at), message.size());
    if (end - at >= 2 && message[at] == key && message[at + 1] == '=') {
      return message.substr(at + 2, end - at - 2);
    }
    at = end + 1;
  }
  return std::nullopt;
}

}  // namespace

QuorSaslClient::QuorSaslClient(std::string user, std::string password, std::string nonce)
    : user_(std::move(user)), password_(std::move(password)), nonce_(std::move(nonce)) {
  if (nonce_.empty()) {
    unsigned char random[18];
    RAND_bytes(random, sizeof random);
    nonce_ = base64(std::string(reinterpret_cast<char*>(random), sizeof random));
  }
}

std::string QuorSaslClient::choose(const std::vector<std::string>& offered) {
  for (const char* preferred : {kScram, kPlain}) {
    if (std::find(offered.begin(), offered.end(), preferred) != offered.end()) return preferred;
  }
  return "";
}

std::string QuorSaslClient::start(const std::string& mechanism) {
  mechanism_ = mechanism;
  if (mechanism_ == kPlain) return std::string(1, '\0') + user_ + std::string(1, '\0') + password_;
  clientFirstBare_ = "n=" + saslName(user_) + ",r=" + nonce_;
  return "n,," + clientFirstBare_;
}

std::optional<std::string> QuorSaslClient::respond(const std::string& challenge) {
  if (mechanism_ != kScram) return std::nullopt;
  const auto nonce = scramAttribute(challenge, 'r');
  const auto salt = scramAttribute(challenge, 's');
  const auto iterations = scramAttribute(challenge, 'i');
  if (!nonce || !salt || !iterations || nonce->compare(0, nonce_.size(), nonce_) != 0 ||
      nonce->size() <= nonce_.size() || iterations->empty() || iterations->size() > 7 ||
      !std::all_of(iterations->begin(), iterations->end(),
                   [](unsigned char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  const long rounds = std::stol(*iterations);
  const auto saltBytes = unbase64(*salt);
  if (rounds < 1 || rounds > kMostIterations || !saltBytes) return std::nullopt;
  unsigned char salted[SHA_DIGEST_LENGTH];
  PKCS5_PBKDF2_HMAC_SHA1(password_.data(), static_cast<int>(password_.size()),
                         reinterpret_cast<const unsigned char*>(saltBytes->data()),
                         static_cast<int>(saltBytes->size()), static_cast<int>(rounds),
                         sizeof salted, salted);
  const std::string saltedPassword(reinterpret_cast<char*>(salted), sizeof salted);
  const std::string withoutProof = "c=biws,r=" + *nonce;
  const std::string authMessage = clientFirstBare_ + "," + challenge + "," + withoutProof;
  const std::string clientKey = hmac(saltedPassword, "Client Key");
  std::string proof = hmac(sha1(clientKey), authMessage);
  for (std::size_t i = 0; i < proof.size(); ++i) proof[i] ^= clientKey[i];
  serverSignature_ = hmac(hmac(saltedPassword, "Server Key"), authMessage);
  return withoutProof + ",p=" + base64(proof);
}

bool QuorSaslClient::verifySuccess(const std::string& additionalData) const {
  if (mechanism_ != kScram) return true;
  const auto verifier = scramAttribute(additionalData, 'v');
  return !serverSignature_.empty() && verifier && unbase64(*verifier) == serverSignature_;
}

std::string QuorSaslClient::base64(const std::string& bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
  out.resize(static_cast<std::size_t>(length));
  return out;
}

std::optional<std::string> QuorSaslClient::unbase64(const std::string& text) {
  if (text.size() % 4 != 0) return std::nullopt;
  if (text.empty()) return std::string();
  std::string out(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
  if (length < 0) return std::nullopt;
  // EVP_DecodeBlock counts the padding as zero bytes.
  std::size_t padding = 0;
  for (auto it = text.rbegin(); it != text.rend() && *it == '=' && padding < 2; ++it) ++padding;
  out.resize(static_cast<std::size_t>(length) - padding);
  return out;
}

}  // namespace quor
