// The reading side of an XMPP stream: bytes in, the stream's header and whole stanzas out, with
// bounds on what a server may send.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "QuorXmlElement.h"

namespace quor {

class QuorXmlStream {
 public:
  struct Limits {
    std::size_t maxStanzaBytes = 1024 * 1024;  // one stanza's bytes on the wire
    int maxDepth = 32;                         // elements inside a stanza, the stanza included
  };
  class Handler {
   public:
    virtual ~Handler() = default;
    // The <stream:stream> opening tag, as an element without children.
    virtual void onStreamStart(const QuorXmlElement& header) = 0;
    // A whole top-level element of the stream (a stanza, features, a nonza).
    virtual void onStanza(std::unique_ptr<QuorXmlElement> stanza) = 0;
    // </stream:stream>
    virtual void onStreamEnd() = 0;
  };

  QuorXmlStream(Handler& handler, Limits limits);
  ~QuorXmlStream();
  QuorXmlStream(const QuorXmlStream&) = delete;
  QuorXmlStream& operator=(const QuorXmlStream&) = delete;

  // Reads more of the stream. False once the stream is not well-formed XML, holds a document
  // type declaration, or breaks a limit: error() says which, and nothing more is read.
  bool feed(const char* data, std::size_t size);
  // Starts reading a new stream (after STARTTLS or authentication).
  void reset();
  const std::string& error() const { return error_; }

 private:
  struct Parser;
  void fail(const std::string& why);
  void startElement(const char* name, const char** attributes);
  void endElement();
  void characters(const char* data, int length);
  bool stanzaTooLarge(std::size_t pendingText) const;

  Handler& handler_;
  const Limits limits_;
  std::unique_ptr<Parser> parser_;
  // Elements open inside the current stanza, outermost first.
  std::vector<std::unique_ptr<QuorXmlElement>> open_;
  int depth_ = 0;  // 1 inside <stream:stream>, 2 inside a stanza, ...
  int64_t stanzaStart_ = 0;
  int64_t fed_ = 0;        // bytes of this stream fed so far
  int64_t lastEvent_ = 0;  // where the parser last reported something: what follows is buffered
  std::string error_;
};

}  // namespace quor
