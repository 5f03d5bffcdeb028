#include "QuorXmppDesk/QuorXmppDesk.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iterator>
#include <nlohmann/json.hpp>
#include <thread>

#include "QuorCustomerService/Host/KXTextMessage.h"
#include "QuorCustomerService/Session/KXCSFileType.h"
#include "QuorHostBase/QuorFileCache.h"
#include "QuorHttpTransfer.h"
#include "QuorXmppHost/QuorDeskJid.h"
#include "QuorXmppHost/QuorRecentPayloads.h"
#include "QuorXmppHost/QuorXmppErrors.h"
#include "QuorXmppStanza.h"

namespace quor {
namespace {

// Where a session's saved state keeps the customer's newest message id.
constexpr const char* kNewestStanza = "newestStanza";
// The fixed resource of a desk: its next login replaces a dead one's session at once.
constexpr const char* kDeskResource = "desk";

QuorXmppOptions withDeskResource(QuorXmppOptions options) {
  if (options.resource.empty()) options.resource = kDeskResource;
  return options;
}

std::unique_ptr<QuorDeskStore> memoryStore(const std::string& account) {
  return QuorDeskStore::open(":memory:", account, nullptr);
}

}  // namespace

QuorXmppDesk::QuorXmppDesk(KXDictionary profile, QuorXmppOptions options, Limits limits)
    : profile_(std::move(profile)),
      limits_(limits),
      trustSelfSigned_(options.trustSelfSignedCertificate),
      connection_(std::make_unique<QuorXmppConnection>(
          withDeskResource(std::move(options)), static_cast<QuorXmppConnection::Events&>(*this))) {
  store_ = memoryStore(connection_->bareJid());
}

QuorXmppDesk::~QuorXmppDesk() {
  // The network thread ends first: it reads the connection while it serves.
  connection_->stop();
  connection_.reset();
}

std::unique_ptr<QuorDeskStore> QuorXmppDesk::openState(const std::string& path,
                                                       const std::string& jid, std::string* error) {
  std::error_code ignored;
  const auto directory = std::filesystem::path(path).parent_path();
  if (!directory.empty()) std::filesystem::create_directories(directory, ignored);
  return QuorDeskStore::open(path, QuorXmppStanza::bareJid(jid), error);
}

bool QuorXmppDesk::keepStateIn(const std::string& path, std::string* error) {
  auto store = openState(path, connection_->bareJid(), error);
  if (!store) return false;
  std::lock_guard<std::mutex> steps(steps_);
  std::lock_guard<std::mutex> lock(mutex_);
  store_ = std::move(store);
  sessions_.clear();
  byActivity_.clear();
  return true;
}

std::string QuorXmppDesk::defaultStatePath(const std::string& jid) {
  std::string base;
  if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state == '/') {
    base = state;
  } else if (const char* home = std::getenv("HOME"); home && *home == '/') {
    base = std::string(home) + "/.local/state";
  } else {
    base = ".";
  }
  // A JID has no '/' in its bare form, but the file name must never leave the directory.
  std::string name = QuorXmppStanza::bareJid(jid);
  for (char& c : name) {
    if (c == '/' || c == '\0') c = '_';
  }
  return base + "/quor-cs-desk/" + name + ".sqlite";
}

void QuorXmppDesk::start() {
  connection_->start();
  // What the server did not confirm before the desk stopped (or died) is written again, under
  // its ids, once online: customers take one copy.
  for (auto& payload : store_->outbox()) write(std::move(payload));
}

void QuorXmppDesk::stop() { connection_->stop(); }

bool QuorXmppDesk::waitUntilOnline(std::chrono::milliseconds timeout) const {
  return connection_->waitUntilOnline(timeout);
}

void QuorXmppDesk::setLogSink(LogSink sink, int32_t maxLevel) {
  std::lock_guard<std::mutex> lock(mutex_);
  logSink_ = std::move(sink);
  logMaxLevel_ = maxLevel;
}

void QuorXmppDesk::servedByPeople(PeopleWatch watch) {
  std::lock_guard<std::mutex> lock(mutex_);
  peopleWatch_ = std::move(watch);
  for (auto& [jid, session] : sessions_) watchByPeople(*session.desk);
}

void QuorXmppDesk::watchByPeople(QuorDeskSimulator& desk) {
  // The desk records every message itself (record()): the session's watch only has it wait for
  // people.
  desk.servedByPeople(peopleWatch_ ? [](const QuorWireMessage&, bool) {}
                                   : QuorDeskSimulator::Watch());
}

void QuorXmppDesk::watchSignals(SignalWatch watch) {
  std::lock_guard<std::mutex> lock(mutex_);
  signalWatch_ = std::move(watch);
}

