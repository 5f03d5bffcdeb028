// The C layer's version, names, memory and the slots for its one host and one service per desk.
#include <mutex>
#include <unordered_set>

#include "QuorCApi.h"

namespace quor::capi {
namespace {

std::mutex slotsMutex;
const void* hostOwner = nullptr;
std::unordered_set<std::string> desksWithAService;

}  // namespace

bool claimHost(const void* owner) {
  std::lock_guard<std::mutex> lock(slotsMutex);
  if (hostOwner && hostOwner != owner) return false;
  hostOwner = owner;
  return true;
}

void releaseHost(const void* owner) {
  std::lock_guard<std::mutex> lock(slotsMutex);
  if (hostOwner == owner) hostOwner = nullptr;
}

bool claimDesk(const std::string& deskId) {
  std::lock_guard<std::mutex> lock(slotsMutex);
  return desksWithAService.insert(deskId).second;
}

void releaseDesk(const std::string& deskId) {
  std::lock_guard<std::mutex> lock(slotsMutex);
  desksWithAService.erase(deskId);
}

}  // namespace quor::capi

extern "C" {

const char* quor_cs_version(void) { return QuorCustomerServiceVersionString; }

const char* quor_cs_result_name(int result) {
  switch (result) {
    case QUOR_CS_ERROR_ARGUMENT:
      return "ErrorArgument";
    case QUOR_CS_ERROR_MEMORY:
      return "ErrorMemory";
    case QUOR_CS_ERROR_INTERNAL:
      return "ErrorInternal";
    case QUOR_CS_ERROR_STATE:
      return "ErrorState";
    case QUOR_CS_OK:
      return "OK";
    default:
      // The session API's results keep their C++ names.
      return quor::KXCSService::resultName(static_cast<quor::KXCSServiceResult>(result));
  }
}

const char* quor_cs_state_name(int state) {
  return quor::KXCSService::stateName(static_cast<quor::KXCSServiceState>(state));
}

const char* quor_cs_reason_name(int reason) {
  return quor::KXCSService::reasonName(static_cast<quor::KXCSServiceReason>(reason));
}

void quor_cs_free(char* text) { std::free(text); }

}  // extern "C"
