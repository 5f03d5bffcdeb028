// Files over XMPP: the server's HTTP upload service (XEP-0363) on both servers.
#include <gmock/gmock.h>

#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "QuorHttpUpload.h"
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

constexpr uint64_t kLimit = 300 * 1000;

class XmppFiles : public XmppOnEachServer {
 protected:
  void configure(QuorPrivateServer::Options& options) override {
    options.fileShare = true;
    options.fileShareLimit = kLimit;
  }
};

// A file of `size` bytes in the test's temporary directory, its bytes a pattern.
std::string fileOf(std::size_t size, const std::string& name) {
  const std::string path = ::testing::TempDir() + "/" + std::to_string(::getpid()) + "-" + name;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  for (std::size_t i = 0; i < size; ++i) out.put(static_cast<char>('a' + i % 26));
  return path;
}

TEST_P(XmppFiles, AFileGoesUpThroughASlotAndComesBackWholeAndTheLimitHolds) {
  auto alice = bareHost("alice");
  ASSERT_TRUE(alice->waitUntilOnline(kPatience));
  // The server's upload service and its limit, from its service discovery after the login.
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (alice->connection().uploadService().jid.empty() &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(alice->connection().uploadService().jid, server->uploadDomain());
  EXPECT_EQ(alice->connection().uploadService().maxBytes, kLimit);
  const auto slotFor = [&](const std::string& name, uint64_t size) {
    std::promise<std::pair<QuorXmppUploadSlot, std::string>> answer;
    alice->connection().requestUploadSlot(
        name, size, "image/jpeg", [&](const QuorXmppUploadSlot& slot, const std::string& error) {
          answer.set_value({slot, error});
        });
    auto got = answer.get_future();
    EXPECT_EQ(got.wait_for(kPatience), std::future_status::ready);
    return got.get();
  };

  // Over the service's limit: no slot, and the service's reason.
  const auto refused = slotFor("huge.jpg", kLimit + 1);
  EXPECT_TRUE(refused.first.putUrl.empty());
  EXPECT_NE(refused.second.find("not-acceptable"), std::string::npos) << refused.second;

  const std::string path = fileOf(200 * 1000, "parcel.jpg");
  const auto [slot, error] = slotFor("parcel.jpg", 200 * 1000);
  ASSERT_EQ(error, "");
  QuorHttpUpload::Options options;
  options.contentType = "image/jpeg";
  // Cancelled before a byte went: nothing is there.
  std::atomic<bool> cancel{true};
  options.cancel = &cancel;
  EXPECT_EQ(QuorHttpUpload::put(slot, path, options), "cancelled");
  cancel = false;
  uint64_t lastSent = 0, total = 0;
  options.progress = [&](uint64_t sent, uint64_t of) {
    EXPECT_GE(sent, lastSent);
    lastSent = sent;
    total = of;
  };
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(QuorHttpUpload::put(slot, path, options), "");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "") << "the service's answer is the host's";
  EXPECT_EQ(total, 200u * 1000);
  EXPECT_EQ(lastSent, total);

  // The GET URL gives the same bytes.
  httplib::Client web("127.0.0.1", server->httpPort());
  const std::string prefix = "http://127.0.0.1:" + std::to_string(server->httpPort());
  ASSERT_EQ(slot.getUrl.rfind(prefix, 0), 0u) << slot.getUrl;
  const auto fetched = web.Get(slot.getUrl.substr(prefix.size()));
  ASSERT_TRUE(fetched);
  EXPECT_EQ(fetched->status, 200);
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_TRUE(fetched->body == bytes);
  std::filesystem::remove(path);
  alice->logout();
}

QUOR_INSTANTIATE_ON_EACH_SERVER(XmppFiles);

}  // namespace
}  // namespace quor::test
