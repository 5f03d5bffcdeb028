// A file sent through the XMPP host (sendFileMessage: a slot from the server's upload service, the
// PUT read from disk on the host's files thread, then the file message), on Prosody and ejabberd
// side by side, their upload services over HTTPS: the throughput of a 10 MB file against a plain
// libcurl HTTPS PUT of the same bytes from memory to the same service in the same run (budget:
// at least 80%), and the resident memory while a 100 MB file goes up against the process's
// before it started (budget: within 2 MB).
//
//   xmpp_upload        (exits 1 when a budget is missed)
#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "QuorHttpTransfer.h"
#include "QuorPrivateServer/QuorPrivateServer.h"
#include "QuorXmppHost/QuorXmppConnection.h"
#include "QuorXmppHost/QuorXmppHost.h"

namespace {

using namespace quor;
using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(30);
constexpr std::size_t kMegabyte = 1000 * 1000;

long residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * ::sysconf(_SC_PAGESIZE);
}

QuorXmppUploadSlot slotFor(QuorXmppConnection& connection, uint64_t size) {
  std::promise<QuorXmppUploadSlot> answer;
  connection.requestUploadSlot("bench.bin", size, "application/octet-stream",
                               [&](const QuorXmppUploadSlot& slot, const std::string& error) {
                                 if (!error.empty())
                                   std::fprintf(stderr, "slot: %s\n", error.c_str());
                                 answer.set_value(slot);
                               });
  return answer.get_future().get();
}

// The file at `path` sent to the desk through the host: its outcome's code (0: sent).
int64_t sendThroughHost(QuorXmppHost& host, const std::string& path, uint64_t size) {
  auto content = std::make_shared<KXFileMessage>();
  content->setName("bench.bin");
  content->setMimeType("application/octet-stream");
  content->setSize(size);
  content->setLocalPath(path);
  auto outcome = std::make_shared<std::promise<int64_t>>();
  host.sendFileMessage(
      KXConversationTypeCustomerService, std::string("quor-shop"), content, nullptr, nullptr,
      [outcome](int64_t) { outcome->set_value(0); },
      [outcome](int64_t code, int64_t) { outcome->set_value(code); });
  return outcome->get_future().get();
}

// A plain PUT of `bytes` from memory to `slot`, with libcurl's defaults (the server's
// self-signed certificate trusted, as the host's account does).
bool plainPut(const QuorXmppUploadSlot& slot, const std::string& bytes) {
  struct Reader {
    const std::string* bytes;
    std::size_t at = 0;
  } reader{&bytes};
  CURL* curl = curl_easy_init();
  curl_slist* headers = nullptr;
  for (const auto& [name, value] : slot.headers)
    headers = curl_slist_append(headers, (name + ": " + value).c_str());
  headers = curl_slist_append(headers, "Content-Type: application/octet-stream");
  curl_easy_setopt(curl, CURLOPT_URL, slot.putUrl.c_str());
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(bytes.size()));
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_READDATA, &reader);
  curl_easy_setopt(
      curl, CURLOPT_READFUNCTION, +[](char* out, size_t size, size_t count, void* user) -> size_t {
        auto* from = static_cast<Reader*>(user);
        const std::size_t n = std::min(size * count, from->bytes->size() - from->at);
        std::copy_n(from->bytes->data() + from->at, n, out);
        from->at += n;
        return n;
      });
  curl_easy_setopt(
      curl, CURLOPT_WRITEFUNCTION,
      +[](char*, size_t size, size_t count, void*) -> size_t { return size * count; });
  const CURLcode code = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return code == CURLE_OK && status >= 200 && status < 300;
}

std::string fileOf(const std::string& directory, std::size_t size) {
  const std::string path = directory + "/upload-" + std::to_string(size) + ".bin";
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  std::string block(1 << 16, 'q');
  for (std::size_t written = 0; written < size; written += block.size())
    out.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), size - written)));
  return path;
}

bool measure(QuorPrivateServer::Software software, const char* name) {
  QuorPrivateServer::Options options;
  options.software = software;
  options.accounts = {{"alice", "alice-pw"}, {"quor-shop", "desk-pw"}};
  options.fileShare = true;
  options.fileShareTls = true;
  options.fileShareLimit = 128 * kMegabyte;
  std::string error;
  auto server = QuorPrivateServer::start(options, &error);
  if (!server) {
    std::fprintf(stderr, "%s: %s\n", name, error.c_str());
    return false;
  }
  QuorXmppHost::Options hostOptions;
  hostOptions.connection = server->account("alice", "alice-pw");
  hostOptions.connection.trustSelfSignedCertificate = true;
  auto host = QuorXmppHost::create(hostOptions, &error);
  if (!host) return false;
  host->setLogSink(nullptr, 0);
  host->connect();
  QuorXmppConnection& connection = host->connection();
  const auto deadline = Clock::now() + kPatience;
  while (host->maxFileBytes() == 0 && Clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const std::string directory = std::filesystem::temp_directory_path().string();

  // 10 MB: the host's path against a plain PUT, alternating, five rounds each; medians.
  const std::string ten = fileOf(directory, 10 * kMegabyte);
  std::string bytes(10 * kMegabyte, 'q');
  std::vector<double> through, plain;
  for (int round = 0; round < 5; ++round) {
    auto start = Clock::now();
    if (sendThroughHost(*host, ten, bytes.size()) != 0) return false;
    through.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    const auto plainSlot = slotFor(connection, bytes.size());
    start = Clock::now();
    if (!plainPut(plainSlot, bytes)) return false;
    plain.push_back(std::chrono::duration<double>(Clock::now() - start).count());
  }
  std::sort(through.begin(), through.end());
  std::sort(plain.begin(), plain.end());
  const double share = plain[2] / through[2];
  std::printf(
      "%s: 10 MB through the host %.0f MB/s (slot, HTTPS PUT, message), plain HTTPS PUT %.0f "
      "MB/s: %.0f%%\n",
      name, 10 / through[2], 10 / plain[2], share * 100);
  std::filesystem::remove(ten);
  bytes = std::string();

  // 100 MB: the resident memory while it goes up, against before.
  const std::string hundred = fileOf(directory, 100 * kMegabyte);
  const long before = residentBytes();
  std::atomic<bool> done{false};
  std::atomic<long> peak{before};
  std::thread sampler([&] {
    while (!done) {
      peak = std::max(peak.load(), residentBytes());
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  const int64_t result = sendThroughHost(*host, hundred, 100 * kMegabyte);
  done = true;
  sampler.join();
  std::filesystem::remove(hundred);
  const double grown = (peak - before) / 1e6;
  std::printf("%s: 100 MB upload %s, resident memory +%.2f MB over %.1f MB before\n", name,
              result == 0 ? "sent" : ("failed " + std::to_string(result)).c_str(), grown,
              before / 1e6);
  host->logout();
  const bool ok = result == 0 && share >= 0.8 && grown <= 2.0;
  if (!ok) std::printf("%s: a budget is missed (throughput >= 80%%, memory <= 2 MB)\n", name);
  return ok;
}

}  // namespace

int main() {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  const bool prosody = measure(QuorPrivateServer::Software::Prosody, "Prosody");
  const bool ejabberd = measure(QuorPrivateServer::Software::Ejabberd, "ejabberd");
  return prosody && ejabberd ? 0 : 1;
}
