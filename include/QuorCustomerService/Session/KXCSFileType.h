#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// What a file's first bytes say it is, and whether a MIME type is among the accepted ones. A
// type is never taken from a file's name. The session API uses it for the files it sends and
// downloads; an app or a desk may use it for files it shows.
//
// Threads: any (no state).
class QUOR_CS_EXPORT KXCSFileType {
 public:
  struct Seen {
    std::string type = "application/octet-stream";  // when no known signature matches
    uint32_t width = 0;                             // pixels, for a picture whose header gives them
    uint32_t height = 0;
  };
  // Reads at most the first 64 KiB of the file at `path`: PNG, JPEG, GIF, WebP and PDF are
  // known, with the pixel size of the pictures.
  static Seen sniff(const std::string& path);
  static Seen sniffBytes(const std::string& head);
  // The types sendFile() takes unless the app sets others: pictures a browser shows as
  // pictures, PDF and plain text (never SVG or HTML, which run scripts).
  static const std::vector<std::string>& defaultAccepted();
  // Whether `type` (its parameters after ';' ignored, any case) matches a pattern: an exact
  // type, "image/*" for a whole kind, "*/*" for any.
  static bool accepted(const std::vector<std::string>& patterns, const std::string& type);
  // The type a downloaded file is shown as: what its bytes show when they match a known
  // signature, else plain text when it was declared so, else "application/octet-stream" (a
  // declared picture, SVG or HTML whose bytes do not show it is not trusted).
  static std::string trusted(const std::string& declared, const Seen& seen);
  // `type` in lower case without parameters or spaces ("image/png").
  static std::string essence(const std::string& type);
};

}  // namespace quor
