#include "QuorHttpTransfer.h"

#include <curl/curl.h>

#include <cstdio>
#include <memory>
#include <mutex>

namespace quor {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
using Handle = std::unique_ptr<CURL, void (*)(CURL*)>;

struct Transfer {
  std::FILE* file = nullptr;
  const QuorHttpTransfer::Options* options = nullptr;
  bool upload = false;  // which side progress reports
  bool cancelled = false;
  uint64_t written = 0;
  bool overLimit = false;
};

size_t readPiece(char* buffer, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  return std::fread(buffer, size, count, transfer->file);
}

size_t writePiece(char* buffer, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const size_t bytes = size * count;
  transfer->written += bytes;
  if (transfer->options->maxBytes > 0 && transfer->written > transfer->options->maxBytes) {
    transfer->overLimit = true;
    return 0;  // curl ends the transfer
  }
  return std::fwrite(buffer, 1, bytes, transfer->file);
}

// The service's answer to the PUT says nothing the status does not: it is dropped (curl would
// write it to the process's standard output).
size_t dropAnswer(char*, size_t size, size_t count, void*) { return size * count; }

int progressOf(void* user, curl_off_t downTotal, curl_off_t down, curl_off_t upTotal,
               curl_off_t up) {
  auto* transfer = static_cast<Transfer*>(user);
  const auto* options = transfer->options;
  if (options->cancelled && options->cancelled()) {
    transfer->cancelled = true;
    return 1;  // curl ends the transfer
  }
  const bool upload = transfer->upload;
  curl_off_t total = upload ? upTotal : downTotal;
  if (!upload && total <= 0) total = static_cast<curl_off_t>(options->maxBytes);
  if (options->progress && total > 0)
    options->progress(static_cast<uint64_t>(upload ? up : down), static_cast<uint64_t>(total));
  return 0;
}

Handle handleFor(const std::string& url, Transfer* transfer, const QuorHttpTransfer::Options& o) {
  static std::once_flag global;
  std::call_once(global, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  Handle curl(curl_easy_init(), &curl_easy_cleanup);
  if (!curl) return curl;
  CURL* handle = curl.get();
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &progressOf);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, transfer);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 15L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(o.stallSeconds));
  const long verify = o.trustSelfSignedCertificate ? 0L : 1L;
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, verify);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, verify * 2);
  return curl;
}

// Runs the transfer: "" on a 2xx answer, else why not.
std::string perform(CURL* handle, const Transfer& transfer) {
  char reason[CURL_ERROR_SIZE] = {};
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, reason);
  const CURLcode code = curl_easy_perform(handle);
  if (transfer.cancelled) return "cancelled";
  if (transfer.overLimit) return "larger than announced";
  if (code != CURLE_OK) return reason[0] ? reason : curl_easy_strerror(code);
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  if (status < 200 || status >= 300) return "HTTP " + std::to_string(status);
  return "";
}

}  // namespace

std::string QuorHttpTransfer::put(const QuorXmppUploadSlot& slot, const std::string& path,
                                  const Options& options) {
  File file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) return "cannot read " + path;
  if (std::fseek(file.get(), 0, SEEK_END) != 0) return "cannot read " + path;
  const long size = std::ftell(file.get());
  if (size < 0 || std::fseek(file.get(), 0, SEEK_SET) != 0) return "cannot read " + path;

  Transfer transfer{file.get(), &options, true};
  Handle curl = handleFor(slot.putUrl, &transfer, options);
  if (!curl) return "no HTTP client";
  curl_slist* headers = nullptr;
  for (const auto& [name, value] : slot.headers)
    headers = curl_slist_append(headers, (name + ": " + value).c_str());
  if (!options.contentType.empty())
    headers = curl_slist_append(headers, ("Content-Type: " + options.contentType).c_str());
  std::unique_ptr<curl_slist, void (*)(curl_slist*)> headerList(headers, &curl_slist_free_all);
  CURL* handle = curl.get();
  curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
  curl_easy_setopt(handle, CURLOPT_READFUNCTION, &readPiece);
  curl_easy_setopt(handle, CURLOPT_READDATA, &transfer);
  // Larger pieces than curl's 64 KiB cost fewer calls on a fast link; the memory stays fixed.
  curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headerList.get());
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &dropAnswer);
  return perform(handle, transfer);
}

namespace {

// A GET into the transfer's file.
std::string download(const std::string& url, Transfer& transfer,
                     const QuorHttpTransfer::Options& options) {
  Handle curl = handleFor(url, &transfer, options);
  if (!curl) return "no HTTP client";
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &writePiece);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
  return perform(curl.get(), transfer);
}

}  // namespace

std::string QuorHttpTransfer::get(const std::string& url, const std::string& path,
                                  const Options& options) {
  File file(std::fopen(path.c_str(), "wb"), &std::fclose);
  if (!file) return "cannot write " + path;
  Options limited = options;
  if (limited.maxBytes == 0) limited.maxBytes = UINT64_MAX;
  Transfer transfer{file.get(), &limited, false};
  std::string failed = download(url, transfer, limited);
  if (std::fclose(file.release()) != 0 && failed.empty()) failed = "cannot write " + path;
  if (!failed.empty()) std::remove(path.c_str());
  return failed;
}

}  // namespace quor
