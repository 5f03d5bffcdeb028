// Building and reading the stanzas of the customer-service wire over XMPP.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "QuorXmlElement.h"

#include "QuorXmppHost/QuorXmppOptions.h"
#include "QuorXmppHost/QuorXmppPayload.h"
#include "QuorXmppHost/QuorXmppUploadSlot.h"

namespace quor {

class QuorXmppStanza {
 public:
  static constexpr const char* kPushNamespace = "urn:xmpp:push:0";
  static constexpr const char* kClientStateNamespace = "urn:xmpp:csi:0";
  static constexpr const char* kCarbonsNamespace = "urn:xmpp:carbons:2";
  static constexpr const char* kChatMarkersNamespace = "urn:xmpp:chat-markers:0";
  static constexpr const char* kChatStatesNamespace = "http://jabber.org/protocol/chatstates";
  static constexpr const char* kHintsNamespace = "urn:xmpp:hints";
  static constexpr const char* kUploadNamespace = "urn:xmpp:http:upload:0";

  static std::string bareJid(const std::string& jid);
  static std::string domainOf(const std::string& jid);

  // <message type='chat' to=PEER id=ID><cs xmlns=NS name=NAME [sender=S]>BODY</cs>
  // <origin-id xmlns='urn:xmpp:sid:0' id=ID/><store xmlns='urn:xmpp:hints'/></message>, or null
  // when the body or a name is not valid XML text (not UTF-8, or a character XML forbids).
  static std::unique_ptr<QuorXmlElement> payloadMessage(const QuorXmppPayload& payload);
  // The payload of a received <message>: false when it has none or no name. Its stanza id is
  // the sender's origin id (XEP-0359) when it gives one, else the stanza's id attribute.
  static bool readPayload(const QuorXmlElement& message, QuorXmppPayload* payload);
  // The id under which `account`'s archive keeps a received message (its <stanza-id> by the
  // account, XEP-0359); "" when none.
  static std::string archiveIdOf(const QuorXmlElement& message, const std::string& account);
  // A query of `account`'s archive (XEP-0313) for the page after the archive id `after` (from
  // the start when ""), its results marked with `id`.
  static std::unique_ptr<QuorXmlElement> archiveQuery(const std::string& id,
                                                      const std::string& after, int pageSize);
  // A result of such a query: the archived message inside, its archive id and stamp, or null
  // when `message` is no result of a query whose id starts with `idPrefix`.
  static const QuorXmlElement* archivedMessage(const QuorXmlElement& message,
                                               const std::string& idPrefix, std::string* archiveId,
                                               int64_t* stamp);
  // A carbon copy (XEP-0280) of a message another device of the account sent or received: the
  // message inside, or null when `message` is none. The caller checks that the copy comes from
  // the account itself.
  static const QuorXmlElement* carbonCopy(const QuorXmlElement& message);
  // <message type='chat' to=PEER id=...><displayed xmlns='urn:xmpp:chat-markers:0' id=ID/>
  // </message>: the conversation with PEER was read up to the message ID (XEP-0333).
  static std::unique_ptr<QuorXmlElement> displayedMarker(const std::string& peer,
                                                         const std::string& id);
  static bool isDisplayedMarker(const QuorXmlElement& message);
  // The message id a displayed marker names; "" when the message is none.
  static std::string displayedId(const QuorXmlElement& message);
  // <message type='chat' to=PEER id=...><composing|paused xmlns=chatstates/><no-store
  // xmlns='urn:xmpp:hints'/></message>: the sender is typing or stopped (XEP-0085), a signal
  // that no archive keeps (XEP-0334).
  static std::unique_ptr<QuorXmlElement> chatState(const std::string& peer, bool typing);
  // The chat state a message carries: composing is typing (true); paused, active, inactive and
  // gone are not (false); none: nullopt.
  static std::optional<bool> readChatState(const QuorXmlElement& message);
  // <iq type='set' id=ID><enable xmlns='urn:xmpp:carbons:2'/></iq>
  static std::unique_ptr<QuorXmlElement> carbonsEnable(const std::string& id);
  // The end of such a query's answer: whether the archive has no more, and the page's last id.
  static bool readArchiveEnd(const QuorXmlElement& iq, bool* complete, std::string* last);
  // The server's <confirmed id=ID stamp=MS/>: false when the message is not one.
  static bool readConfirmation(const QuorXmlElement& message, std::string* id, int64_t* stamp);
  // The QuorXmppError code for an error stanza.
  static int64_t errorCodeOf(const QuorXmlElement& error);

  // XEP-0357: enables push at `push.service` for `node`, the device's token, the account and
  // `since` (when this background began, ms) handed back in every notification as publish
  // options; disables it for `node`.
  static std::unique_ptr<QuorXmlElement> pushEnable(const std::string& id, const QuorXmppPush& push,
                                                    const std::string& node,
                                                    const std::string& account, int64_t since);
  static std::unique_ptr<QuorXmlElement> pushDisable(const std::string& id,
                                                     const QuorXmppPush& push,
                                                     const std::string& node);

  static std::unique_ptr<QuorXmlElement> discoInfoQuery(const std::string& to,
                                                        const std::string& id);
  static bool hasFeature(const QuorXmlElement& discoResult, const std::string& feature);
  // <iq type='get' to=TO id=ID><query xmlns='...disco#items'/></iq>, and the item JIDs of its
  // result (at most `most`).
  static std::unique_ptr<QuorXmlElement> discoItemsQuery(const std::string& to,
                                                         const std::string& id);
  static std::vector<std::string> discoItems(const QuorXmlElement& result, std::size_t most);
  // The value of the field `var` in a disco#info result's extended form of type `formType`
  // (XEP-0128); "" when none.
  static std::string formValue(const QuorXmlElement& discoResult, const std::string& formType,
                               const std::string& var);
  // <iq type='get' to=SERVICE id=ID><request xmlns='urn:xmpp:http:upload:0' filename=NAME
  // size=SIZE content-type=TYPE/></iq>: a slot for one file (XEP-0363).
  static std::unique_ptr<QuorXmlElement> uploadSlotRequest(const std::string& service,
                                                           const std::string& id,
                                                           const std::string& name, uint64_t size,
                                                           const std::string& type);
  // The slot of a result: false when it names no PUT and GET URL. An error's reason: its
  // conditions' names and text ("not-acceptable file-too-large: File too large"), "" when
  // none.
  static bool readUploadSlot(const QuorXmlElement& result, QuorXmppUploadSlot* slot);
  static std::string errorReason(const QuorXmlElement& stanza);

  // An XEP-0082 date-time ("2026-11-23T05:29:30Z", with optional fraction and offset) in ms
  // since the epoch; 0 when it is not one.
  static int64_t parseDateTime(const std::string& text);
  // A stanza id no sender will ever use again and no one can guess: 128 random bits in hex.
  static std::string uniqueId();
  // This machine's clock in ms since the epoch: the stamp when the server gives none.
  static int64_t wallClockMs();
  // Whether `text` may stand in XML character data: valid UTF-8 without forbidden characters.
  static bool isXmlText(const std::string& text);
};

}  // namespace quor
