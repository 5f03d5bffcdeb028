// XEP-0198 stream management, the client's bookkeeping: how many stanzas it handled (for the
// server's <r/>), which of its own the server has not yet acknowledged (resent after a
// resumption), and the id under which the session can be resumed.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace quor {

class QuorStreamManagement {
 public:
  static constexpr const char* kNamespace = "urn:xmpp:sm:3";

  // The server enabled it for this stream; `resumeId` is empty when it cannot be resumed.
  void enabled(std::string resumeId);
  // The stream ended without resumption: nothing is known any more.
  void forget();
  bool isEnabled() const { return enabled_; }
  bool canResume() const { return !resumeId_.empty(); }
  const std::string& resumeId() const { return resumeId_; }

  // A stanza of ours written on the stream (message, presence, iq), with its id ("" for none).
  void sent(std::string id, std::string xml);
  // A stanza received from the server.
  void handled() { ++handled_; }
  uint32_t handledCount() const { return handled_; }
  // The server's count of our stanzas: those up to it are acknowledged, and their ids returned
  // in order. A count beyond what was sent is the server's error and acknowledges everything; an
  // older count than one seen before changes nothing.
  std::vector<std::string> acknowledged(uint32_t count);
  std::size_t unacknowledged() const { return unacked_.size(); }

  struct Stanza {
    std::string id;
    std::string xml;
  };
  // The stream was resumed and the server had handled `count` of ours: what it did not handle,
  // in order, to be written again (and counted again as sent). `acknowledgedIds` gets the ids
  // of those it did handle.
  std::vector<Stanza> resumed(uint32_t count, std::vector<std::string>* acknowledgedIds);

 private:
  bool enabled_ = false;
  std::string resumeId_;
  uint32_t handled_ = 0;
  uint32_t sentCount_ = 0;  // the count the newest unacknowledged stanza has
  std::deque<Stanza> unacked_;
};

}  // namespace quor
