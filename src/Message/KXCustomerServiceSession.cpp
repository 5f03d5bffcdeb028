#include "QuorCustomerService/Message/KXCustomerServiceSession.h"

#include <mutex>

#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"

namespace quor {

struct KXCustomerServiceSession::State {
  std::mutex mutex;
  KXCSServiceIdentifiers ids;
  bool isQuited = false;
  bool suspendWhenQuit = false;
  KXCustomerServiceGroupList groupList;
  bool reportResolveStatus = false;
  int32_t type = 0;
  KXString robotName;
  KXString robotLogo;
  KXString robotHelloWord;
  KXModeTypeBlock modeTypeBlock;
  KXSuccessBlock successBlock;
  KXErrorBlock errorBlock;
  KXPullEvaluationBlock pullEvaluationBlock;
  KXSelectGroupBlock selectGroupBlock;
  KXQuitBlock quitBlock;
  KXEvaConfigBlock evaConfigBlock;
};

KXCustomerServiceSession::KXCustomerServiceSession() : state_(std::make_unique<State>()) {}
KXCustomerServiceSession::~KXCustomerServiceSession() = default;

// A getter copies under the lock; a setter swaps under the lock and lets the old value go
// after it, so releasing an application's callback never runs under the lock.
#define KX_LOCKED_MEMBER(Type, name, Name, member)       \
  Type KXCustomerServiceSession::name() const {          \
    std::lock_guard<std::mutex> lock(state_->mutex);     \
    return member;                                       \
  }                                                      \
  void KXCustomerServiceSession::set##Name(Type value) { \
    {                                                    \
      std::lock_guard<std::mutex> lock(state_->mutex);   \
      std::swap(member, value);                          \
    }                                                    \
  }
#define KX_LOCKED_PROPERTY(Type, name, Name) KX_LOCKED_MEMBER(Type, name, Name, state_->name)

KX_LOCKED_MEMBER(KXString, uid, Uid, state_->ids.uid)
KX_LOCKED_MEMBER(KXString, cid, Cid, state_->ids.cid)
KX_LOCKED_MEMBER(KXString, pid, Pid, state_->ids.pid)
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
  std::lock_guard<std::mutex> lock(state_->mutex);
  return state_->ids;
}

void KXCustomerServiceSession::updateFromHandShakeResponse(const KXCSHandShakeResponseMessage& r) {
  // Read the response first: its getters copy, and nothing but the assignments runs locked.
  KXCSServiceIdentifiers ids = r.identifiers();
  KXString helloWord = r.robotHelloWord(), name = r.robotName(), logo = r.robotLogo();
  KXCustomerServiceGroupList groups = r.groupList();
  std::lock_guard<std::mutex> lock(state_->mutex);
  State& s = *state_;
  std::swap(s.ids, ids);
  s.type = r.type();
  s.robotHelloWord.swap(helloWord);
  s.robotName.swap(name);
  s.robotLogo.swap(logo);
  s.groupList.swap(groups);
  s.reportResolveStatus = r.reportResolveStatus() != 0;
  s.suspendWhenQuit = r.suspendWhenQuit();
  s.isQuited = false;
}

}  // namespace quor
