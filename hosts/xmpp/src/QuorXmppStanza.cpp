#include "QuorXmppStanza.h"

#include <sys/random.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <random>

#include "QuorXmppHost/QuorPushNotification.h"
#include "QuorXmppHost/QuorXmppErrors.h"

namespace quor {
namespace {

constexpr const char* kDelay = "urn:xmpp:delay";
constexpr const char* kStanzaErrors = "urn:ietf:params:xml:ns:xmpp-stanzas";
constexpr const char* kStanzaIds = "urn:xmpp:sid:0";
constexpr const char* kArchive = "urn:xmpp:mam:2";
constexpr const char* kForward = "urn:xmpp:forward:0";
constexpr const char* kResultSets = "http://jabber.org/protocol/rsm";

// A whole, non-negative decimal number of at most 18 digits; -1 otherwise.
int64_t parseStamp(const std::string& text) {
  if (text.empty() || text.size() > 18) return -1;
  int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return -1;
    value = value * 10 + (c - '0');
  }
  return value;
}

}  // namespace

int64_t QuorXmppStanza::wallClockMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::string QuorXmppStanza::uniqueId() {
  unsigned char bytes[16] = {};
  std::size_t filled = 0;
  while (filled < sizeof bytes) {
    const ssize_t got = ::getrandom(bytes + filled, sizeof bytes - filled, 0);
    if (got > 0) {
      filled += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      // No getrandom(): the standard library's source of randomness fills the rest.
      std::random_device device;
      for (; filled < sizeof bytes; ++filled) bytes[filled] = static_cast<unsigned char>(device());
    }
  }
  static constexpr char kHex[] = "0123456789abcdef";
  std::string id = "quor-";
  for (const unsigned char byte : bytes) {
    id += kHex[byte >> 4];
    id += kHex[byte & 0x0F];
  }
  return id;
}

std::string QuorXmppStanza::bareJid(const std::string& jid) { return jid.substr(0, jid.find('/')); }

std::string QuorXmppStanza::domainOf(const std::string& jid) {
  const std::string bare = bareJid(jid);
  const auto at = bare.find('@');
  return at == std::string::npos ? bare : bare.substr(at + 1);
}

bool QuorXmppStanza::isXmlText(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t size = text.size();
  for (std::size_t i = 0; i < size;) {
    const unsigned char lead = bytes[i];
    if (lead < 0x80) {
      if (lead < 0x20 && lead != '\t' && lead != '\n' && lead != '\r') return false;
      ++i;
      continue;
    }
    int length;
    uint32_t code;
    if ((lead & 0xE0) == 0xC0) {
      length = 2;
      code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3;
      code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4;
      code = lead & 0x07;
    } else {
      return false;
    }
    if (i + length > size) return false;
    for (int k = 1; k < length; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80) return false;
      code = (code << 6) | (bytes[i + k] & 0x3F);
    }
    const uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < smallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF) ||
        code == 0xFFFE || code == 0xFFFF) {
      return false;
    }
    i += length;
  }
  return true;
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::payloadMessage(const QuorXmppPayload& payload) {
  if (payload.objectName.empty() || (payload.body && !isXmlText(*payload.body)) ||
      !isXmlText(payload.objectName) || !isXmlText(payload.sender) || !isXmlText(payload.peer) ||
      payload.peer.empty()) {
    return nullptr;
  }
  auto message = std::make_unique<QuorXmlElement>("message");
  message->set("type", "chat").set("to", payload.peer).set("id", payload.stanzaId);
  // A fixed text for what reads only bodies: other clients of the account show it, and servers
  // summarise, copy (carbons) and push only messages that have one. The content never goes
  // there, so no push payload or server log carries it.
  message->add("body").setText(QuorXmppFallbackBody);
  message->add("fallback", "urn:xmpp:fallback:0").set("for", QuorXmppPayloadNamespace);
  auto& cs = message->add("cs", QuorXmppPayloadNamespace);
  cs.set("name", payload.objectName);
  if (!payload.sender.empty()) cs.set("sender", payload.sender);
  if (payload.body) cs.setText(*payload.body);
  message->add("origin-id", kStanzaIds).set("id", payload.stanzaId);
  // Servers archive a message with this hint whatever its body.
  message->add("store", "urn:xmpp:hints");
  return message;
}

