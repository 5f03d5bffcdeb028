// The XMPP client's parts on their own: reading the stream within its limits, SCRAM, the
// bookkeeping of stream management, catching up from the archive, what a conversation says of
// its service, and the push notification an app reads.
#include <gmock/gmock.h>

#include <cstring>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorSaslClient.h"
#include "QuorServiceRecord.h"
#include "QuorStreamManagement.h"
#include "QuorXmlStream.h"
#include "QuorXmppHost/QuorArchiveCatchUp.h"
#include "QuorXmppHost/QuorPushNotification.h"
#include "QuorXmppStanza.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;

// Records what the stream read, as text.
struct Reader : QuorXmlStream::Handler {
  std::vector<std::string> seen;
  void onStreamStart(const QuorXmlElement& header) override {
    seen.push_back("start " + header.name());
  }
  void onStanza(std::unique_ptr<QuorXmlElement> stanza) override {
    seen.push_back(stanza->toXml());
  }
  void onStreamEnd() override { seen.push_back("end"); }
};

constexpr const char* kHeader =
    "<?xml version='1.0'?><stream:stream xmlns='jabber:client' "
    "xmlns:stream='http://etherx.jabber.org/streams' id='s1' version='1.0'>";

TEST(XmlStream, ReadsStanzasWhicheverWayTheBytesAreCut) {
  const std::string wire = std::string(kHeader) +
                           " <message from='a@b'><cs xmlns='q' name='KX:TxtMsg'>{&quot;x&quot;:"
                           "&lt;1&gt;}</cs></message>\n <r xmlns='urn:xmpp:sm:3'/></stream:stream>";
  for (const std::size_t piece : {wire.size(), std::size_t{1}, std::size_t{7}}) {
    Reader reader;
    QuorXmlStream stream(reader, {});
    for (std::size_t at = 0; at < wire.size(); at += piece) {
      ASSERT_TRUE(stream.feed(wire.data() + at, std::min(piece, wire.size() - at)));
    }
    EXPECT_THAT(reader.seen,
                ElementsAre("start stream:stream",
                            "<message from='a@b'><cs xmlns='q' "
                            "name='KX:TxtMsg'>{&quot;x&quot;:&lt;1&gt;}</cs></message>",
                            "<r xmlns='urn:xmpp:sm:3'/>", "end"));
  }
}

