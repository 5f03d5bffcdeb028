#include "QuorCustomerService/Message/KXCustomerServiceSession.h"

#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"

namespace quor {

// A getter copies under the lock; a setter swaps under the lock and lets the old value go
// after it, so releasing an application's callback never runs under the lock.
#define KX_LOCKED_PROPERTY(Type, name, Name)             \
  Type KXCustomerServiceSession::name() const {          \
    std::lock_guard<std::mutex> lock(mutex_);            \
    return name##_;                                      \
  }                                                      \
  void KXCustomerServiceSession::set##Name(Type value) { \
    {                                                    \
      std::lock_guard<std::mutex> lock(mutex_);          \
      std::swap(name##_, value);                         \
    }                                                    \
  }

KX_LOCKED_PROPERTY(KXString, uid, Uid)
KX_LOCKED_PROPERTY(KXString, cid, Cid)
KX_LOCKED_PROPERTY(KXString, pid, Pid)
KX_LOCKED_PROPERTY(bool, isQuited, IsQuited)
KX_LOCKED_PROPERTY(bool, suspendWhenQuit, SuspendWhenQuit)
KX_LOCKED_PROPERTY(KXCustomerServiceGroupList, groupList, GroupList)
KX_LOCKED_PROPERTY(bool, reportResolveStatus, ReportResolveStatus)
KX_LOCKED_PROPERTY(int32_t, type, Type)
KX_LOCKED_PROPERTY(KXString, robotName, RobotName)
KX_LOCKED_PROPERTY(KXString, robotLogo, RobotLogo)
KX_LOCKED_PROPERTY(KXString, robotHelloWord, RobotHelloWord)
KX_LOCKED_PROPERTY(KXModeTypeBlock, modeTypeBlock, ModeTypeBlock)
KX_LOCKED_PROPERTY(KXSuccessBlock, successBlock, SuccessBlock)
KX_LOCKED_PROPERTY(KXErrorBlock, errorBlock, ErrorBlock)
KX_LOCKED_PROPERTY(KXPullEvaluationBlock, pullEvaluationBlock, PullEvaluationBlock)
KX_LOCKED_PROPERTY(KXSelectGroupBlock, selectGroupBlock, SelectGroupBlock)
KX_LOCKED_PROPERTY(KXQuitBlock, quitBlock, QuitBlock)
KX_LOCKED_PROPERTY(KXEvaConfigBlock, evaConfigBlock, EvaConfigBlock)

#undef KX_LOCKED_PROPERTY

KXCSServiceIdentifiers KXCustomerServiceSession::identifiers() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return {uid_, cid_, pid_};
}

void KXCustomerServiceSession::updateFromHandShakeResponse(const KXCSHandShakeResponseMessage& r) {
  // Read the response first: its getters copy, and nothing but the assignments runs locked.
  KXString uid = r.uid(), cid = r.cid(), pid = r.pid();
  KXString helloWord = r.robotHelloWord(), name = r.robotName(), logo = r.robotLogo();
  KXCustomerServiceGroupList groups = r.groupList();
  std::lock_guard<std::mutex> lock(mutex_);
  uid_.swap(uid);
  cid_.swap(cid);
  pid_.swap(pid);
  type_ = r.type();
  robotHelloWord_.swap(helloWord);
  robotName_.swap(name);
  robotLogo_.swap(logo);
  groupList_.swap(groups);
  reportResolveStatus_ = r.reportResolveStatus() != 0;
  suspendWhenQuit_ = r.suspendWhenQuit();
  isQuited_ = false;
}

}  // namespace quor
