// Files over XMPP: the server's HTTP upload service (XEP-0363) on both servers.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "QuorHttpTransfer.h"
#include "QuorLoopbackHost/QuorRecordingModule.h"
#include "QuorPrivateServer/QuorTcpProxy.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "xmpp/XmppFixture.h"

namespace quor::test {
namespace {

constexpr uint64_t kLimit = 300 * 1000;

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

std::string bytesOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class XmppFiles : public XmppOnEachServer {
 protected:
  void configure(QuorPrivateServer::Options& options) override {
    options.fileShare = true;
    options.fileShareLimit = kLimit;
  }

  // The desk's account, which records the payloads it receives.
  std::shared_ptr<QuorXmppHost> deskAccount() {
    const QuorXmppOptions options = accountOptions(deskLocalPart(), "desk-pw");
    auto made = bareHost(deskLocalPart(), &options);
    made->setWireObserver([this](const QuorXmppPayload& payload, bool fromClient) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!fromClient) deskGot_.push_back(payload);
    });
    EXPECT_TRUE(made->waitUntilOnline(kPatience));
    return made;
  }
  std::vector<QuorXmppPayload> deskGot() {
    std::lock_guard<std::mutex> lock(mutex_);
    return deskGot_;
  }

  // A file's outcomes: every report counted, so that a second one shows.
  struct Outcome {
    std::atomic<int> reports{0};
    std::atomic<int64_t> code{-1};  // 0: sent
    std::atomic<uint64_t> progress{0};
  };
  std::shared_ptr<Outcome> send(QuorXmppHost& from, const std::string& to, const std::string& path,
                                const std::string& name, bool cancelled = false,
                                std::function<void()> duringUpload = nullptr) {
    auto content = std::make_shared<KXFileMessage>();
    content->setName(name);
    content->setMimeType("image/png");
    content->setSize(std::filesystem::file_size(path));
    content->setLocalPath(path);
    auto outcome = std::make_shared<Outcome>();
    auto once = std::make_shared<std::once_flag>();
    from.sendFileMessage(
        KXConversationTypeCustomerService, to, content,
        std::make_shared<std::atomic<bool>>(cancelled),
        [outcome, once, duringUpload](uint64_t done, uint64_t) {
          outcome->progress = done;
          if (duringUpload) std::call_once(*once, duringUpload);
        },
        [outcome](int64_t) {
          outcome->code = 0;
          ++outcome->reports;
        },
        [outcome](int64_t code, int64_t) {
          outcome->code = code;
          ++outcome->reports;
        });
    return outcome;
  }
  // The file's one outcome, and its bytes moved.
  static std::pair<int64_t, uint64_t> outcomeOf(const std::shared_ptr<Outcome>& outcome) {
    EXPECT_TRUE(waitUntil([&] { return outcome->reports > 0; }));
    return {outcome->code.load(), outcome->progress.load()};
  }

