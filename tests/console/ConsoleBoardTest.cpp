// The console's board on its own: what the desk's messages make of a customer, and its bounds.
#include <gmock/gmock.h>

#include "QuorDeskConsole/QuorConsoleBoard.h"

namespace quor {
namespace {

using ::testing::ElementsAre;

// A message of `customer`'s session as the desk records it.
QuorDeskStore::Record said(const std::string& customer, bool fromCustomer,
                           const std::string& objectName, const std::string& body,
                           const std::string& sender = "", const std::string& agent = "") {
  return {customer, 1000, fromCustomer, objectName, body, sender, agent};
}

std::vector<std::string> texts(const KXDictionary& conversation) {
  std::vector<std::string> seen;
  for (const auto& line : conversation["lines"])
    seen.push_back(line["who"].get<std::string>() + ": " + line["text"].get<std::string>());
  return seen;
}

TEST(ConsoleBoard, TheDesksMessagesMakeTheCustomersStateAndReadableLines) {
  QuorConsoleBoard board;
  const std::string mei = "mei@localhost";
  board.record(
      said(mei, true, "KX:CsHs", R"({"userInfo":{"name":"梅"},"requestInfo":{"page":"o"}})"));
  board.record(said(mei, false, "KX:CsHsR", R"({"status":1,"data":{"robotWelcome":"Hi!"}})"));
  board.record(said(mei, true, "KX:TxtMsg", R"({"content":"hi"})"));
  board.record(
      said(mei, false, "KX:TxtMsg", R"({"content":"Hello","user":{"name":"Ava"}})", "shop"));
  board.record(said(mei, true, "KX:CsCha", R"({"groupid":"sales"})"));
  EXPECT_EQ(board.conversation(mei)["customer"]["state"], "waiting");
  EXPECT_GT(board.conversation(mei)["customer"]["waitingSince"].get<int64_t>(), 0);
  board.record(said(mei, false, "KX:CsChaR", R"({"code":200,"data":{"status":1}})", "", "Ada"));
  board.record(said(mei, true, "KX:CsEva", R"({"source":4,"suggest":"ok","type":"1"})"));
  board.record(said(mei, true, "KX:CsLM", R"({"phone":"1"})"));
  board.record(said(mei, false, "KX:CsEnd", R"({"code":0,"msg":"Bye"})"));
  board.record(said(mei, true, "KX:TxtMsg", "not json"));  // kept as an empty line, not lost
  // Files are lines with their file; the board names only its own conversation's files.
  board.record(said(mei, true, "KX:FileMsg",
                    R"({"name":"a.png","type":"image/png","size":-5,"url":"http://u/1"})"));
  board.record(said(mei, false, "KX:FileMsg", R"({"name":"label.pdf","url":"http://u/2",
                    "user":{"name":"Ava"}})",
                    "shop"));
  EXPECT_EQ(board.fileOf(mei, "http://u/1")["size"], 0) << "a negative size reads as none";
  EXPECT_EQ(board.fileOf(mei, "http://u/2")["name"], "label.pdf");
  EXPECT_TRUE(board.fileOf(mei, "http://u/3").is_null());
  EXPECT_TRUE(board.fileOf("nobody", "http://u/1").is_null());
  EXPECT_TRUE(board.fileOf(mei, "").is_null());
  const KXDictionary conversation = board.conversation(mei);
  EXPECT_EQ(conversation["lines"].back()["file"]["url"], "http://u/2");
  EXPECT_EQ(conversation["customer"]["name"], "梅");
  EXPECT_EQ(conversation["customer"]["state"], "ended");
  EXPECT_EQ(conversation["customer"]["agent"], "Ada");
  EXPECT_EQ(conversation["customer"]["written"], 3);
  EXPECT_THAT(texts(conversation),
              ElementsAre("event: started a service", "robot: Hi!", "customer: hi", "robot: Hello",
                          "event: asked for an agent and chose group sales", "event: taken by Ada",
                          "event: rated 4 stars \u201cok\u201d", "event: left a message",
                          "event: the service ended: Bye", "customer: ", "customer: ", "robot: "));
  EXPECT_EQ(board.state()["inbox"][0]["values"]["phone"], "1");
  EXPECT_TRUE(board.conversation("nobody").is_null());
}

TEST(ConsoleBoard, EachAgentReadsForHerselfAndThePeoplesRecordsShowAsTheyWereMade) {
  QuorConsoleBoard board;
  const std::string kai = "kai@localhost";
  board.record(said(kai, true, "KX:CsHs", R"({"userInfo":{"name":"Kai"}})"));
  QuorDeskStore::Record text = said(kai, true, "KX:TxtMsg", R"({"content":"one"})");
  text.stamp = 900;  // the server's stamp, before the desk took it
  board.record(text);
  board.record(said(kai, true, "KX:TxtMsg", R"({"content":"two"})"));
  // Bo looks at Kai: Ada's count stays. A read beyond what Kai wrote reads what there is.
  board.record(said(kai, false, QuorConsoleBoard::kRead, R"({"upTo":9})", "", "Bo"));
  EXPECT_EQ(board.readBy(kai, "Bo"), 2u);
  EXPECT_EQ(board.readBy(kai, "Ada"), 0u);
  EXPECT_EQ(board.conversation(kai, "Ada")["customer"]["read"], 0);
  EXPECT_EQ(board.state("Bo")["customers"][0]["read"], 2);
  EXPECT_FALSE(board.conversation(kai)["customer"].contains("read"));  // events carry no reads

  board.record(said(kai, true, "KX:CsCha", R"({"groupid":"sales"})"));
  board.record(said(kai, false, "KX:CsChaR", R"({"data":{"status":1}})", "", "Ada"));
  board.record(said(kai, false, QuorConsoleBoard::kNote, R"({"text":"VIP"})", "", "Bo"));
  board.record(said(kai, false, QuorConsoleBoard::kPassed, R"({"to":"Bo"})", "", "Ada"));
  EXPECT_EQ(board.conversation(kai)["customer"]["agent"], "Bo");
  board.record(said(kai, false, QuorConsoleBoard::kPassed, R"({"group":"vip"})", "", "Bo"));
  const KXDictionary passed = board.conversation(kai)["customer"];
  EXPECT_EQ(passed["state"], "waiting");
  EXPECT_EQ(passed["group"], "vip");
  EXPECT_EQ(passed["agent"], "");
  // The desk's text in a step that answered the customer is its own (an automatic receipt).
  board.record(said(kai, true, "KX:CsLM", "{}"));
  board.record(said(kai, false, "KX:TxtMsg", R"({"content":"Got it"})", "agent", ""));
  const KXDictionary lines = board.conversation(kai)["lines"];
  EXPECT_EQ(lines[1]["stamp"], 900);
  EXPECT_FALSE(lines[2].contains("stamp"));
  std::vector<std::string> whoAndEvent;
  for (const auto& line : lines) {
    whoAndEvent.push_back(line["who"].get<std::string>() + " " +
                          (line.contains("event") ? line["event"].get<std::string>() : ""));
  }
  EXPECT_THAT(whoAndEvent, ElementsAre("event started", "customer ", "customer ", "event asked",
                                       "event taken", "note ", "event passedToAgent",
                                       "event passedToGroup", "event leftMessage", "desk "));
  EXPECT_EQ(lines[6]["values"]["to"], "Bo");
  // A people's record of a customer the board does not know makes no customer.
  board.record(said("nobody", false, QuorConsoleBoard::kNote, R"({"text":"x"})", "", "Bo"));
  EXPECT_TRUE(board.conversation("nobody").is_null());
}

TEST(ConsoleBoard, KeepsItsBoundsAndSendsAPageTooFarBehindToReload) {
  QuorConsoleBoard::Limits limits;
  limits.finishedKept = 2;
  limits.linesPerCustomer = 3;
  limits.inboxKept = 2;
  limits.eventsKept = 5;
  limits.customers = 4;
  QuorConsoleBoard board(limits);
  for (int i = 0; i < 5; ++i) board.record(said("talker", true, "KX:TxtMsg", R"({"content":"x"})"));
  EXPECT_EQ(board.conversation("talker")["lines"].size(), 3u);
  for (const char* who : {"a", "b", "c"}) {
    board.record(said(who, true, "KX:CsLM", "{}"));
    board.record(said(who, true, "KX:CsSp", "{}"));
  }
  EXPECT_TRUE(board.conversation("a").is_null());  // the oldest finished went first
  bool gone = false, behind = false;
  for (const auto& event : board.eventsAfter(board.state()["seq"].get<uint64_t>() - 2,
                                             std::chrono::milliseconds(0), &behind)) {
    gone = gone || event.find(R"("gone":"a")") != std::string::npos;
  }
  EXPECT_TRUE(gone);  // pages drop it too
  EXPECT_FALSE(board.conversation("c").is_null());
  EXPECT_EQ(board.state()["inbox"].size(), 2u);
  for (const char* who : {"d", "e"}) board.record(said(who, true, "KX:TxtMsg", "{}"));
  EXPECT_EQ(board.state()["customers"].size(), 4u);  // at the limit: finished ones made room

  bool reload = false;
  const uint64_t seq = board.state()["seq"];
  EXPECT_TRUE(board.eventsAfter(0, std::chrono::milliseconds(0), &reload).empty());
  EXPECT_TRUE(reload);  // the page reloads its state
  EXPECT_EQ(board.eventsAfter(seq - 2, std::chrono::milliseconds(0), &reload).size(), 2u);
  EXPECT_FALSE(reload);
  board.eventsAfter(seq + 10, std::chrono::milliseconds(0), &reload);
  EXPECT_TRUE(reload);  // a page ahead of the board (the desk restarted) starts over
  board.close();
  EXPECT_TRUE(board.eventsAfter(seq, std::chrono::hours(1), &reload).empty());  // no wait
}

TEST(ConsoleBoard, KeepsBytesWithinItsLimitsAndCutsOnlyTheCustomerOverThem) {
  QuorConsoleBoard::Limits limits;
  limits.totalBytes = 2 * 1024 * 1024;
  QuorConsoleBoard board(limits);
  // A 240 KiB handshake: the name stays, the rest is cut; events never repeat the information.
  const std::string big(240 * 1024, 'x');
  board.record(said("big", true, "KX:CsHs",
                    KXDictionary({{"userInfo", {{"name", "Big"}, {"blob", big}}}}).dump()));
  const KXDictionary kept = board.conversation("big")["customer"];
  EXPECT_EQ(kept["name"], "Big");
  EXPECT_THAT(kept["userInfo"]["cut"].get<std::string>(), ::testing::HasSubstr("over the"));
  for (int i = 0; i < 6000; ++i)
    board.record(said("big", true, "KX:TxtMsg", R"({"content":"hi"})"));
  bool reload = false;
  std::size_t eventBytes = 0;
  for (const auto& event : board.eventsAfter(0, std::chrono::milliseconds(0), &reload))
    eventBytes += event.size();
  EXPECT_LT(eventBytes, limits.eventsBytes);
  // Four customers sending 200 KiB texts: each keeps its newest lines, the board its bytes.
  const std::string text = KXDictionary({{"content", std::string(200 * 1024, 'y')}}).dump();
  for (int round = 0; round < 20; ++round) {
    for (const char* who : {"a", "b", "c", "d"}) board.record(said(who, true, "KX:TxtMsg", text));
  }
  EXPECT_LT(board.state().dump().size(), limits.totalBytes + 300 * 1024);
  EXPECT_LE(board.conversation("d")["lines"].size(), 2u);
  EXPECT_FALSE(board.conversation("d").is_null());  // the newest writer is kept
}

}  // namespace
}  // namespace quor
