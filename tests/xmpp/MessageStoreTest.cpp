// The XMPP host's store on its own: whose it is, what a device keeps, and delivery statuses.
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "QuorXmppHost/QuorMessageStore.h"

namespace quor::test {
namespace {

class MessageStore : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::remove(path); }
  void TearDown() override {
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix);
  }
  std::unique_ptr<QuorMessageStore> open(const std::string& account, std::string* error = nullptr) {
    return QuorMessageStore::open({path, account, 0}, error);
  }
  static QuorStoredMessage text(QuorDeliveryStatus status) {
    QuorStoredMessage message;
    message.conversationType = 5;
    message.targetId = "quor-shop";
    message.direction = 1;
    message.objectName = "KX:TxtMsg";
    message.body = "hi";
    message.status = status;
    return message;
  }

  const std::string path =
      ::testing::TempDir() + "/store-" + std::to_string(::getpid()) + ".sqlite";
};

TEST_F(MessageStore, BelongsToOneAccountAndKeepsItsDeviceResource) {
  std::string resource;
  {
    auto alice = open("alice@localhost");
    ASSERT_TRUE(alice);
    resource = alice->deviceResource();
    EXPECT_THAT(resource, ::testing::MatchesRegex("quor-cs-[0-9a-f]{12}"));
  }
  std::string error;
  EXPECT_FALSE(open("bob@localhost", &error));
  EXPECT_EQ(error, "the store belongs to alice@localhost, not to bob@localhost");
  auto again = open("alice@localhost");
  ASSERT_TRUE(again);
  EXPECT_EQ(again->deviceResource(), resource);
  // Another device (another store) has another resource.
  EXPECT_NE(QuorMessageStore::open({":memory:", "alice@localhost", 0}, nullptr)->deviceResource(),
            resource);
}

TEST_F(MessageStore, KeepsEachSendsStatusAndHandsOnWhatAnEarlierRunLeftPending) {
  std::vector<int64_t> ids;
  {
    auto store = open("alice@localhost");
    for (int i = 0; i < 4; ++i) {
      auto message = text(QuorDeliveryStatus::Pending);
      message.stanzaId = "quor-" + std::to_string(i);
      ASSERT_EQ(store->insert(message), QuorMessageStore::Insert::Stored);
      ids.push_back(message.id);
    }
    ASSERT_TRUE(store->setOutcome(ids[0], QuorDeliveryStatus::Sent, 1234));
    ASSERT_TRUE(store->setOutcome(ids[1], QuorDeliveryStatus::Failed, 0));
    const auto page = store->page("quor-shop", 0, 10);
    ASSERT_EQ(page.size(), 4u);
    EXPECT_EQ(page[3].status, QuorDeliveryStatus::Sent);
    EXPECT_EQ(page[3].sentTime, 1234);
    EXPECT_EQ(page[2].status, QuorDeliveryStatus::Failed);
    EXPECT_EQ(page[0].status, QuorDeliveryStatus::Pending);
  }
  const auto unsent = open("alice@localhost")->unsent();
  ASSERT_EQ(unsent.size(), 2u);  // oldest first, with the ids to write them again under
  EXPECT_EQ(unsent[0].id, ids[2]);
  EXPECT_EQ(unsent[0].stanzaId, "quor-2");
  EXPECT_EQ(unsent[1].stanzaId, "quor-3");
  EXPECT_EQ(unsent[1].body, "hi");
}

TEST_F(MessageStore, AQueuedSendHasItsIdAtOnceAndEveryReadSeesIt) {
  std::vector<int64_t> ids;
  {
    auto store = open("alice@localhost");
    auto first = text(QuorDeliveryStatus::Pending);
    ASSERT_EQ(store->insert(first), QuorMessageStore::Insert::Stored);
    ids = {first.id, store->insertLater(text(QuorDeliveryStatus::Pending)),
           store->insertLater(text(QuorDeliveryStatus::Pending))};
    EXPECT_EQ(ids[1], ids[0] + 1);
    EXPECT_EQ(ids[2], ids[0] + 2);
    // Unwritten yet: the read writes them first, and an outcome lands on its row.
    ASSERT_TRUE(store->setOutcome(ids[1], QuorDeliveryStatus::Sent, 99));
    EXPECT_EQ(store->find(ids[1])->sentTime, 99);
    EXPECT_EQ(store->page("quor-shop", 0, 10).size(), 3u);
    ASSERT_TRUE(store->remove(ids[2]));
    store->insertLater(text(QuorDeliveryStatus::Pending));  // written when the store closes
  }
  auto again = open("alice@localhost");
  EXPECT_EQ(again->page("quor-shop", 0, 10).size(), 3u);
  // A removed message's id is never given again, by a later run either.
  auto next = text(QuorDeliveryStatus::Pending);
  ASSERT_EQ(again->insert(next), QuorMessageStore::Insert::Stored);
  EXPECT_EQ(next.id, ids[2] + 2);
}

TEST_F(MessageStore, AQueuedSendThatCannotBeWrittenIsHandedBackOnce) {
  auto store = QuorMessageStore::open({path, "alice@localhost", 64 * 1024}, nullptr);
  ASSERT_TRUE(store);
  for (int i = 0; i < 200; ++i) {
    auto message = text(QuorDeliveryStatus::Pending);
    message.body = std::string(1000, 'x');
    store->insertLater(message);
  }
  EXPECT_EQ(store->page("quor-shop", 0, 1).size(), 1u);  // the read wrote what fits
  const auto lost = store->flush();
  ASSERT_FALSE(lost.empty());
  EXPECT_EQ(lost.front().reason, "database or disk is full");
  EXPECT_EQ(lost.front().message.body.value_or("").size(), 1000u);
  EXPECT_TRUE(store->flush().empty());
}

}  // namespace
}  // namespace quor::test
