#include "QuorXmlStream.h"

#include <dlfcn.h>

#include <expat.h>

#include <algorithm>

namespace quor {
namespace {

// Bytes handed to the parser at a time, so that a limit is checked at least this often.
constexpr std::size_t kSlice = 16 * 1024;

}  // namespace

struct QuorXmlStream::Parser {
  XML_Parser xml = nullptr;
  ~Parser() {
    if (xml) XML_ParserFree(xml);
  }
};

QuorXmlStream::QuorXmlStream(Handler& handler, Limits limits)
    : handler_(handler), limits_(limits), parser_(std::make_unique<Parser>()) {
  reset();
}

QuorXmlStream::~QuorXmlStream() = default;

void QuorXmlStream::reset() {
  if (parser_->xml) XML_ParserFree(parser_->xml);
  parser_->xml = XML_ParserCreate("UTF-8");
  // Every stanza is handed on as soon as its bytes are here, not when the next read comes.
#ifdef QUOR_CS_EXPAT_HAS_REPARSE_DEFERRAL
  XML_SetReparseDeferralEnabled(parser_->xml, XML_FALSE);
#else
  // Built with headers that lack the switch, the running library may still defer (a security
  // update backports it under the old version number): turned off where it exists.
  using SetDeferral = XML_Bool (*)(XML_Parser, XML_Bool);
  static const auto setDeferral =
      reinterpret_cast<SetDeferral>(::dlsym(RTLD_DEFAULT, "XML_SetReparseDeferralEnabled"));
  if (setDeferral) setDeferral(parser_->xml, XML_FALSE);
#endif
  XML_SetUserData(parser_->xml, this);
  XML_SetElementHandler(
      parser_->xml,
      [](void* self, const XML_Char* name, const XML_Char** attributes) {
        static_cast<QuorXmlStream*>(self)->startElement(name, attributes);
      },
      [](void* self, const XML_Char*) { static_cast<QuorXmlStream*>(self)->endElement(); });
  XML_SetCharacterDataHandler(parser_->xml, [](void* self, const XML_Char* data, int length) {
    static_cast<QuorXmlStream*>(self)->characters(data, length);
  });
  // XMPP forbids document type declarations: no entity of a server's is ever expanded.
  XML_SetStartDoctypeDeclHandler(
      parser_->xml, [](void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
        static_cast<QuorXmlStream*>(self)->fail("a document type declaration");
      });
  open_.clear();
  depth_ = 0;
  fed_ = 0;
  lastEvent_ = 0;
  error_.clear();
}

bool QuorXmlStream::feed(const char* data, std::size_t size) {
  for (std::size_t at = 0; at < size && error_.empty();) {
    const std::size_t slice = std::min(kSlice, size - at);
    if (XML_Parse(parser_->xml, data + at, static_cast<int>(slice), XML_FALSE) != XML_STATUS_OK &&
        error_.empty()) {
      error_ = std::string("not well-formed: ") + XML_ErrorString(XML_GetErrorCode(parser_->xml));
    }
    at += slice;
    fed_ += static_cast<int64_t>(slice);
    // A tag still unfinished (a huge name or attribute) is buffered by the parser: bounded too.
    if (error_.empty() && ((depth_ >= 2 && stanzaTooLarge(0)) ||
                           fed_ - lastEvent_ > static_cast<int64_t>(limits_.maxStanzaBytes))) {
      fail("a stanza over the size limit");
    }
  }
  return error_.empty();
}

void QuorXmlStream::fail(const std::string& why) {
  if (error_.empty()) error_ = why;
  XML_StopParser(parser_->xml, XML_FALSE);
}

bool QuorXmlStream::stanzaTooLarge(std::size_t pendingText) const {
  const int64_t read = XML_GetCurrentByteIndex(parser_->xml) - stanzaStart_;
  return static_cast<std::size_t>(std::max<int64_t>(read, 0)) + pendingText >
         limits_.maxStanzaBytes;
}

void QuorXmlStream::startElement(const char* name, const char** attributes) {
  if (!error_.empty()) return;
  lastEvent_ = XML_GetCurrentByteIndex(parser_->xml);
  ++depth_;
  auto element = std::make_unique<QuorXmlElement>(name);
  // expat has refused a repeated attribute name already.
  for (int i = 0; attributes[i] && attributes[i + 1]; i += 2) {
    element->append(attributes[i], attributes[i + 1]);
  }
  if (depth_ == 1) {
    handler_.onStreamStart(*element);
    return;
  }
  if (depth_ == 2) {
    stanzaStart_ = XML_GetCurrentByteIndex(parser_->xml);
  }
  if (depth_ - 1 > limits_.maxDepth) {
    fail("a stanza nested deeper than the limit");
    return;
  }
  open_.push_back(std::move(element));
}

void QuorXmlStream::endElement() {
  if (!error_.empty()) return;
  lastEvent_ = XML_GetCurrentByteIndex(parser_->xml);
  if (depth_ >= 2 && stanzaTooLarge(0)) {
    fail("a stanza over the size limit");
    return;
  }
  --depth_;
  if (depth_ == 0) {
    handler_.onStreamEnd();
    return;
  }
  std::unique_ptr<QuorXmlElement> element = std::move(open_.back());
  open_.pop_back();
  if (!open_.empty()) {
    open_.back()->add(std::move(element));
    return;
  }
  handler_.onStanza(std::move(element));
}

void QuorXmlStream::characters(const char* data, int length) {
  // Whitespace between stanzas (keepalives) is no one's text.
  if (!error_.empty()) return;
  lastEvent_ = XML_GetCurrentByteIndex(parser_->xml);
  if (open_.empty()) return;
  if (stanzaTooLarge(static_cast<std::size_t>(length))) {
    fail("a stanza over the size limit");
    return;
  }
  open_.back()->appendText(data, static_cast<std::size_t>(length));
}

}  // namespace quor
