#pragma once

#include <string>

namespace quor {

// The reversible map between the library's desk ids (and user ids) and XMPP JIDs.
//
// A JID's local part is case-folded by the server and may not hold some characters, so an id
// becomes the local part with every byte other than a-z, 0-9, '-', '.' and '_' written as '\'
// and two lower-case hex digits: XEP-0106's form (a space is "\20", '@' is "\40", '\' is "\5c"),
// applied also to upper-case letters and non-ASCII bytes, so "Shop" and "shop" stay apart.
// Stateless; callable from any thread.
class QuorDeskJid {
 public:
  // "shop-desk" on "example.com" -> "shop-desk@example.com"; "" for an empty id or one whose
  // local part would pass 1023 bytes.
  static std::string toJid(const std::string& id, const std::string& domain);
  // The id of a bare or full JID on `domain` (the local part unescaped); a JID of another domain
  // or without a local part is its own id (the bare JID), which toJid() does not map back.
  static std::string fromJid(const std::string& jid, const std::string& domain);
};

}  // namespace quor