 private:
  std::mutex mutex_;
  std::vector<QuorXmppPayload> deskGot_;
};

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
  auto desk = deskAccount();
  ASSERT_TRUE(alice->waitUntilOnline(kPatience));
  // The server's upload service and its limit, from its service discovery after the login.
  ASSERT_TRUE(waitUntil([&] { return alice->maxFileBytes() == kLimit; }));
  EXPECT_EQ(alice->connection().uploadService().jid, server->uploadDomain());

  const std::string picture = fileOf(50 * 1000, "parcel.png");
  EXPECT_EQ(outcomeOf(send(*alice, "quor-shop", picture, "parcel.png", true)).first,
            QuorXmppErrorCancelled);
  const std::string huge = fileOf(kLimit + 1, "huge.png");
  EXPECT_EQ(outcomeOf(send(*alice, "quor-shop", huge, "huge.png")).first,
            QuorXmppErrorUploadFailed);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(outcomeOf(send(*alice, "quor-shop", picture, "parcel.png")),
            std::make_pair(int64_t{0}, uint64_t{50 * 1000}));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "") << "the service's answer is the host's";

  // The desk's account got one message, the file's, and its URL gives the picture's bytes.
  ASSERT_TRUE(waitUntil([&] { return !deskGot().empty(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  ASSERT_EQ(deskGot().size(), 1u);
  EXPECT_EQ(deskGot()[0].objectName, "KX:FileMsg");
  KXFileMessage got;
  got.decodeWithData(deskGot()[0].body);
  EXPECT_EQ(got.name(), "parcel.png");
  EXPECT_EQ(got.size(), 50u * 1000);
  const std::string fetched = fileOf(0, "fetched.png");
  EXPECT_EQ(QuorHttpTransfer::get(got.url(), fetched, {}), "");
  EXPECT_TRUE(bytesOf(fetched) == bytesOf(picture));

  // The desk's own file goes up the same way.
  EXPECT_EQ(outcomeOf(send(*desk, "alice", picture, "invoice.png")).first, 0);
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
  desk->connection().send(hostile, nullptr);
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
  desk->logout();
  alice->logout();
}

// The link drops while the slot is asked for: that file fails at once. It drops again while
// another file's bytes go up (straight to the HTTP service): that file is sent when the link is
// back. Each has one outcome, and the desk gets the second file once.
TEST_P(XmppFiles, ALinkThatDropsMidUploadLeavesEachFileOneOutcome) {
  auto proxy = QuorTcpProxy::start(server->port());
  ASSERT_TRUE(proxy);
  QuorXmppOptions connection = accountOptions("alice", "alice-pw");
  connection.port = static_cast<uint16_t>(proxy->port());
  auto alice = bareHost("alice", &connection);
  auto desk = deskAccount();
  ASSERT_TRUE(alice->waitUntilOnline(kPatience));
  ASSERT_TRUE(waitUntil([&] { return alice->maxFileBytes() == kLimit; }));
  const std::string picture = fileOf(200 * 1000, "dropped.png");

  proxy->holdToClient(true);
  auto asked = send(*alice, "quor-shop", picture, "asked.png");
  ASSERT_TRUE(waitUntil(
      [&] { return proxy->fromClients().find("urn:xmpp:http:upload:0") != std::string::npos; }));
  proxy->dropAll();
  proxy->holdToClient(false);
  EXPECT_NE(outcomeOf(asked).first, 0);
  // Online again on a new link (the old one may still read as online for a moment).
  ASSERT_TRUE(waitUntil([&] { return proxy->accepted() >= 2; }));
  ASSERT_TRUE(alice->waitUntilOnline(kPatience));
  ASSERT_TRUE(waitUntil([&] { return alice->maxFileBytes() == kLimit; }));

  auto putting =
      send(*alice, "quor-shop", picture, "putting.png", false, [&] { proxy->dropAll(); });
  EXPECT_EQ(outcomeOf(putting), std::make_pair(int64_t{0}, uint64_t{200 * 1000}));
  EXPECT_GE(proxy->accepted(), 3u) << "the link dropped twice";
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(asked->reports, 1);
  EXPECT_EQ(putting->reports, 1);
  ASSERT_EQ(deskGot().size(), 1u);
  KXFileMessage got;
  got.decodeWithData(deskGot()[0].body);
  EXPECT_EQ(got.name(), "putting.png");
  std::filesystem::remove(picture);
  desk->logout();
  alice->logout();
}

// The desk program answers a customer's file with its receipt and a picture of its own, which
// it put on the server at its start.
TEST_P(XmppFiles, TheDeskAnswersAFileWithItsOwnPicture) {
  startDesk(R"({"files": {"receipt": "Got {name}"}})");
  const std::string own = fileOf(30 * 1000, "answer.png");
  EXPECT_EQ(desk->answerFilesWith(own + ".missing"), "the file is empty or cannot be read");
  ASSERT_EQ(desk->answerFilesWith(own), "");
  host = makeHost("alice", ":memory:", view);
  std::mutex mutex;
  std::vector<std::string> files;
  host->setWireObserver([&](const QuorXmppPayload& payload, bool fromClient) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!fromClient && payload.objectName == "KX:FileMsg") files.push_back(*payload.body);
  });
  start("quor-shop", view);
  ASSERT_TRUE(shownReach(view, 1));
  ASSERT_TRUE(waitUntil([&] { return host->maxFileBytes() == kLimit; }));
  const std::string picture = fileOf(1000, "parcel.png");
  EXPECT_EQ(outcomeOf(send(*host, "quor-shop", picture, "parcel.png")).first, 0);
  ASSERT_TRUE(shownReach(view, 3));
  EXPECT_EQ(view.shown[1], "Got parcel.png");
  EXPECT_EQ(view.shown[2], "[KX:FileMsg]");
  KXFileMessage answer;
  {
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(files.size(), 1u);
    answer.decodeWithData(files[0]);
  }
  EXPECT_EQ(answer.name(), std::to_string(::getpid()) + "-answer.png");
  const std::string fetched = fileOf(0, "answer-fetched.png");
  EXPECT_EQ(QuorHttpTransfer::get(answer.url(), fetched, {}), "");
  EXPECT_TRUE(bytesOf(fetched) == bytesOf(own));
  for (const auto& file : {own, picture, fetched}) std::filesystem::remove(file);
  host->logout();
}

QUOR_INSTANTIATE_ON_EACH_SERVER(XmppFiles);

// The upload service over HTTPS: its certificate is verified as the XMPP link's would be, so a
// self-signed one fails the file, once, unless the account trusts it.
class XmppFilesOverTls : public XmppFiles {
 protected:
  void configure(QuorPrivateServer::Options& options) override {
    XmppFiles::configure(options);
    options.fileShareTls = true;
  }
};

TEST_P(XmppFilesOverTls, ACertificateIsVerifiedUnlessTrusted) {
  ASSERT_EQ(server->fileShareUrl().rfind("https://", 0), 0u);
  auto desk = deskAccount();
  const std::string picture = fileOf(50 * 1000, "secure.png");
  for (const bool trusted : {false, true}) {
    SCOPED_TRACE(trusted ? "trusted" : "verified");
    QuorXmppOptions connection = accountOptions("alice", "alice-pw");
    connection.trustSelfSignedCertificate = trusted;
    auto alice = bareHost("alice", &connection);
    ASSERT_TRUE(alice->waitUntilOnline(kPatience));
    ASSERT_TRUE(waitUntil([&] { return alice->maxFileBytes() == kLimit; }));
    auto sent = send(*alice, "quor-shop", picture, "secure.png");
    EXPECT_EQ(outcomeOf(sent).first, trusted ? 0 : QuorXmppErrorUploadFailed);
    alice->logout();
  }
  ASSERT_TRUE(waitUntil([&] { return !deskGot().empty(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  ASSERT_EQ(deskGot().size(), 1u);
  KXFileMessage got;
  got.decodeWithData(deskGot()[0].body);
  EXPECT_EQ(got.url().rfind("https://127.0.0.1:", 0), 0u) << got.url();
  const std::string fetched = fileOf(0, "secure-fetched.png");
  QuorHttpTransfer::Options trusting;
  EXPECT_NE(QuorHttpTransfer::get(got.url(), fetched, trusting), "");
  trusting.trustSelfSignedCertificate = true;
  EXPECT_EQ(QuorHttpTransfer::get(got.url(), fetched, trusting), "");
  EXPECT_TRUE(bytesOf(fetched) == bytesOf(picture));
  for (const auto& file : {picture, fetched}) std::filesystem::remove(file);
  desk->logout();
}

QUOR_INSTANTIATE_ON_EACH_SERVER(XmppFilesOverTls);

}  // namespace
}  // namespace quor::test
