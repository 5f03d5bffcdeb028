#include "QuorHttpUpload.h"

#include <curl/curl.h>

#include <cstdio>
#include <memory>
#include <mutex>

namespace quor {
namespace {

struct Transfer {
  std::FILE* file = nullptr;
  const QuorHttpUpload::Options* options = nullptr;
  bool cancelled = false;
};

size_t readPiece(char* buffer, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  return std::fread(buffer, size, count, transfer->file);
}

// The service's answer to the PUT says nothing the status does not: it is dropped (curl would
// write it to the process's standard output).
size_t dropAnswer(char*, size_t size, size_t count, void*) { return size * count; }

int progressOf(void* user, curl_off_t, curl_off_t, curl_off_t total, curl_off_t sent) {
  auto* transfer = static_cast<Transfer*>(user);
  const auto* options = transfer->options;
  if (options->cancel && options->cancel->load()) {
    transfer->cancelled = true;
    return 1;  // curl ends the transfer
  }
  if (options->progress && total > 0)
    options->progress(static_cast<uint64_t>(sent), static_cast<uint64_t>(total));
  return 0;
}

}  // namespace

std::string QuorHttpUpload::put(const QuorXmppUploadSlot& slot, const std::string& path,
                                const Options& options) {
  static std::once_flag global;
  std::call_once(global, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                       &std::fclose);
  if (!file) return "cannot read " + path;
  if (std::fseek(file.get(), 0, SEEK_END) != 0) return "cannot read " + path;
  const long size = std::ftell(file.get());
  if (size < 0 || std::fseek(file.get(), 0, SEEK_SET) != 0) return "cannot read " + path;

  std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), &curl_easy_cleanup);
  if (!curl) return "no HTTP client";
  curl_slist* headers = nullptr;
  for (const auto& [name, value] : slot.headers)
    headers = curl_slist_append(headers, (name + ": " + value).c_str());
  if (!options.contentType.empty())
    headers = curl_slist_append(headers, ("Content-Type: " + options.contentType).c_str());
  std::unique_ptr<curl_slist, void (*)(curl_slist*)> headerList(headers, &curl_slist_free_all);

  Transfer transfer{file.get(), &options, false};
  CURL* handle = curl.get();
  curl_easy_setopt(handle, CURLOPT_URL, slot.putUrl.c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(size));
  curl_easy_setopt(handle, CURLOPT_READFUNCTION, &readPiece);
  curl_easy_setopt(handle, CURLOPT_READDATA, &transfer);
  // Larger pieces than curl's 64 KiB cost fewer calls on a fast link; the memory stays fixed.
  curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024);
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headerList.get());
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &dropAnswer);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &progressOf);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &transfer);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 15L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(options.stallSeconds));
  const long verify = options.trustSelfSignedCertificate ? 0L : 1L;
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, verify);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, verify * 2);
  char reason[CURL_ERROR_SIZE] = {};
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, reason);
  const CURLcode code = curl_easy_perform(handle);
  if (transfer.cancelled) return "cancelled";
  if (code != CURLE_OK) return reason[0] ? reason : curl_easy_strerror(code);
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  if (status < 200 || status >= 300) return "HTTP " + std::to_string(status);
  return "";
}

}  // namespace quor
