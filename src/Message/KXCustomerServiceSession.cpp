#include "QuorCustomerService/Message/KXCustomerServiceSession.h"

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

}  // namespace quor
