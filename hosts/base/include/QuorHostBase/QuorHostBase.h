#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "QuorCustomerService/Extension/QuorCustomerServiceExtensionModule.h"
#include "QuorCustomerService/Host/KXCoreClient.h"
#include "QuorCustomerService/Host/KXFwLog.h"
#include "QuorCustomerService/Host/KXLocalConfiguration.h"
#include "QuorCustomerService/Host/KXMainRunLoop.h"
#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"
#include "QuorHostBase/QuorLogEntry.h"
#include "QuorHostBase/QuorModuleSet.h"
#include "QuorHostBase/QuorOutgoingSend.h"
#include "QuorHostBase/QuorPendingSend.h"
#include "QuorHostBase/QuorReceivedMessage.h"
#include "QuorHostBase/QuorTypeRegistry.h"

namespace quor {

// What every host in this repository shares: installing itself as the library's core client,
// logger, local configuration and main dispatcher; the registered message types
// (QuorTypeRegistry) and the loaded extension modules (QuorModuleSet); the bookkeeping of a send
// (its record, its encoded body, closures reported at most once); the one receive pipeline
// (decode, offer to the modules, drop signals, store, hand on to the listeners); the local
// setting csSuspendWhenLeave; the application's message listeners; the main thread, a run loop
// the application drains unless a host posts elsewhere; thread names for records and log
// entries.
//
// A host adds its transport (transmit(), and receive() for what arrives) and its store
// (storeReceived(), insertIncomingMessage(), onReceiveFakeMessage()).
//
// Threads: every operation may be called from any thread. The base holds its lock only for its
// own bookkeeping, never while it calls the library, a closure, a listener or a derived class.
// Message listeners run on the main thread (posted through post()).
class QuorHostBase : public KXCoreClient,
                     public KXFwLog,
                     public KXLocalConfiguration,
                     public KXMainThreadDispatcher,
                     public std::enable_shared_from_this<QuorHostBase> {
 public:
  ~QuorHostBase() override;

  // Installs this host as the library's core client, logger, local configuration and main
  // dispatcher. uninstall() removes whatever is installed.
  void install();
  static void uninstall();
  // Loads the library's extension module (loadQuorExtensionModule) once and offers it every
  // received message from then on.
  QuorIMLibExtensionModule& loadExtensionModule();
  // Offers every received message to `module` too, after the modules loaded before it: an IM
  // core carries several extension modules. The module must outlive the host.
  void loadExtensionModule(QuorIMLibExtensionModule& module);

  using LogSink = std::function<void(const QuorLogEntry& entry)>;
  // Where log entries go: entries with a level up to `maxLevel` (2 errors, 4 information) are
  // formatted and passed to `sink`, on the thread that logs. The default writes errors to
  // stderr; a null sink drops everything.
  void setLogSink(LogSink sink, int32_t maxLevel);

  using MessageListener = std::function<void(const std::shared_ptr<KXMessage>& message)>;
  // Listeners see every message the application would show: received messages the modules do
  // not hold, and local messages handed on as received. Called on the main thread.
  void addMessageListener(MessageListener listener);

  // The main thread's run loop: the application drains it (runUntilIdle(), run()) on the thread
  // it treats as its main thread. post() queues onto it.
  KXMainRunLoop& mainRunLoop() { return *mainRunLoop_; }
  // KXMainThreadDispatcher
  void post(std::function<void()> closure) override { mainRunLoop_->post(std::move(closure)); }

  // The name of the calling thread as a host names it: a QuorWorkerThread's name, a name set
  // with setThreadName(), else "main".
  static std::string threadName();
  static void setThreadName(std::string name);

  void setSuspendWhenLeave(bool value) { suspendWhenLeave_ = value; }
  bool csSuspendWhenLeave() const override { return suspendWhenLeave_; }

  // KXCoreClient: both sends make the record and the pending closures, encode the content on
  // the calling thread and hand everything to transmit().
  std::shared_ptr<KXMessage> sendMessage(int32_t conversationType, const KXString& targetId,
                                         std::shared_ptr<KXMessageContent> content,
                                         const KXString& pushContent, const KXString& pushData,
                                         SuccessBlock success, ErrorBlock error) final;
  std::shared_ptr<KXMessage> sendMessageSuccessBlock(
      int32_t conversationType, const KXString& targetId, std::shared_ptr<KXMessageContent> content,
      const KXString& pushContent, const KXString& pushData, RecordSuccessBlock successBlock,
      RecordErrorBlock errorBlock) final;
  void registerMessageType(const KXMessageContentType& type) override;
  // Sends again a send of this host that has not succeeded (the last kUnsettledKept with an id
  // and closures), through transmit() with `again` set. A host with a store overrides it.
  bool resendMessage(int64_t messageId, SuccessBlock success, ErrorBlock error) override;
  static constexpr std::size_t kUnsettledKept = 1024;
  // The error codes that mean "written, may still arrive" (none by default; a test host or an
  // adapter sets its own, the XMPP host overrides isUnconfirmedError()).
  void setUnconfirmedErrorCodes(std::vector<int64_t> codes);
  bool isUnconfirmedError(int64_t errorCode) const override;
  // KXFwLog: formats the entries that the sink takes (or that observesLogs() wants).
  void write(int32_t level, int32_t type, std::string_view tag, std::string_view format,
             std::initializer_list<KXLogArgument> keys) override;

  // The registered types, in registration order (a type registered again keeps its place).
  std::vector<KXMessageContentType> registeredTypes() const;
  // Whether a loaded module named `objectName` a signal type: never stored, never shown.
  bool isSignalType(const std::string& objectName) const { return modules_.isSignal(objectName); }

 protected:
  QuorHostBase();

  // Takes one send: reports it through `pending` (at once, later or never) and carries it.
  virtual void transmit(QuorOutgoingSend send, std::shared_ptr<QuorPendingSend> pending) = 0;
  // The name of the calling thread, for the send's record and log entries.
  virtual std::string currentThreadName() const { return threadName(); }
  // The id of the next sent message (1, 2, 3 ... by default).
  virtual int64_t nextMessageId() { return nextMessageId_++; }

  // Whether observeLog() wants every entry, whatever the sink's level.
  virtual bool observesLogs() const { return false; }
  virtual void observeLog(const QuorLogEntry& /*entry*/) {}

  // A fresh instance of the type registered under `objectName`, or a QuorRawContent.
  std::shared_ptr<KXMessageContent> contentFor(const std::string& objectName) const {
    return types_.contentFor(objectName);
  }
  // The receive pipeline, on the host's delivery thread: decodes the message into a fresh
  // content, stores it (storeReceived(), for contents that are persisted and no signal), offers
  // it to every loaded module, and unless one held it (then forgetReceived()) or it is a signal,
  // hands it to the listeners. Returns whether a module held it.
  bool receive(const QuorReceivedMessage& received);
  // Stores a received, persisted message; `message` may take the store's id. False when the
  // store already had it (an earlier run saw it): the listeners are not told again. The
  // default stores nothing.
  virtual bool storeReceived(const std::shared_ptr<KXMessage>& /*message*/,
                             const QuorReceivedMessage& /*received*/) {
    return true;
  }
  // Removes a message that storeReceived() stored and a module then held. The default does
  // nothing.
  virtual void forgetReceived(const std::shared_ptr<KXMessage>& /*message*/) {}
  // Registers the host's own contents, text and grey notice, so that a text from the desk
  // decodes into a KXTextMessage.
  void registerHostTypes();
  // The loaded extension modules, in load order.
  std::vector<QuorIMLibExtensionModule*> loadedModules() const { return modules_.modules(); }
  // Passes an entry to the sink (when its level passes the filter) and to observeLog().
  void writeEntry(const QuorLogEntry& entry);
  // Hands a message to the application's listeners on the main thread.
  void notifyListeners(const std::shared_ptr<KXMessage>& message);

 private:
  std::shared_ptr<KXMessage> send(int32_t conversationType, const KXString& targetId,
                                  std::shared_ptr<KXMessageContent> content,
                                  const KXString& pushContent, const KXString& pushData,
                                  QuorSendClosures closures, SuccessBlock success, ErrorBlock error,
                                  RecordSuccessBlock recordSuccess, RecordErrorBlock recordError);

  // Keeps `send` for resendMessage() until it succeeds; `success` then forgets it.
  SuccessBlock keepUntilSent(const QuorOutgoingSend& send, SuccessBlock success);

  const std::shared_ptr<KXMainRunLoop> mainRunLoop_;
  mutable std::mutex mutex_;
  std::map<int64_t, QuorOutgoingSend> unsettled_;  // by message id, under mutex_
  std::vector<int64_t> unconfirmedErrorCodes_;     // under mutex_
  QuorTypeRegistry types_;
  QuorModuleSet modules_;
  std::vector<MessageListener> listeners_;
  LogSink logSink_;
  int32_t logMaxLevel_ = 2;
  std::atomic<int64_t> nextMessageId_{1};
  std::atomic<bool> suspendWhenLeave_{false};
};

}  // namespace quor
