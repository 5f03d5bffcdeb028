#include "QuorCustomerService/Message/KXCSConfiguration.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "KXJsonMembers.h"

namespace quor {
namespace {

using Members = KXJsonMembers;

void putText(KXDictionary& json, const char* key, const KXString& value) {
  if (value) json[key] = *value;
}

}  // namespace

KXDictionary KXCSConfiguration::toJson() const {
  KXDictionary json = KXDictionary::object();
  putText(json, "companyName", companyName);
  json["isBlack"] = isBlack;
  json["robotSessionNoEva"] = robotSessionNoEva;
  json["humanSessionNoEva"] = humanSessionNoEva;
  KXDictionary options = KXDictionary::array();
  if (humanEvaluateItems) {
    for (const auto& item : *humanEvaluateItems) {
      if (!item) continue;
      KXDictionary option = {{"value", item->value()}};
      putText(option, "describe", item->describe());
      options.push_back(std::move(option));
    }
  }
  json["humanEvaluateItems"] = std::move(options);
  json["adminTipTime"] = adminTipTime;
  putText(json, "adminTipWord", adminTipWord);
  json["userTipTime"] = userTipTime;
  putText(json, "userTipWord", userTipWord);
  json["evaEntryPoint"] = evaEntryPoint;
  json["evaType"] = evaType;
  json["reportResolveStatus"] = reportResolveStatus;
  json["leaveMessageType"] = leaveMessageType;
  json["disableLocation"] = disableLocation;
  putText(json, "leaveMessageWebUrl", leaveMessageWebUrl);
  KXDictionary fields = KXDictionary::array();
  if (leaveMessageNativeInfo) {
    for (const auto& item : *leaveMessageNativeInfo) {
      if (!item) continue;
      KXDictionary field = {{"required", item->required()}, {"max", item->max()}};
      putText(field, "title", item->title());
      putText(field, "name", item->name());
      putText(field, "type", item->type());
      putText(field, "defaultText", item->defaultText());
      putText(field, "verification", item->verification());
      fields.push_back(std::move(field));
    }
  }
  json["leaveMessageNativeInfo"] = std::move(fields);
  putText(json, "announceMsg", announceMsg);
  putText(json, "announceClickUrl", announceClickUrl);
  return json;
}

KXCSConfiguration KXCSConfiguration::fromJson(const KXDictionary& json) {
  KXCSConfiguration c;
  c.companyName = Members::optionalText(json, "companyName");
  c.isBlack = Members::flag(json, "isBlack");
  c.robotSessionNoEva = Members::flag(json, "robotSessionNoEva");
  c.humanSessionNoEva = Members::flag(json, "humanSessionNoEva");
  const KXDictionary& options = Members::member(json, "humanEvaluateItems");
  if (options.is_array()) {
    auto items = std::make_shared<std::vector<std::shared_ptr<KXEvaluateItem>>>();
    for (const auto& option : options) {
      auto item = std::make_shared<KXEvaluateItem>();
      item->setValue(Members::integer<int32_t>(option, "value"));
      item->setDescribe(Members::optionalText(option, "describe"));
      items->push_back(std::move(item));
    }
    c.humanEvaluateItems = std::move(items);
  }
  c.adminTipTime = Members::integer<int32_t>(json, "adminTipTime");
  c.adminTipWord = Members::optionalText(json, "adminTipWord");
  c.userTipTime = Members::integer<int32_t>(json, "userTipTime");
  c.userTipWord = Members::optionalText(json, "userTipWord");
  c.evaEntryPoint = Members::integer<uint64_t>(json, "evaEntryPoint");
  c.evaType = Members::integer<uint64_t>(json, "evaType");
  c.reportResolveStatus = Members::integer<int32_t>(json, "reportResolveStatus");
  c.leaveMessageType = Members::integer<uint64_t>(json, "leaveMessageType");
  c.disableLocation = Members::integer<int32_t>(json, "disableLocation");
  c.leaveMessageWebUrl = Members::optionalText(json, "leaveMessageWebUrl");
  const KXDictionary& fields = Members::member(json, "leaveMessageNativeInfo");
  if (fields.is_array()) {
    auto items = std::make_shared<std::vector<std::shared_ptr<KXCSLeaveMessageItem>>>();
    for (const auto& field : fields) {
      auto item = std::make_shared<KXCSLeaveMessageItem>();
      item->setRequired(Members::flag(field, "required"));
      item->setMax(Members::integer<int32_t>(field, "max"));
      item->setTitle(Members::optionalText(field, "title"));
      item->setName(Members::optionalText(field, "name"));
      item->setType(Members::optionalText(field, "type"));
      item->setDefaultText(Members::optionalText(field, "defaultText"));
      item->setVerification(Members::optionalText(field, "verification"));
      items->push_back(std::move(item));
    }
    c.leaveMessageNativeInfo = std::move(items);
  }
  c.announceMsg = Members::optionalText(json, "announceMsg");
  c.announceClickUrl = Members::optionalText(json, "announceClickUrl");
  return c;
}

}  // namespace quor
