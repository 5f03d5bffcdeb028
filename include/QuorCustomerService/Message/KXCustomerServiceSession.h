#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/KXCustomerServiceConstants.h"
#include "QuorCustomerService/Message/KXCSServiceIdentifiers.h"
#include "QuorCustomerService/Message/KXCustomerServiceConfig.h"
#include "QuorCustomerService/Message/KXCustomerServiceGroupItem.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The application's callbacks. Every one may be empty (absent); the library tests each for
// presence and then does nothing.
// Start succeeded: the configuration from the desk's handshake response. Main thread.
using KXSuccessBlock = std::function<void(std::shared_ptr<KXCustomerServiceConfig> config)>;
// Start failed: an error code and a text. Main thread.
using KXErrorBlock = std::function<void(int64_t code, const std::string& message)>;
// The service mode changed. Main thread; currentCSModeType() already holds the new mode.
using KXModeTypeBlock = std::function<void(KXCSModeType mode)>;
// The desk asks for an evaluation of the dialog with this id (absent when the desk sent none).
// Main thread.
using KXPullEvaluationBlock = std::function<void(const KXString& dialogId)>;
// The user must choose an agent group from the session's current list. Main thread.
using KXSelectGroupBlock = std::function<void(const KXCustomerServiceGroupList& groups)>;
// The desk ended the service; the text to show. Main thread; the service is stopped right
// after.
using KXQuitBlock = std::function<void(const std::string& message)>;
// The human-evaluation configuration arrived. Called on the thread that delivered the message.
using KXEvaConfigBlock = std::function<void(const std::shared_ptr<const KXDictionary>& evaConfig)>;

class KXCSHandShakeResponseMessage;

// The record of one service with one desk: the identifiers from the desk's handshake response,
// the robot's presentation, the flags that steer stopping and evaluation, and the
// application's callbacks. Sessions are made by the first start for a desk and never removed.
//
// Every accessor is thread-safe (a small lock per session, never held while a callback or the
// host runs). Getters return copies.
class QUOR_CS_EXPORT KXCustomerServiceSession {
 public:
  KXCustomerServiceSession();
  ~KXCustomerServiceSession();
  KXCustomerServiceSession(const KXCustomerServiceSession&) = delete;
  KXCustomerServiceSession& operator=(const KXCustomerServiceSession&) = delete;

  // uid, cid and pid as one consistent snapshot: never two of them from different handshakes.
  KXCSServiceIdentifiers identifiers() const;
  // Takes a successful handshake response's identifiers, type, robot fields, groups and flags
  // as one step, and marks the service as running (isQuited false).
  void updateFromHandShakeResponse(const KXCSHandShakeResponseMessage& response);

  KXString uid() const;
  void setUid(KXString uid);
  KXString cid() const;
  void setCid(KXString cid);
  KXString pid() const;
  void setPid(KXString pid);
  // True once the service was stopped; false again after a successful handshake response.
  bool isQuited() const;
  void setIsQuited(bool isQuited);
  // Whether stopping sends a suspend message.
  bool suspendWhenQuit() const;
  void setSuspendWhenQuit(bool suspendWhenQuit);
  KXCustomerServiceGroupList groupList() const;
  void setGroupList(KXCustomerServiceGroupList groupList);
  // Whether the evaluation asks whether the problem was resolved.
  bool reportResolveStatus() const;
  void setReportResolveStatus(bool reportResolveStatus);
  // The service type, one of KXCSServiceType.
  int32_t type() const;
  void setType(int32_t type);
  KXString robotName() const;
  void setRobotName(KXString robotName);
  KXString robotLogo() const;
  void setRobotLogo(KXString robotLogo);
  KXString robotHelloWord() const;
  void setRobotHelloWord(KXString robotHelloWord);

  KXModeTypeBlock modeTypeBlock() const;
  void setModeTypeBlock(KXModeTypeBlock block);
  KXSuccessBlock successBlock() const;
  void setSuccessBlock(KXSuccessBlock block);
  KXErrorBlock errorBlock() const;
  void setErrorBlock(KXErrorBlock block);
  KXPullEvaluationBlock pullEvaluationBlock() const;
  void setPullEvaluationBlock(KXPullEvaluationBlock block);
  KXSelectGroupBlock selectGroupBlock() const;
  void setSelectGroupBlock(KXSelectGroupBlock block);
  KXQuitBlock quitBlock() const;
  void setQuitBlock(KXQuitBlock block);
  KXEvaConfigBlock evaConfigBlock() const;
  void setEvaConfigBlock(KXEvaConfigBlock block);

 private:
  struct State;  // every property and the lock that guards them
  std::unique_ptr<State> state_;
};

}  // namespace quor