TEST(XmlStream, RefusesWhatAServerMustNotSend) {
  std::string nested;
  for (int i = 0; i < 100000; ++i) nested += "<a>";
  struct Case {
    const char* what;
    std::string wire;
    QuorXmlStream::Limits limits;
    std::string error;
  };
  const std::vector<Case> cases = {
      {"nested 100,000 deep",
       kHeader + ("<message>" + nested),
       {},
       "a stanza nested deeper than the limit"},
      {"2 MiB of text",
       kHeader + ("<message><body>" + std::string(2 << 20, 'x')),
       {},
       "a stanza over the size limit"},
      {"a big attribute",
       kHeader + ("<message a='" + std::string(3000, 'x') + "'/>"),
       {1000, 32},
       "a stanza over the size limit"},
      {"a repeated attribute",
       kHeader + std::string("<message a='1' a='2'/>"),
       {},
       "not well-formed: duplicate attribute"},
      {"a document type",
       "<?xml version='1.0'?><!DOCTYPE x [<!ENTITY a 'b'>]><x>",
       {},
       "a document type declaration"},
      {"not XML", std::string(kHeader) + "<message></iq>", {}, "not well-formed: mismatched tag"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reader reader;
    QuorXmlStream stream(reader, c.limits);
    EXPECT_FALSE(stream.feed(c.wire.data(), c.wire.size()));
    EXPECT_EQ(stream.error(), c.error);
    EXPECT_LE(reader.seen.size(), 1u);  // at most the header
    // A new stream reads again.
    stream.reset();
    EXPECT_TRUE(stream.feed(kHeader, std::strlen(kHeader)));
  }
}

TEST(XmlElement, AChainAMillionDeepIsFreedWithoutRecursion) {
  auto root = std::make_unique<QuorXmlElement>("a");
  QuorXmlElement* tip = root.get();
  for (int i = 0; i < 1000000; ++i) tip = &tip->add("a");
  root.reset();
}

// A stanza read from its text.
std::unique_ptr<QuorXmlElement> stanzaOf(const std::string& xml) {
  struct Keep : Reader {
    std::unique_ptr<QuorXmlElement> kept;
    void onStanza(std::unique_ptr<QuorXmlElement> stanza) override { kept = std::move(stanza); }
  } keep;
  QuorXmlStream stream(keep, {});
  const std::string wire = std::string(kHeader) + xml;
  EXPECT_TRUE(stream.feed(wire.data(), wire.size()));
  return std::move(keep.kept);
}

TEST(UploadSlot, TakesOnlyWhatTheProtocolAllowsOnThePut) {
  const std::string slot = "<iq type='result' id='s'><slot xmlns='urn:xmpp:http:upload:0'>";
  struct Case {
    std::string xml;
    bool read;
    std::string headers;  // "name=value;..."
  } cases[] = {
      {slot + "<put url='https://u/p'><header name='Authorization'>Basic x</header><header "
              "name='Host'>evil</header><header name='Cookie'>a&#13;&#10;X: y</header>"
              "</put><get url='https://u/g'/></slot></iq>",
       true, "Authorization=Basic x;"},
      {slot + "<put url='https://u/p'/></slot></iq>", false, ""},
      {slot + "<put url=''/><get url='https://u/g'/></slot></iq>", false, ""},
      {"<iq type='result' id='s'/>", false, ""},
  };
  for (const auto& c : cases) {
    QuorXmppUploadSlot read;
    EXPECT_EQ(QuorXmppStanza::readUploadSlot(*stanzaOf(c.xml), &read), c.read) << c.xml;
    std::string headers;
    for (const auto& [name, value] : read.headers) headers += name + "=" + value + ";";
    EXPECT_EQ(headers, c.headers) << c.xml;
  }
  EXPECT_EQ(QuorXmppStanza::errorReason(
                *stanzaOf("<iq type='error'><error type='modify'><not-acceptable "
                          "xmlns='urn:ietf:params:xml:ns:xmpp-stanzas'/><text>File too large</text>"
                          "<file-too-large xmlns='urn:xmpp:http:upload:0'/></error></iq>")),
            "not-acceptable file-too-large: File too large");
  EXPECT_EQ(QuorXmppStanza::formValue(
                *stanzaOf("<iq type='result'><query><x xmlns='jabber:x:data'><field "
                          "var='FORM_TYPE'><value>other</value></field><field "
                          "var='max-file-size'><value>1</value></field></x><x "
                          "xmlns='jabber:x:data'><field var='FORM_TYPE'><value>urn:xmpp:http:"
                          "upload:0</value></field><field var='max-file-size'><value>5</value>"
                          "</field></x></query></iq>"),
                QuorXmppStanza::kUploadNamespace, "max-file-size"),
            "5");
}

TEST(SaslClient, ScramSha1AgreesWithTheStandardsExample) {
  QuorSaslClient sasl("user", "pencil", "fyko+d2lbbFgONRv9qkxdawL");
  EXPECT_EQ(QuorSaslClient::choose({"PLAIN", "SCRAM-SHA-1", "X"}), "SCRAM-SHA-1");
  EXPECT_EQ(sasl.start("SCRAM-SHA-1"), "n,,n=user,r=fyko+d2lbbFgONRv9qkxdawL");
  const auto response =
      sasl.respond("r=fyko+d2lbbFgONRv9qkxdawL3rfcNHYJY1ZVvWVs7j,s=QSXCR+Q6sek8bf92,i=4096");
  ASSERT_TRUE(response);
  EXPECT_EQ(*response,
            "c=biws,r=fyko+d2lbbFgONRv9qkxdawL3rfcNHYJY1ZVvWVs7j,p=v0X8v3Bz2T0CJGbJQyF0X+HI4Ts=");
  EXPECT_TRUE(sasl.verifySuccess("v=rmF9pqV8S7suAoZWja4dJRkFsKQ="));
  EXPECT_FALSE(sasl.verifySuccess("v=AAAApqV8S7suAoZWja4dJRkFsKQ="));
}

TEST(SaslClient, RefusesChallengesThatAreNotSafe) {
  for (const char* challenge : {
           "r=someone-elses-nonce,s=QSXCR+Q6sek8bf92,i=4096",  // not our nonce
           "r=abc,s=QSXCR+Q6sek8bf92,i=4096",                  // our nonce and nothing more
           "r=abcdef,s=QSXCR+Q6sek8bf92,i=99999999",           // a denial of service
           "r=abcdef,s=not base64!,i=4096",
           "r=abcdef,i=4096",
           "",
       }) {
    QuorSaslClient sasl("user", "pencil", "abc");
    sasl.start("SCRAM-SHA-1");
    EXPECT_FALSE(sasl.respond(challenge)) << challenge;
  }
  QuorSaslClient plain("user", "pencil");
  EXPECT_EQ(plain.start("PLAIN"), std::string("\0user\0pencil", 12));
  EXPECT_EQ(QuorSaslClient::choose({"DIGEST-MD5"}), "");
}

TEST(StreamManagement, CountsAcknowledgesAndResendsWhatTheServerMissed) {
  QuorStreamManagement sm;
  sm.sent("x", "<ignored/>");  // before it is enabled nothing counts
  sm.enabled("resume-1");
  EXPECT_TRUE(sm.canResume());
  for (const char* id : {"m1", "", "m3", "m4"}) sm.sent(id, std::string("<") + id + "/>");
  EXPECT_THAT(sm.acknowledged(2), ElementsAre("m1"));
  EXPECT_THAT(sm.acknowledged(1), ElementsAre());  // an older count
  std::vector<std::string> handled;
  const auto again = sm.resumed(3, &handled);
  EXPECT_THAT(handled, ElementsAre("m3"));
  ASSERT_EQ(again.size(), 1u);
  EXPECT_EQ(again[0].id, "m4");
  sm.sent(again[0].id, again[0].xml);
  EXPECT_THAT(sm.acknowledged(4), ElementsAre("m4"));
  sm.sent("m5", "<m5/>");
  EXPECT_THAT(sm.acknowledged(99), ElementsAre("m5"));  // beyond what was sent: all of it
  EXPECT_EQ(sm.unacknowledged(), 0u);
  sm.forget();
  EXPECT_FALSE(sm.isEnabled() || sm.canResume());
}

QuorXmppPayload archivePayload(const std::string& archiveId, bool archived) {
  QuorXmppPayload payload;
  payload.archiveId = archiveId;
  payload.archived = archived;
  return payload;
}

TEST(ArchiveCatchUp, ReadsUntilTheServerSaysCompleteWhateverComesLive) {
  QuorArchiveCatchUp catchUp(/*fromTheStart=*/true);
  EXPECT_EQ(catchUp.onStatus(QuorXmppConnectionStatus::Connected, ""), std::string());
  // The server hands over an old message of a replaced session's queue first: it says nothing
  // of what lies between the place and it, and moves no place while catching up.
  EXPECT_FALSE(catchUp.onPayload(archivePayload("a2", false)));
  EXPECT_TRUE(catchUp.onPayload(archivePayload("a1", true)));
  EXPECT_TRUE(catchUp.onPayload(archivePayload("a2", true)));
  EXPECT_EQ(catchUp.onArchiveEnd(false, "a2"), std::string("a2"));
  EXPECT_EQ(catchUp.onArchiveEnd(true, "a3"), std::nullopt);
  EXPECT_TRUE(catchUp.onPayload(archivePayload("a4", false)));
  EXPECT_FALSE(catchUp.onPayload(archivePayload("", false)));
  // A lost link: the next login reads after the caller's place again.
  EXPECT_EQ(catchUp.onStatus(QuorXmppConnectionStatus::Disconnected, "a4"), std::nullopt);
  EXPECT_FALSE(catchUp.onPayload(archivePayload("a5", false)));
  EXPECT_EQ(catchUp.onStatus(QuorXmppConnectionStatus::Connected, "a4"), std::string("a4"));

  // A desk without a place reads nothing: its first message sets the place.
  QuorArchiveCatchUp desk;
  EXPECT_EQ(desk.onStatus(QuorXmppConnectionStatus::Connected, ""), std::nullopt);
  EXPECT_TRUE(desk.onPayload(archivePayload("d1", false)));
}

TEST(ServiceRecord, FollowsTheServiceThroughItsControlMessages) {
  using State = KXCSServiceState;
  // The desk's control messages as they travel.
  const auto answer = [](int code, int type) -> KXData {
    return "{\"status\":" + std::to_string(code) +
           ",\"data\":{\"serviceType\":" + std::to_string(type) + "}}";
  };
  const auto modeAnswer = [](int result) -> KXData {
    return "{\"code\":1,\"data\":{\"status\":" + std::to_string(result) + "}}";
  };
  const auto end = [](int code) -> KXData { return "{\"code\":" + std::to_string(code) + "}"; };
  const auto update = [](int status) -> KXData {
    return "{\"serviceStatus\":" + std::to_string(status) + "}";
  };
  struct Step {
    std::string objectName;
    KXData body;
    bool sent;
  };
  const Step hello{"KX:CsHs", std::nullopt, true};
  const Step askAgent{"KX:CsCha", std::nullopt, true};
  const struct {
    const char* name;
    std::vector<Step> steps;
    State state;
  } cases[] = {
      {"robot first", {hello, {"KX:CsHsR", answer(1, 3), false}}, State::Robot},
      {"refused", {hello, {"KX:CsHsR", answer(0, 3), false}}, State::Failed},
      {"human only", {hello, {"KX:CsHsR", answer(1, 2), false}}, State::Agent},
      {"asked for an agent",
       {hello, {"KX:CsHsR", answer(1, 3), false}, askAgent},
       State::WaitingForAgent},
      {"an agent came",
       {{"KX:CsHsR", answer(1, 3), false}, askAgent, {"KX:CsChaR", modeAnswer(1), false}},
       State::Agent},
      {"no agent, back to the robot",
       {{"KX:CsHsR", answer(1, 4), false}, askAgent, {"KX:CsChaR", modeAnswer(2), false}},
       State::Robot},
      {"no agent for a human-only service",
       {{"KX:CsHsR", answer(1, 2), false}, askAgent, {"KX:CsChaR", modeAnswer(2), false}},
       State::Ended},
      {"the agent handed back",
       {{"KX:CsHsR", answer(1, 2), false}, {"KX:CsEnd", end(1), false}},
       State::Robot},
      {"the desk ended it",
       {{"KX:CsHsR", answer(1, 2), false}, {"KX:CsEnd", end(0), false}},
       State::Ended},
      {"the app ended it",
       {{"KX:CsHsR", answer(1, 3), false}, {"KX:CsSp", std::nullopt, true}},
       State::Ended},
      {"updates", {{"KX:CsUpdate", update(2), false}}, State::Agent},
      {"closed by update",
       {{"KX:CsHsR", answer(1, 1), false}, {"KX:CsUpdate", update(3), false}},
       State::Ended},
      {"texts and unknown values change nothing",
       {{"KX:CsHsR", answer(1, 3), false},
        {"KX:TxtMsg", std::string("{\"content\":\"hi\"}"), false},
        {"KX:CsUpdate", update(9), false},
        {"KX:CsChaR", modeAnswer(7), false},
        {"KX:CsHsR", std::nullopt, true}},
       State::Robot},
  };
  for (const auto& c : cases) {
    QuorServiceRecord record;
    int64_t stamp = 100;
    for (const auto& step : c.steps) record.take(step.objectName, step.body, step.sent, ++stamp);
    EXPECT_EQ(record.state(), c.state) << c.name;
    // Kept between runs as its note.
    EXPECT_EQ(QuorServiceRecord::fromNote(record.note()).state(), c.state) << c.name;
  }

  // An older message than the newest taken (the archive after a live one) changes nothing.
  QuorServiceRecord record;
  EXPECT_TRUE(record.take("KX:CsEnd", end(0), false, 200));
  EXPECT_FALSE(record.take("KX:CsHsR", answer(1, 2), false, 150));
  EXPECT_EQ(record.state(), State::Ended);
  for (const char* bad : {"", "x", "99 0 0", "-1 0 0", "3 1"})
    EXPECT_EQ(QuorServiceRecord::fromNote(bad).state(), State::NotStarted) << bad;
}

TEST(PushNotification, ReadsWhatThePushServiceWroteAndRefusesAnythingElse) {
  QuorPushNotification written;
  written.account = "mei@example.com";
  written.node = "n1";
  written.token = "tok\"en";
  written.deskId = "Shop 店";
  written.deskJid = "\\53hop\\20\xe5\xba\x97@example.com";
  written.unread = 3;
  written.since = 1764140000000;
  QuorPushNotification read;
  ASSERT_TRUE(QuorPushNotification::fromJson(written.toJson(), &read));
  EXPECT_EQ(read.toJson(), written.toJson());

  // Each of these leaves what it reads into as it was.
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  for (const std::string& bad :
       {std::string(""), std::string("null"), std::string("[1]"), std::string("{}"),
        std::string("{\"desk\":\"\"}"), std::string("{\"desk\":7}"),
        std::string("{\"desk\":\"shop\",\"unread\":\"2\"}"),
        std::string("{\"desk\":\"shop\",\"unread\":-1}"),
        std::string("{\"desk\":\"shop\",\"unread\":1.5}"),
        std::string("{\"desk\":\"shop\",\"since\":{\"a\":1}}"), std::string("{\"desk\":\"sh"),
        std::string("{\"desk\":\"\xff\"}"), deep}) {
    QuorPushNotification kept = written;
    EXPECT_FALSE(QuorPushNotification::fromJson(bad, &kept)) << bad.substr(0, 40);
    EXPECT_EQ(kept.toJson(), written.toJson()) << bad.substr(0, 40);
  }
  // Members it does not know are ignored; those it knows may be missing.
  ASSERT_TRUE(QuorPushNotification::fromJson("{\"desk\":\"shop\",\"later\":[1,2]}", &read));
  EXPECT_EQ(read.deskId, "shop");
  EXPECT_EQ(read.unread, 0);
  EXPECT_EQ(read.account, "");
}

}  // namespace
}  // namespace quor::test
