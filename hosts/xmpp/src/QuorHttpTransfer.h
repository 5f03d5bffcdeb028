#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "QuorXmppHost/QuorXmppUploadSlot.h"

namespace quor {

// One file's HTTP PUT to an upload slot (XEP-0363), or GET of a received file, through libcurl.
// The bytes are read from (written to) the file in pieces as they go, so memory does not grow
// with the file. Certificates are
// verified as the XMPP link's are: against the system's authorities and the URL's host, unless
// the account trusts a self-signed certificate. A link that carries nothing for `stall` ends
// the upload.
//
// Threads: put() and get() run on the caller's thread until the upload ended; `progress` is called
// on it; `cancelled` is asked on it.
class QuorHttpTransfer {
 public:
  using Progress = std::function<void(uint64_t sent, uint64_t total)>;
  struct Options {
    std::string contentType;
    bool trustSelfSignedCertificate = false;
    int stallSeconds = 30;
    // Asked as the transfer goes: true ends it ("cancelled").
    std::function<bool()> cancelled;
    Progress progress;
    // get(): the most bytes taken (more ends it: a server cannot fill the disk); the total
    // progress reports when the server names none.
    uint64_t maxBytes = 0;
  };
  // "" when the server took the file (2xx), else why not ("cancelled", "HTTP 413", curl's
  // reason).
  static std::string put(const QuorXmppUploadSlot& slot, const std::string& path,
                         const Options& options);
  // Fetches `url` (http or https only, no redirects) into the file `path`, created or
  // truncated; "" when all of it came (2xx), else why not, and the file is removed.
  static std::string get(const std::string& url, const std::string& path, const Options& options);
};

}  // namespace quor
