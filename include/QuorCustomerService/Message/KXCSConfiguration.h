#pragma once

#include <cstdint>
#include <type_traits>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"
#include "QuorCustomerService/Message/KXEvaluateItem.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The desk's configuration of a service as its handshake response gives it: the one record that
// the response holds and that KXCustomerServiceConfig hands to the app. A plain value; item
// lists are shared. As JSON (toJson(), and nlohmann's to_json/from_json below) each field is a
// key of its own name; absent texts are left out, and fromJson() reads a key of the wrong type
// as absent.
struct QUOR_CS_EXPORT KXCSConfiguration {
  KXString companyName;
  bool isBlack = false;
  bool robotSessionNoEva = false;
  bool humanSessionNoEva = false;
  KXEvaluateItemList humanEvaluateItems;
  int32_t adminTipTime = 0;
  KXString adminTipWord;
  int32_t userTipTime = 0;
  KXString userTipWord;
  uint64_t evaEntryPoint = 0;
  uint64_t evaType = 0;
  int32_t reportResolveStatus = 0;
  uint64_t leaveMessageType = 0;
  int32_t disableLocation = 0;
  KXString leaveMessageWebUrl;
  KXCSLeaveMessageItemList leaveMessageNativeInfo;
  KXString announceMsg;
  KXString announceClickUrl;

  KXDictionary toJson() const;
  static KXCSConfiguration fromJson(const KXDictionary& json);
};

// For nlohmann::json's conversions (templates: the JSON type is complete only where they are used).
template <class Json, class Configuration,
          std::enable_if_t<std::is_same_v<Configuration, KXCSConfiguration>, int> = 0>
void to_json(Json& json, const Configuration& configuration) {
  json = configuration.toJson();
}
template <class Json, class Configuration,
          std::enable_if_t<std::is_same_v<Configuration, KXCSConfiguration>, int> = 0>
void from_json(const Json& json, Configuration& configuration) {
  configuration = Configuration::fromJson(json);
}

}  // namespace quor