void QuorXmppDesk::sendTyping(const std::string& customerJid, bool typing) {
  connection_->sendChatState(customerJid, typing);
}

void QuorXmppDesk::sendRead(const std::string& customerJid) {
  std::string newest;
  bool inMemory = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto session = sessions_.find(customerJid);
    inMemory = session != sessions_.end();
    if (inMemory) newest = session->second.newestStanza;
  }
  if (!inMemory) {
    // A customer the desk holds no session of in memory now (a restart, many customers since):
    // the saved one.
    const auto saved = store_->session(customerJid);
    const auto found = saved ? saved->find(kNewestStanza) : KXDictionary::const_iterator();
    if (saved && found != saved->end() && found->is_string()) newest = found->get<std::string>();
  }
  if (!newest.empty()) connection_->sendReadMarker(customerJid, newest);
}

std::string QuorXmppDesk::fetchFile(const std::string& url, uint64_t maxBytes,
                                    const std::string& path) const {
  QuorHttpTransfer::Options options;
  options.trustSelfSignedCertificate = trustSelfSigned_;
  options.maxBytes = maxBytes;
  return QuorHttpTransfer::get(url, path, options);
}

uint64_t QuorXmppDesk::maxFileBytes() const {
  const auto service = connection_->uploadService();
  return service.jid.empty() ? 0 : service.maxBytes;
}

std::string QuorXmppDesk::uploadFile(const std::string& path, const std::string& name,
                                     const std::string& type, KXDictionary* file) const {
  if (connection_->uploadService().jid.empty()) return "the server offers no file upload";
  std::error_code failed;
  const uint64_t size = std::filesystem::file_size(path, failed);
  if (failed || size == 0) return "the file is empty or cannot be read";
  if (size > maxFileBytes()) {
    return "the file is larger than the server takes (" + std::to_string(maxFileBytes()) +
           " bytes)";
  }
  using Answer = std::pair<QuorXmppUploadSlot, std::string>;
  auto answer = std::make_shared<std::promise<Answer>>();
  connection_->requestUploadSlot(QuorFileCache::safeName(name), size, type,
                                 [answer](const QuorXmppUploadSlot& slot, const std::string& why) {
                                   answer->set_value({slot, why});
                                 });
  auto slot = answer->get_future();
  if (slot.wait_for(std::chrono::seconds(30)) != std::future_status::ready)
    return "the server's upload service did not answer";
  const auto [given, refused] = slot.get();
  if (!refused.empty()) return "the server gave no upload slot: " + refused;
  QuorHttpTransfer::Options options;
  options.trustSelfSignedCertificate = trustSelfSigned_;
  options.contentType = type;
  const std::string putFailed = QuorHttpTransfer::put(given, path, options);
  if (!putFailed.empty()) return "the upload failed: " + putFailed;
  const KXCSFileType::Seen seen = KXCSFileType::sniff(path);
  *file = {{"name", name}, {"type", type}, {"size", size}, {"url", given.getUrl}};
  if (seen.width > 0 && seen.height > 0) {
    (*file)["width"] = seen.width;
    (*file)["height"] = seen.height;
  }
  return "";
}

std::string QuorXmppDesk::answerFilesWith(const std::string& path) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (maxFileBytes() == 0 && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  KXDictionary file;
  const std::string failed =
      uploadFile(path, std::filesystem::path(path).filename().string(),
                 KXCSFileType::trusted("", KXCSFileType::sniff(path)), &file);
  if (!failed.empty()) return failed;
  std::lock_guard<std::mutex> steps(steps_);
  std::lock_guard<std::mutex> lock(mutex_);
  fileAnswer_ = std::move(file);
  // The sessions in memory were made with the profile as it was: they are made again, from the
  // store, at their next step.
  sessions_.clear();
  byActivity_.clear();
  return "";
}

void QuorXmppDesk::onChatState(const std::string& peer, bool typing) {
  if (!knows(peer)) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (signalWatch_.typing) signalWatch_.typing(peer, typing);
}

void QuorXmppDesk::onDisplayed(const std::string& peer, const std::string&) {
  if (!knows(peer)) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (signalWatch_.read) signalWatch_.read(peer);
}

bool QuorXmppDesk::knows(const std::string& customerJid) const {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (sessions_.count(customerJid)) return true;
  }
  return store_->session(customerJid).has_value();
}

std::size_t QuorXmppDesk::customerCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessions_.size();
}

bool QuorXmppDesk::serves(const std::string& customerJid) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessions_.count(customerJid) != 0;
}

