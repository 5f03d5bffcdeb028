#pragma once

#include <string>
#include <utility>
#include <vector>

namespace quor {

// Where one file goes (XEP-0363): the URL to PUT its bytes to, with the headers the service
// asks for on that PUT, and the URL it is fetched from afterwards. A plain value.
struct QuorXmppUploadSlot {
  std::string putUrl;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string getUrl;
};

}  // namespace quor
