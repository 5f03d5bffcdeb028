#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/KXCustomerServiceConstants.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"
#include "QuorLoopbackHost/QuorLoopbackPeer.h"

namespace quor {

// A scripted customer-service desk at the other end of a QuorLoopbackHost, configured by a JSON
// desk profile (docs/desk-simulator.md). It answers the handshake, mode-change requests and the
// customer's text messages, accepts ratings, leave-messages and suspends, and can speak on its
// own. Its times come from the host's virtual clock, so every run is deterministic.
//
// Threads: the desk answers on the host's "host" thread; its replies reach the application
// through the host's delivery thread. The inspection and speaking functions may be called from
// any thread; call QuorLoopbackHost::settle() afterwards to let everything arrive.
//
//   auto host = std::make_shared<QuorLoopbackHost>();
//   host->install();
//   host->loadExtensionModule();
//   std::string error;
//   auto desk = QuorDeskSimulator::fromProfile(profile, &error);
//   desk->attach(host);
//   client.startCustomerService(desk->deskId(), info, ...);
//   host->settle();                       // greeting, success and mode callbacks have run
//   desk->bodiesOf("KX:CsHs");            // what the customer sent
//   desk->endService("Bye");              // make the desk speak
class QuorDeskSimulator : public QuorLoopbackPeer,
                          public std::enable_shared_from_this<QuorDeskSimulator> {
 public:
  // A desk for a profile, or null with the reason in `error`.
  static std::shared_ptr<QuorDeskSimulator> fromProfile(const KXDictionary& profile,
                                                        std::string* error);
  // The same for a profile file.
  static std::shared_ptr<QuorDeskSimulator> fromFile(const std::string& path, std::string* error);
  // The built-in demo desk: a robot-first shop service with two groups.
  static KXDictionary defaultProfile();

  // Connects the desk to `host` as its peer.
  void attach(const std::shared_ptr<QuorLoopbackHost>& host);
  // Sends the desk's messages through `reply` instead (a desk on another transport); the
  // transport hands the customer's messages to onMessageFromClient().
  using Reply = std::function<void(QuorWireMessage message)>;
  void attach(Reply reply);

  const std::string& deskId() const { return deskId_; }
  const KXDictionary& profile() const { return profile_; }

  // What the customer sent, in order: the newest kKeptMessages (a desk that serves for weeks
  // stays bounded), fewer when keepReceived() says so (0: none, for a desk that records them
  // elsewhere).
  static constexpr std::size_t kKeptMessages = 256;
  void keepReceived(std::size_t messages);
  std::vector<QuorWireMessage> received() const;
  // The bodies of the customer's messages of one type, parsed.
  std::vector<KXDictionary> bodiesOf(const std::string& objectName) const;
  // Whether a human agent serves the customer now, and whether the customer suspended.
  bool humanMode() const;
  bool suspended() const;

  // Makes the desk speak: a text from whoever serves (robot or agent), an evaluation request,
  // the end of the service (a KXCSTerminateCode: it ends, or hands back to the robot), an update of
  // the service state, a leave-message invitation.
  void say(const std::string& text);
  void requestEvaluation();
  void endService(const std::string& text, int code = KXCSTerminateEndService);
  void updateService(int serviceStatus);  // a KXCSUpdateStatus
  void inviteLeaveMessage(const std::string& text);
  // A file from whoever serves: {"name", "type", "size", "url", "width", "height"}, kept where the
  // customer's host can fetch it (the host's business).
  void sayFile(const KXDictionary& file);

  void onMessageFromClient(const QuorWireMessage& message) override;

  // People as the desk's agents (the agent console): every message of the session, both ways,
  // goes to `watch` (on the thread that carries it); a customer's request for an agent that the
  // profile would accept waits for takeByAgent() or declineAgent(), and a person answers the
  // customer's texts while they serve. The robot keeps answering until then.
  using Watch = std::function<void(const QuorWireMessage& message, bool fromCustomer)>;
  void servedByPeople(Watch watch);
  // The group the waiting customer chose ("" for none), or absent when nobody waits.
  std::optional<std::string> waitingForAgent() const;
  // A person takes the waiting customer: the mode-change answer (an agent serves) and their
  // greeting, under their name. False when nobody waits.
  bool takeByAgent(const std::string& name, const std::string& greeting);
  // No agent for the waiting customer: KXCSChangeModeNoAgent or KXCSChangeModeRefused.
  bool declineAgent(int status);
  // The person serving passes the customer on, after `text` tells the customer so (under the
  // serving person's name): to the person `name`, who serves from then on, or back to the wait
  // for a person of `group` ("" for none), where takeByAgent() finds them. False when no person
  // serves.
  bool passToAgent(const std::string& name, const std::string& text);
  bool passToGroup(const std::string& group, const std::string& text);
  // The person who took the customer and serves them now; "" when none does.
  std::string takenBy() const;

  // The session's state as JSON, and the session made again from it (a desk that restarts):
  // who serves, who waits, the counts that the profile's rules follow.
  KXDictionary saveState() const;
  void restoreState(const KXDictionary& state);

 private:
  explicit QuorDeskSimulator(KXDictionary profile);

  void answerHandShake();
  void answerChangeMode(const KXDictionary& request);
  void answerText(const std::string& text);
  // The customer sent a file: the profile's receipt ("files.receipt", "{name}" filled in) and
  // its picture or file ("files.answer"), while the robot serves or nobody answers in person.
  void answerFile(const std::string& name);
  // Ends the service as the profile's "end" section says: an end message or a closing update.
  void finishService();
  void sendText(const std::string& text, bool fromAgent);
  // The "user" of what the robot or the agent says.
  KXDictionary speaker(bool fromAgent) const;
  void send(const std::string& objectName, const KXDictionary& body,
            const std::string& senderUserId);
  KXDictionary handShakeResponse() const;
  // The agent who serves: the profile's "agent", with what the chosen group's "agent" sets.
  KXDictionary agent() const;
  std::string robotAnswer(const std::string& question) const;

  const KXDictionary profile_;
  const std::string deskId_;
  Reply reply_;
  mutable std::mutex mutex_;
  std::deque<QuorWireMessage> received_;
  std::size_t kept_ = kKeptMessages;
  KXDictionary groupAgent_;
  bool humanMode_ = false;
  bool suspended_ = false;
  int agentReplies_ = 0;
  int evaluations_ = 0;
  int services_ = 0;
  Watch watch_;
  std::optional<std::string> waiting_;  // the group of the customer waiting for a person
  std::string takenBy_;                 // the person serving
};

}  // namespace quor