std::string QuorXmppDesk::step(const std::string& customerJid, const Change& change) {
  std::vector<QuorXmppPayload> answers;
  std::string result;
  {
    std::lock_guard<std::mutex> steps(steps_);
    result = stepLocked(customerJid, false, change);
    answers.swap(unwritten_);
  }
  for (auto& payload : answers) write(std::move(payload));
  return result;
}

std::string QuorXmppDesk::stepLocked(const std::string& customerJid, bool create,
                                     const Change& change) {
  auto session = sessionFor(customerJid, create);
  if (!session) return "this customer is not with the desk";
  store_->begin();
  std::string result = change(*session);
  // The session's state, and the customer's newest message, which the desk's read marker names
  // (after a restart too).
  KXDictionary state = session->saveState();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = sessions_.find(customerJid);
    if (found != sessions_.end() && !found->second.newestStanza.empty())
      state[kNewestStanza] = found->second.newestStanza;
  }
  store_->saveSession(customerJid, state);
  if (!store_->commit()) {
    onLog(2, "desk", "cannot store the state of " + customerJid + ": " + store_->lastError());
  }
  return result;
}

std::shared_ptr<QuorDeskSimulator> QuorXmppDesk::sessionFor(const std::string& customerJid,
                                                            bool create) {
  const auto now = std::chrono::steady_clock::now();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = sessions_.find(customerJid);
    if (found != sessions_.end()) {
      // The most recently active goes last.
      byActivity_.splice(byActivity_.end(), byActivity_, found->second.inOrder);
      found->second.lastActive = now;
      forgetOld(now);
      return found->second.desk;
    }
  }
  const auto saved = store_->session(customerJid);
  if (!saved && !create) return nullptr;
  auto desk = makeSession(customerJid);
  if (!desk) return nullptr;
  std::string newest;
  if (saved) {
    desk->restoreState(*saved);
    const auto found = saved->find(kNewestStanza);
    if (found != saved->end() && found->is_string()) newest = found->get<std::string>();
  }
  std::lock_guard<std::mutex> lock(mutex_);
  watchByPeople(*desk);
  byActivity_.push_back(customerJid);
  sessions_[customerJid] = {desk, now, std::prev(byActivity_.end()), newest};
  forgetOld(now);
  return desk;
}

std::shared_ptr<QuorDeskSimulator> QuorXmppDesk::makeSession(const std::string& customerJid) {
  KXDictionary answer;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    answer = fileAnswer_;
  }
  std::shared_ptr<QuorDeskSimulator> desk;
  if (answer.is_null()) {
    desk = QuorDeskSimulator::fromProfile(profile_, nullptr);
  } else {
    KXDictionary profile = profile_;
    if (!profile["files"].is_object()) profile["files"] = KXDictionary::object();
    profile["files"]["answer"] = std::move(answer);
    desk = QuorDeskSimulator::fromProfile(profile, nullptr);
  }
  if (!desk) return nullptr;
  desk->keepReceived(0);  // the store has them
  std::weak_ptr<QuorDeskSimulator> weak = desk;
  // The session speaks inside a step (steps_ is held): its answer is recorded, queued in the
  // store's outbox, and written once the step is stored.
  desk->attach([this, customerJid, weak](QuorWireMessage message) {
    const auto session = weak.lock();
    QuorXmppPayload payload;
    payload.peer = customerJid;
    payload.objectName = message.objectName;
    payload.body = message.body;
    payload.sender = message.senderUserId.value_or("");
    payload.stanzaId = QuorXmppStanza::uniqueId();
    // What the desk says while answering a customer is said by no person, even as the agent.
    record({customerJid, QuorXmppStanza::wallClockMs(), false, message.objectName, message.body,
            payload.sender, session && !answering_ ? session->takenBy() : ""});
    store_->queue(payload);
    unwritten_.push_back(std::move(payload));
  });
  return desk;
}

void QuorXmppDesk::keep(QuorDeskStore::Record record) {
  std::lock_guard<std::mutex> steps(steps_);
  this->record(std::move(record));
}

void QuorXmppDesk::record(QuorDeskStore::Record record) {
  store_->addRecord(record);
  PeopleWatch watch;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    watch = peopleWatch_;
  }
  if (watch) watch(record);
}

