#include "QuorPushService/QuorPushService.h"

#include <atomic>
#include <cstdlib>
#include <unordered_map>

#include "QuorComponentLink.h"
#include "QuorXmppHost/QuorDeskJid.h"

namespace quor {
namespace {

constexpr const char* kPubsub = "http://jabber.org/protocol/pubsub";
constexpr const char* kPush = "urn:xmpp:push:0";
constexpr const char* kData = "jabber:x:data";
constexpr const char* kDiscoInfo = "http://jabber.org/protocol/disco#info";
constexpr const char* kStanzas = "urn:ietf:params:xml:ns:xmpp-stanzas";
// The devices whose counts are kept; past this the counts start again (each at 1).
constexpr std::size_t kMostDevices = 100000;

// A data form's fields (XEP-0004), the first value of each.
std::unordered_map<std::string, std::string> fieldsOf(const QuorXmlElement* form) {
  std::unordered_map<std::string, std::string> fields;
  if (!form) return fields;
  for (const auto& field : form->children()) {
    if (field->localName() != "field") continue;
    const QuorXmlElement* value = field->child("value");
    fields.emplace(field->attribute("var"), value ? value->text() : "");
  }
  return fields;
}

std::string bare(const std::string& jid) { return jid.substr(0, jid.find('/')); }

}  // namespace

// The service's work on the link's thread: each publish answered, filtered, counted, handed on.
class QuorPushService::Publishes {
 public:
  Publishes(Options options, Sink sink, Log log)
      : options_(std::move(options)),
        sink_(std::move(sink)),
        log_(std::move(log)),
        link_(
            {options_.server, options_.port, options_.domain, options_.componentSecret},
            [this](const QuorXmlElement& stanza) { take(stanza); }, log_) {}

  QuorComponentLink& link() { return link_; }
  std::atomic<uint64_t> delivered{0};
  std::atomic<uint64_t> ignored{0};

 private:
  void take(const QuorXmlElement& stanza) {
    if (stanza.localName() != "iq") return;
    const std::string& type = stanza.attribute("type");
    if (type != "get" && type != "set") return;
    if (type == "get" && stanza.child("query", kDiscoInfo)) {
      auto iq = reply(stanza, "result");
      auto& query = iq->add("query", kDiscoInfo);
      query.add("identity").set("category", "pubsub").set("type", "push");
      query.add("feature").set("var", kPush);
      link_.send(iq->toXml());
      return;
    }
    const QuorXmlElement* pubsub = stanza.child("pubsub", kPubsub);
    const QuorXmlElement* publish = pubsub ? pubsub->child("publish") : nullptr;
    if (type != "set" || !publish) {
      refuse(stanza, "cancel", "service-unavailable");
      return;
    }
    const QuorXmlElement* item = publish->child("item");
    const QuorXmlElement* notification = item ? item->child("notification", kPush) : nullptr;
    const QuorXmlElement* options = pubsub->child("publish-options");
    if (!notification || publish->attribute("node").empty()) {
      refuse(stanza, "modify", "bad-request");
      return;
    }
    auto registration = fieldsOf(options ? options->child("x", kData) : nullptr);
    if (!options_.publishSecret.empty() &&
        registration[QuorPushNotification::kSecretOption] != options_.publishSecret) {
      refuse(stanza, "auth", "not-authorized");
      return;
    }
    link_.send(reply(stanza, "result")->toXml());
    auto summary = fieldsOf(notification->child("x", kData));
    const std::string sender = bare(summary["last-message-sender"]);
    const std::string account = bare(registration[QuorPushNotification::kAccountOption]);
    // Only a message from another account wakes the device: a confirmation comes from the
    // server (no local part), a carbon of the app's own message from the account itself.
    if (sender.find('@') == std::string::npos || sender == account) {
      ++ignored;
      return;
    }
    QuorPushNotification out;
    out.account = account;
    out.node = publish->attribute("node");
    out.token = registration[QuorPushNotification::kTokenOption];
    out.deskJid = sender;
    out.deskId = QuorDeskJid::fromJid(sender, options_.deskDomain.empty()
                                                  ? sender.substr(sender.find('@') + 1)
                                                  : options_.deskDomain);
    out.since = std::strtoll(registration[QuorPushNotification::kSinceOption].c_str(), nullptr, 10);
    out.unread = count(out.node, out.since);
    ++delivered;
    if (sink_) sink_(out);
  }

  // The desk's messages for `node` since `since`, this one included.
  int64_t count(const std::string& node, int64_t since) {
    if (counts_.size() >= kMostDevices && !counts_.count(node)) counts_.clear();
    auto& entry = counts_[node];
    if (entry.first != since) entry = {since, 0};
    return ++entry.second;
  }

  std::unique_ptr<QuorXmlElement> reply(const QuorXmlElement& request, const char* type) const {
    auto iq = std::make_unique<QuorXmlElement>("iq");
    iq->set("type", type).set("id", request.attribute("id"));
    iq->set("from", options_.domain).set("to", request.attribute("from"));
    return iq;
  }

  void refuse(const QuorXmlElement& request, const char* type, const char* condition) {
    auto iq = reply(request, "error");
    iq->add("error").set("type", type).add(condition, kStanzas);
    link_.send(iq->toXml());
  }

  const Options options_;
  Sink sink_;
  Log log_;
  QuorComponentLink link_;
  std::unordered_map<std::string, std::pair<int64_t, int64_t>> counts_;
};

QuorPushService::QuorPushService(Options options, Sink sink, Log log)
    : publishes_(std::make_unique<Publishes>(std::move(options), std::move(sink), std::move(log))) {
}

QuorPushService::~QuorPushService() { stop(); }

void QuorPushService::start() { publishes_->link().start(); }
void QuorPushService::stop() { publishes_->link().stop(); }
bool QuorPushService::waitUntilOnline(std::chrono::milliseconds timeout) const {
  return publishes_->link().waitUntilOnline(timeout);
}
uint64_t QuorPushService::delivered() const { return publishes_->delivered.load(); }
uint64_t QuorPushService::ignored() const { return publishes_->ignored.load(); }

}  // namespace quor
