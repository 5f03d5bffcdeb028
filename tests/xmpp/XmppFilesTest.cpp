// Files over XMPP: the server's HTTP upload service (XEP-0363) on both servers.
#include <gmock/gmock.h>

#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "QuorHostBase/QuorFileCache.h"
#include "QuorHttpTransfer.h"
#include "QuorLoopbackHost/QuorRecordingModule.h"
#include "QuorXmppHost/QuorXmppErrors.h"
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

template <typename Done>
bool waitUntil(Done done) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

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
  waitUntil([&] { return !alice->connection().uploadService().jid.empty(); });
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
  QuorHttpTransfer::Options options;
  options.contentType = "image/jpeg";
  // Cancelled before a byte went: nothing is there.
  std::atomic<bool> cancel{true};
  options.cancelled = [&] { return cancel.load(); };
  EXPECT_EQ(QuorHttpTransfer::put(slot, path, options), "cancelled");
  cancel = false;
  uint64_t lastSent = 0, total = 0;
  options.progress = [&](uint64_t sent, uint64_t of) {
    EXPECT_GE(sent, lastSent);
    lastSent = sent;
    total = of;
  };
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(QuorHttpTransfer::put(slot, path, options), "");
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

// The host's own path both ways: Alice's picture goes up and reaches the desk's account as a
// file message whose URL gives its bytes; the desk's file, under a hostile name, is fetched on
// demand into Alice's cache and stays inside it; a cancelled and an oversized file each have
// one outcome and send nothing.
TEST_P(XmppFiles, APictureEachWayAndEveryRefusalHasOneOutcome) {
  const std::string cache = ::testing::TempDir() + "/files-" + std::to_string(::getpid());
  std::filesystem::remove_all(cache);
  QuorXmppHost::Options options;
  options.connection = accountOptions("alice", "alice-pw");
  options.fileCacheDirectory = cache;
  auto alice = QuorXmppHost::create(options, nullptr);
  alice->setLogSink(nullptr, 0);
  QuorRecordingModule aliceHeard;
  alice->loadExtensionModule(aliceHeard);
  alice->connect();
  const QuorXmppOptions deskOptions = accountOptions(deskLocalPart(), "desk-pw");
  auto deskAccount = bareHost(deskLocalPart(), &deskOptions);
  std::mutex mutex;
  std::vector<QuorXmppPayload> deskGot;
  deskAccount->setWireObserver([&](const QuorXmppPayload& payload, bool fromClient) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!fromClient) deskGot.push_back(payload);
  });
  ASSERT_TRUE(alice->waitUntilOnline(kPatience));
  ASSERT_TRUE(deskAccount->waitUntilOnline(kPatience));
  ASSERT_TRUE(waitUntil([&] { return alice->maxFileBytes() == kLimit; }));

  struct Outcome {
    std::promise<int64_t> code;  // 0: sent
    std::atomic<uint64_t> progress{0};
  };
  const auto send = [&](QuorXmppHost& from, const std::string& to, const std::string& path,
                        const std::string& name, bool cancelled) {
    auto content = std::make_shared<KXFileMessage>();
    content->setName(name);
    content->setMimeType("image/png");
    content->setSize(std::filesystem::file_size(path));
    content->setLocalPath(path);
    auto outcome = std::make_shared<Outcome>();
    from.sendFileMessage(
        KXConversationTypeCustomerService, to, content,
        std::make_shared<std::atomic<bool>>(cancelled),
        [outcome](uint64_t done, uint64_t) { outcome->progress = done; },
        [outcome](int64_t) { outcome->code.set_value(0); },
        [outcome](int64_t code, int64_t) { outcome->code.set_value(code); });
    auto future = outcome->code.get_future();
    EXPECT_EQ(future.wait_for(kPatience), std::future_status::ready);
    return std::make_pair(future.get(), outcome->progress.load());
  };

  const std::string picture = fileOf(50 * 1000, "parcel.png");
  EXPECT_EQ(send(*alice, "quor-shop", picture, "parcel.png", true).first, QuorXmppErrorCancelled);
  const std::string huge = fileOf(kLimit + 1, "huge.png");
  EXPECT_EQ(send(*alice, "quor-shop", huge, "huge.png", false).first, QuorXmppErrorUploadFailed);
  EXPECT_EQ(send(*alice, "quor-shop", picture, "parcel.png", false),
            std::make_pair(int64_t{0}, uint64_t{50 * 1000}));

  // The desk's account got one message, the file's, and its URL gives the picture's bytes.
  ASSERT_TRUE(waitUntil([&] {
    std::lock_guard<std::mutex> lock(mutex);
    return !deskGot.empty();
  }));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  KXFileMessage got;
  {
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(deskGot.size(), 1u);
    EXPECT_EQ(deskGot[0].objectName, "KX:FileMsg");
    got.decodeWithData(deskGot[0].body);
  }
  EXPECT_EQ(got.name(), "parcel.png");
  EXPECT_EQ(got.size(), 50u * 1000);
  const std::string fetched = fileOf(0, "fetched.png");
  EXPECT_EQ(QuorHttpTransfer::get(got.url(), fetched, {}), "");
  EXPECT_EQ(std::filesystem::file_size(fetched), 50u * 1000);

  // The desk's own file goes up the same way.
  EXPECT_EQ(send(*deskAccount, "alice", picture, "invoice.png", false).first, 0);
  ASSERT_TRUE(waitUntil([&] { return aliceHeard.offered().size() == 1; }));
  // And one under a hostile name (written raw: a host sends only safe names): Alice's host
  // offers it to the modules and fetches it only when asked, into her cache.
  auto received = std::make_shared<KXFileMessage>();
  received->decodeWithData(got.encode());
  received->setName("../../etc/passwd");
  QuorXmppPayload hostile;
  hostile.peer = server->jid("alice");
  hostile.objectName = "KX:FileMsg";
  hostile.body = received->encode();
  deskAccount->connection().send(hostile, nullptr);
  ASSERT_TRUE(waitUntil([&] { return aliceHeard.offered().size() == 2; }));
  EXPECT_THAT(aliceHeard.offered(), ::testing::Each("KX:FileMsg live"));
  EXPECT_FALSE(std::filesystem::exists(cache)) << "nothing is fetched by itself";
  std::promise<std::pair<std::string, int64_t>> saved;
  alice->downloadFile(received, nullptr, nullptr, [&](const std::string& path, int64_t code) {
    saved.set_value({path, code});
  });
  const auto [path, code] = saved.get_future().get();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(std::filesystem::path(path).parent_path(), std::filesystem::path(cache));
  EXPECT_EQ(std::filesystem::file_size(path), 50u * 1000);

  // A file larger than its message said is not kept.
  received->setSize(1000);
  received->setUrl(got.url() + "#again");
  std::promise<int64_t> tooMuch;
  alice->downloadFile(received, nullptr, nullptr,
                      [&](const std::string&, int64_t failed) { tooMuch.set_value(failed); });
  EXPECT_EQ(tooMuch.get_future().get(), QuorXmppErrorDownloadFailed);

  for (const auto& file : {picture, huge, fetched}) std::filesystem::remove(file);
  std::filesystem::remove_all(cache);
  deskAccount->logout();
  alice->logout();
}

QUOR_INSTANTIATE_ON_EACH_SERVER(XmppFiles);

}  // namespace
}  // namespace quor::test