void QuorXmppDesk::write(QuorXmppPayload payload) {
  std::string line;
  {
    // Each send's outcome is logged at level 5, for tools that count what the desk said; the
    // line is made only when someone reads that level.
    std::lock_guard<std::mutex> lock(mutex_);
    if (logMaxLevel_ >= 5 && logSink_)
      line = payload.objectName + " to " + payload.peer + ": " + payload.body.value_or("");
  }
  const std::string id = payload.stanzaId;
  QuorXmppPayload again = payload;
  connection_->send(std::move(payload), [this, id, line, again](int64_t errorCode, int64_t) {
    if (errorCode == QuorXmppErrorTimeout || errorCode == QuorXmppErrorConnectionLost) {
      // Written without a confirmation, or the link went first: it may not have arrived (a
      // killed desk's socket loses what the server had not read). It stays in the outbox and is
      // written again under its id; the customer takes one copy.
      write(again);
    } else if (errorCode != QuorXmppErrorStopped && errorCode != QuorXmppErrorNotOnline) {
      // Its outcome: confirmed, or refused for good. Stopped or never online: it waits in the
      // outbox for the next start.
      store_->sent(id);
    }
    if (line.empty()) return;
    onLog(5, "desk",
          (errorCode == 0 ? "sent " : "not sent (" + std::to_string(errorCode) + ") ") + line);
  });
}

void QuorXmppDesk::forgetOld(std::chrono::steady_clock::time_point now) {
  while (!byActivity_.empty()) {
    const auto oldest = sessions_.find(byActivity_.front());
    if (sessions_.size() <= limits_.maxSessions &&
        now - oldest->second.lastActive < limits_.idleSession) {
      return;
    }
    sessions_.erase(oldest);
    byActivity_.pop_front();
  }
}

void QuorXmppDesk::onStatus(QuorXmppConnectionStatus status) {
  onLog(4, "desk", "connection status " + std::to_string(static_cast<int64_t>(status)));
  // What reached the archive while the desk was away (or dead, its session held by the server)
  // is taken from there; what the desk took already is known and answered once.
  const auto after = catchUp_.onStatus(status, store_->archiveMark());
  if (!after) return;
  onLog(4, "desk", "reading the archive after " + *after);
  connection_->queryArchive(*after);
}

void QuorXmppDesk::onArchiveEnd(bool complete, const std::string& lastId) {
  const auto next = catchUp_.onArchiveEnd(complete, lastId);
  if (!next) {
    onLog(4, "desk", "read the archive");
    return;
  }
  onLog(4, "desk", "reading the archive after " + *next);
  connection_->queryArchive(*next);
}

void QuorXmppDesk::onPayload(QuorXmppPayload payload) {
  const bool movesPlace = catchUp_.onPayload(payload);
  if (payload.outgoing) {
    // The desk's own answer, read back from its archive: it only moves the place on.
    if (movesPlace) store_->setArchiveMark(payload.archiveId);
    return;
  }
  std::vector<QuorXmppPayload> answers;
  {
    std::lock_guard<std::mutex> steps(steps_);
    stepLocked(payload.peer, true, [&](QuorDeskSimulator& session) {
      if (movesPlace) store_->setArchiveMark(payload.archiveId);
      // A customer's send written again (a retry, a resend after a lost link, its next run, the
      // archive) is answered once.
      if (store_->seenBefore(QuorRecentPayloads::keyOf(payload))) return std::string();
      if (payload.body && payload.body->size() > limits_.messageBytes) {
        onLog(3, "desk",
              "a " + payload.objectName + " of " + std::to_string(payload.body->size()) +
                  " bytes from " + payload.peer + " is over the desk's limit of " +
                  std::to_string(limits_.messageBytes) + ": not taken");
        return std::string();
      }
      QuorWireMessage message;
      message.objectName = std::move(payload.objectName);
      message.targetId = session.deskId();
      message.senderUserId = QuorDeskJid::fromJid(payload.peer, connection_->domain());
      message.body = std::move(payload.body);
      message.sentTime = payload.stamp;
      message.offline = payload.offline;
      record({payload.peer, QuorXmppStanza::wallClockMs(), true, message.objectName, message.body,
              message.senderUserId.value_or(""), session.takenBy(), payload.stamp});
      if (!payload.stanzaId.empty()) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = sessions_.find(payload.peer);
        if (found != sessions_.end()) found->second.newestStanza = payload.stanzaId;
      }
      answering_ = true;
      session.onMessageFromClient(message);
      answering_ = false;
      return std::string();
    });
    answers.swap(unwritten_);
  }
  // The robot "types" its answer: the customer's app shows it until the text arrives.
  const bool texts = std::any_of(answers.begin(), answers.end(), [](const auto& answer) {
    return answer.objectName == KXTextMessage::getObjectName();
  });
  if (texts && !payload.offline) connection_->sendChatState(payload.peer, true);
  for (auto& answer : answers) write(std::move(answer));
}

void QuorXmppDesk::onLog(int32_t level, const std::string& area, const std::string& text) {
  LogSink sink;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (level > logMaxLevel_) return;
    sink = logSink_;
  }
  if (sink) sink(level, area + ": " + text);
}

}  // namespace quor
