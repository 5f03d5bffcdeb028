#include "QuorCustomerService/Message/KXCustomerServiceSession.h"

#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"

namespace quor {

// A getter copies under the lock; a setter swaps under the lock and lets the old value go
// after it, so releasing an application's callback never runs under the lock.
#define KX_LOCKED_MEMBER(Type, name, Name, member)       \
  Type KXCustomerServiceSession::name() const {          \
    std::lock_guard<std::mutex> lock(mutex_);            \
    return member;                                       \
  }                                                      \
  void KXCustomerServiceSession::set##Name(Type value) { \
    {                                                    \
      std::lock_guard<std::mutex> lock(mutex_);          \
      std::swap(member, value);                          \
    }                                                    \
  }
#define KX_LOCKED_PROPERTY(Type, name, Name) KX_LOCKED_MEMBER(Type, name, Name, name##_)

KX_LOCKED_MEMBER(KXString, uid, Uid, ids_.uid)
KX_LOCKED_MEMBER(KXString, cid, Cid, ids_.cid)
KX_LOCKED_MEMBER(KXString, pid, Pid, ids_.pid)
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
#undef KX_LOCKED_MEMBER

KXCSServiceIdentifiers KXCustomerServiceSession::identifiers() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return ids_;
}

void KXCustomerServiceSession::updateFromHandShakeResponse(const KXCSHandShakeResponseMessage& r) {
  // Read the response first: its getters copy, and nothing but the assignments runs locked.
  KXCSServiceIdentifiers ids = r.identifiers();
  KXString helloWord = r.robotHelloWord(), name = r.robotName(), logo = r.robotLogo();
  KXCustomerServiceGroupList groups = r.groupList();
  std::lock_guard<std::mutex> lock(mutex_);
  std::swap(ids_, ids);
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
