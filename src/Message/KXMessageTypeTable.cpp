#include "Message/KXMessageTypeTable.h"

#include <algorithm>

#include "QuorCustomerService/Message/KXCSChangeModeMessage.h"
#include "QuorCustomerService/Message/KXCSChangeModeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSLeaveMessage.h"
#include "QuorCustomerService/Message/KXCSPullEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSPullLeaveMessage.h"
#include "QuorCustomerService/Message/KXCSSuspendMessage.h"
#include "QuorCustomerService/Message/KXCSTerminateMessage.h"
#include "QuorCustomerService/Message/KXCSUpdateMessage.h"

namespace quor {
namespace {

template <class T>
KXMessageTypeTable::Entry row(int registrationRank, int signalRank, int dispatchRank,
                              KXControl control, bool consumed) {
  return {
      KXMessageContentType::of<T>(),
      registrationRank,
      signalRank,
      dispatchRank,
      control,
      consumed,
      [](const KXMessageContent* content) { return dynamic_cast<const T*>(content) != nullptr; }};
}

// The entries with a non-zero rank of `rank`, in the order of that rank.
std::vector<const KXMessageTypeTable::Entry*> ranked(int KXMessageTypeTable::Entry::*rank) {
  std::vector<const KXMessageTypeTable::Entry*> chosen;
  for (const auto& entry : KXMessageTypeTable::entries()) {
    if (entry.*rank != 0) chosen.push_back(&entry);
  }
  std::sort(chosen.begin(), chosen.end(), [rank](auto* a, auto* b) { return a->*rank < b->*rank; });
  return chosen;
}

std::vector<KXMessageContentType> typesOf(const std::vector<const KXMessageTypeTable::Entry*>& es) {
  std::vector<KXMessageContentType> types;
  for (const auto* entry : es) types.push_back(entry->type);
  return types;
}

}  // namespace

const std::vector<KXMessageTypeTable::Entry>& KXMessageTypeTable::entries() {
  // The evaluation message is only sent, so it is not registered, yet it is a signal; the two
  // leave-message types are not signals. The dispatch tests the five control types in its own
  // order; of them only the evaluation request is acted on without being consumed.
  //                                                   register signal dispatch
  static const std::vector<Entry> table = {
      row<KXCSChangeModeMessage>(1, 9, 0, KXControl::None, false),
      row<KXCSChangeModeResponseMessage>(2, 4, 1, KXControl::ChangeModeResponse, true),
      row<KXCSHandShakeMessage>(3, 8, 0, KXControl::None, false),
      row<KXCSHandShakeResponseMessage>(4, 7, 3, KXControl::HandShakeResponse, true),
      row<KXCSSuspendMessage>(5, 6, 0, KXControl::None, false),
      row<KXCSTerminateMessage>(6, 5, 2, KXControl::Terminate, true),
      row<KXCSUpdateMessage>(7, 2, 4, KXControl::Update, true),
      row<KXCSPullEvaluateMessage>(8, 3, 5, KXControl::PullEvaluate, false),
      row<KXCSPullLeaveMessage>(9, 0, 0, KXControl::None, false),
      row<KXCSLeaveMessage>(10, 0, 0, KXControl::None, false),
      row<KXCSEvaluateMessage>(0, 1, 0, KXControl::None, false),
  };
  return table;
}

std::vector<KXMessageContentType> KXMessageTypeTable::registered() {
  return typesOf(ranked(&Entry::registrationRank));
}

std::vector<KXMessageContentType> KXMessageTypeTable::signals() {
  return typesOf(ranked(&Entry::signalRank));
}

const KXMessageTypeTable::Entry* KXMessageTypeTable::controlOf(const KXMessageContent* content) {
  static const std::vector<const Entry*> dispatchOrder = ranked(&Entry::dispatchRank);
  for (const Entry* entry : dispatchOrder) {
    if (entry->isInstance(content)) return entry;
  }
  return nullptr;
}

}  // namespace quor