bool QuorXmppStanza::readPayload(const QuorXmlElement& message, QuorXmppPayload* payload) {
  const QuorXmlElement* cs = message.child("cs", QuorXmppPayloadNamespace);
  if (!cs) return false;
  payload->objectName = cs->attribute("name");
  if (payload->objectName.empty()) return false;
  payload->sender = cs->attribute("sender");
  payload->peer = bareJid(message.attribute("from"));
  const QuorXmlElement* origin = message.child("origin-id", kStanzaIds);
  payload->stanzaId = origin ? origin->attribute("id") : "";
  if (payload->stanzaId.empty()) payload->stanzaId = message.attribute("id");
  payload->body = std::nullopt;
  if (!cs->text().empty()) payload->body = cs->text();
  const int64_t stamp = parseStamp(cs->attribute("stamp"));
  const QuorXmlElement* delay = message.child("delay", kDelay);
  payload->offline = delay != nullptr;
  payload->stamp = stamp > 0 ? stamp : delay ? parseDateTime(delay->attribute("stamp")) : 0;
  return true;
}

std::string QuorXmppStanza::archiveIdOf(const QuorXmlElement& message, const std::string& account) {
  for (const auto& child : message.children()) {
    if (child->localName() == "stanza-id" && child->attribute("xmlns") == kStanzaIds &&
        child->attribute("by") == account) {
      return child->attribute("id");
    }
  }
  return "";
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::archiveQuery(const std::string& id,
                                                             const std::string& after,
                                                             int pageSize) {
  auto iq = std::make_unique<QuorXmlElement>("iq");
  iq->set("type", "set").set("id", id);
  auto& query = iq->add("query", kArchive);
  query.set("queryid", id);
  auto& page = query.add("set", kResultSets);
  page.add("max").setText(std::to_string(pageSize));
  if (!after.empty()) page.add("after").setText(after);
  return iq;
}

const QuorXmlElement* QuorXmppStanza::carbonCopy(const QuorXmlElement& message) {
  const QuorXmlElement* copy = message.child("sent", kCarbonsNamespace);
  if (!copy) copy = message.child("received", kCarbonsNamespace);
  const QuorXmlElement* forwarded = copy ? copy->child("forwarded", kForward) : nullptr;
  return forwarded ? forwarded->child("message") : nullptr;
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::displayedMarker(const std::string& peer,
                                                                const std::string& id) {
  auto message = std::make_unique<QuorXmlElement>("message");
  message->set("type", "chat").set("to", peer).set("id", uniqueId());
  message->add("displayed", kChatMarkersNamespace).set("id", id);
  return message;
}

bool QuorXmppStanza::isDisplayedMarker(const QuorXmlElement& message) {
  return message.child("displayed", kChatMarkersNamespace) != nullptr;
}

std::string QuorXmppStanza::displayedId(const QuorXmlElement& message) {
  const QuorXmlElement* marker = message.child("displayed", kChatMarkersNamespace);
  return marker ? marker->attribute("id") : std::string();
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::chatState(const std::string& peer, bool typing) {
  auto message = std::make_unique<QuorXmlElement>("message");
  message->set("type", "chat").set("to", peer).set("id", uniqueId());
  message->add(typing ? "composing" : "paused", kChatStatesNamespace);
  message->add("no-store", kHintsNamespace);
  return message;
}

std::optional<bool> QuorXmppStanza::readChatState(const QuorXmlElement& message) {
  if (message.child("composing", kChatStatesNamespace)) return true;
  for (const char* state : {"paused", "active", "inactive", "gone"}) {
    if (message.child(state, kChatStatesNamespace)) return false;
  }
  return std::nullopt;
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::carbonsEnable(const std::string& id) {
  auto iq = std::make_unique<QuorXmlElement>("iq");
  iq->set("type", "set").set("id", id);
  iq->add("enable", kCarbonsNamespace);
  return iq;
}

const QuorXmlElement* QuorXmppStanza::archivedMessage(const QuorXmlElement& message,
                                                      const std::string& idPrefix,
                                                      std::string* archiveId, int64_t* stamp) {
  const QuorXmlElement* result = message.child("result", kArchive);
  if (!result || result->attribute("queryid").rfind(idPrefix, 0) != 0) return nullptr;
  const QuorXmlElement* forwarded = result->child("forwarded", kForward);
  const QuorXmlElement* archived = forwarded ? forwarded->child("message") : nullptr;
  if (!archived) return nullptr;
  *archiveId = result->attribute("id");
  const QuorXmlElement* delay = forwarded->child("delay", kDelay);
  *stamp = delay ? parseDateTime(delay->attribute("stamp")) : 0;
  return archived;
}

bool QuorXmppStanza::readArchiveEnd(const QuorXmlElement& iq, bool* complete, std::string* last) {
  const QuorXmlElement* fin = iq.child("fin", kArchive);
  if (!fin) return false;
  *complete = fin->attribute("complete") == "true" || fin->attribute("complete") == "1";
  const QuorXmlElement* page = fin->child("set", kResultSets);
  // The page's children inherit its namespace.
  const QuorXmlElement* lastId = page ? page->child("last") : nullptr;
  *last = lastId ? lastId->text() : "";
  // A page without a last id has nothing after it.
  if (last->empty()) *complete = true;
  return true;
}

bool QuorXmppStanza::readConfirmation(const QuorXmlElement& message, std::string* id,
                                      int64_t* stamp) {
  const QuorXmlElement* confirmed = message.child("confirmed", QuorXmppPayloadNamespace);
  if (!confirmed) return false;
  *id = confirmed->attribute("id");
  *stamp = parseStamp(confirmed->attribute("stamp"));
  return !id->empty() && *stamp >= 0;
}

int64_t QuorXmppStanza::errorCodeOf(const QuorXmlElement& stanza) {
  const QuorXmlElement* error = stanza.child("error");
  if (!error) return QuorXmppErrorRejected;
  for (const char* condition : {"item-not-found", "service-unavailable", "recipient-unavailable",
                                "remote-server-not-found"}) {
    if (error->child(condition, kStanzaErrors)) return QuorXmppErrorNoSuchRecipient;
  }
  return QuorXmppErrorRejected;
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::pushEnable(const std::string& id,
                                                           const QuorXmppPush& push,
                                                           const std::string& node,
                                                           const std::string& account,
                                                           int64_t since) {
  auto iq = std::make_unique<QuorXmlElement>("iq");
  iq->set("type", "set").set("id", id);
  auto& enable = iq->add("enable", kPushNamespace);
  enable.set("jid", push.service).set("node", node);
  auto& form = enable.add("x", "jabber:x:data");
  form.set("type", "submit");
  const auto field = [&form](const char* name, const std::string& value) {
    form.add("field").set("var", name).add("value").setText(value);
  };
  field("FORM_TYPE", "http://jabber.org/protocol/pubsub#publish-options");
  field(QuorPushNotification::kTokenOption, push.token);
  field(QuorPushNotification::kAccountOption, account);
  field(QuorPushNotification::kSinceOption, std::to_string(since));
  if (!push.secret.empty()) field(QuorPushNotification::kSecretOption, push.secret);
  return iq;
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::pushDisable(const std::string& id,
                                                            const QuorXmppPush& push,
                                                            const std::string& node) {
  auto iq = std::make_unique<QuorXmlElement>("iq");
  iq->set("type", "set").set("id", id);
  iq->add("disable", kPushNamespace).set("jid", push.service).set("node", node);
  return iq;
}

namespace {

// <iq type='get' to=TO id=ID><query xmlns=NAMESPACE/></iq>: a service discovery question.
std::unique_ptr<QuorXmlElement> discoQuery(const std::string& to, const std::string& id,
                                           const char* xmlns) {
  auto iq = std::make_unique<QuorXmlElement>("iq");
  iq->set("type", "get").set("to", to).set("id", id);
  iq->add("query", xmlns);
  return iq;
}

}  // namespace

std::unique_ptr<QuorXmlElement> QuorXmppStanza::discoInfoQuery(const std::string& to,
                                                               const std::string& id) {
  return discoQuery(to, id, "http://jabber.org/protocol/disco#info");
}

bool QuorXmppStanza::hasFeature(const QuorXmlElement& result, const std::string& feature) {
  const QuorXmlElement* query = result.child("query");
  if (!query) return false;
  for (const auto& child : query->children()) {
    if (child->localName() == "feature" && child->attribute("var") == feature) return true;
  }
  return false;
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::discoItemsQuery(const std::string& to,
                                                                const std::string& id) {
  return discoQuery(to, id, "http://jabber.org/protocol/disco#items");
}

std::vector<std::string> QuorXmppStanza::discoItems(const QuorXmlElement& result,
                                                    std::size_t most) {
  std::vector<std::string> items;
  const QuorXmlElement* query = result.child("query");
  if (!query) return items;
  for (const auto& child : query->children()) {
    if (items.size() >= most) break;
    if (child->localName() == "item" && !child->attribute("jid").empty())
      items.push_back(child->attribute("jid"));
  }
  return items;
}

std::string QuorXmppStanza::formValue(const QuorXmlElement& result, const std::string& formType,
                                      const std::string& var) {
  const QuorXmlElement* query = result.child("query");
  if (!query) return "";
  for (const auto& form : query->children()) {
    if (form->localName() != "x" || form->attribute("xmlns") != "jabber:x:data") continue;
    std::string type, value;
    for (const auto& field : form->children()) {
      if (field->localName() != "field") continue;
      const QuorXmlElement* given = field->child("value");
      if (!given) continue;
      if (field->attribute("var") == "FORM_TYPE") type = given->text();
      if (field->attribute("var") == var) value = given->text();
    }
    if (type == formType) return value;
  }
  return "";
}

std::unique_ptr<QuorXmlElement> QuorXmppStanza::uploadSlotRequest(const std::string& service,
                                                                  const std::string& id,
                                                                  const std::string& name,
                                                                  uint64_t size,
                                                                  const std::string& type) {
  auto iq = std::make_unique<QuorXmlElement>("iq");
  iq->set("type", "get").set("to", service).set("id", id);
  auto& request = iq->add("request", kUploadNamespace);
  request.set("filename", name).set("size", std::to_string(size));
  if (!type.empty()) request.set("content-type", type);
  return iq;
}

bool QuorXmppStanza::readUploadSlot(const QuorXmlElement& result, QuorXmppUploadSlot* slot) {
  const QuorXmlElement* given = result.child("slot", kUploadNamespace);
  const QuorXmlElement* put = given ? given->child("put") : nullptr;
  const QuorXmlElement* get = given ? given->child("get") : nullptr;
  if (!put || !get || put->attribute("url").empty() || get->attribute("url").empty()) return false;
  slot->putUrl = put->attribute("url");
  slot->getUrl = get->attribute("url");
  slot->headers.clear();
  for (const auto& header : put->children()) {
    // Only the headers the protocol allows on the PUT; no line breaks into the request.
    const std::string& name = header->attribute("name");
    const bool allowed = name == "Authorization" || name == "Cookie" || name == "Expires";
    if (header->localName() == "header" && allowed &&
        header->text().find_first_of("\r\n") == std::string::npos) {
      slot->headers.emplace_back(name, header->text());
    }
  }
  return true;
}

std::string QuorXmppStanza::errorReason(const QuorXmlElement& stanza) {
  const QuorXmlElement* error = stanza.child("error");
  if (!error) return "";
  // The defined condition, then an application's own ("not-acceptable file-too-large").
  std::string condition, text;
  for (const auto& child : error->children()) {
    if (child->localName() == "text") {
      text = child->text();
    } else {
      condition += (condition.empty() ? "" : " ") + child->localName();
    }
  }
  return text.empty() ? condition : condition + ": " + text;
}

int64_t QuorXmppStanza::parseDateTime(const std::string& text) {
  std::tm parts{};
  int year, month, day, hour, minute, second, consumed = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &year, &month, &day, &hour, &minute,
                  &second, &consumed) != 6) {
    return 0;
  }
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  int64_t ms = static_cast<int64_t>(::timegm(&parts)) * 1000;
  std::size_t at = static_cast<std::size_t>(consumed);
  if (at < text.size() && text[at] == '.') {
    int64_t scale = 100;
    for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10) {
      ms += (text[at] - '0') * scale;
    }
  }
  int sign = 0, offsetHour = 0, offsetMinute = 0;
  if (at < text.size() && (text[at] == '+' || text[at] == '-') &&
      std::sscanf(text.c_str() + at + 1, "%2d:%2d", &offsetHour, &offsetMinute) == 2) {
    sign = text[at] == '+' ? 1 : -1;
  }
  return ms - sign * (offsetHour * 3600 + offsetMinute * 60) * 1000;
}

}  // namespace quor
