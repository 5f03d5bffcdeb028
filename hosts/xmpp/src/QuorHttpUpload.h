#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "QuorXmppHost/QuorXmppUploadSlot.h"

namespace quor {

// One file's HTTP PUT to an upload slot (XEP-0363), through libcurl. The bytes are read from the
// file in pieces as they are sent, so memory does not grow with the file. Certificates are
// verified as the XMPP link's are: against the system's authorities and the URL's host, unless
// the account trusts a self-signed certificate. A link that carries nothing for `stall` ends
// the upload.
//
// Threads: put() runs on the caller's thread until the upload ended; `progress` is called on it;
// `cancel` may be set from any thread.
class QuorHttpUpload {
 public:
  using Progress = std::function<void(uint64_t sent, uint64_t total)>;
  struct Options {
    std::string contentType;
    bool trustSelfSignedCertificate = false;
    int stallSeconds = 30;
    const std::atomic<bool>* cancel = nullptr;
    Progress progress;
  };
  // "" when the server took the file (2xx), else why not ("cancelled", "HTTP 413", curl's
  // reason).
  static std::string put(const QuorXmppUploadSlot& slot, const std::string& path,
                         const Options& options);
};

}  // namespace quor
