#include "QuorCustomerService/Message/KXCSConfiguration.h"

#include <nlohmann/json.hpp>
#include <vector>

namespace quor {
namespace {

// Readers of our own JSON: a key that is missing or of another type reads as absent (or 0).
const KXDictionary* member(const KXDictionary& json, const char* key) {
  if (!json.is_object()) return nullptr;
  const auto found = json.find(key);
  return found == json.end() ? nullptr : &*found;
}
KXString text(const KXDictionary& json, const char* key) {
  const KXDictionary* value = member(json, key);
  return value && value->is_string() ? KXString(value->get<std::string>()) : std::nullopt;
}
bool flag(const KXDictionary& json, const char* key) {
  const KXDictionary* value = member(json, key);
  return value && value->is_boolean() && value->get<bool>();
}
template <class Number>
Number number(const KXDictionary& json, const char* key) {
  const KXDictionary* value = member(json, key);
  if (!value || !value->is_number_integer()) return 0;
  // Read through the type the value has, so that no 64-bit value passes through a narrower one.
  return value->is_number_unsigned() ? static_cast<Number>(value->get<uint64_t>())
                                     : static_cast<Number>(value->get<int64_t>());
}
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
  c.companyName = text(json, "companyName");
  c.isBlack = flag(json, "isBlack");
  c.robotSessionNoEva = flag(json, "robotSessionNoEva");
  c.humanSessionNoEva = flag(json, "humanSessionNoEva");
  const KXDictionary* options = member(json, "humanEvaluateItems");
  if (options && options->is_array()) {
    auto items = std::make_shared<std::vector<std::shared_ptr<KXEvaluateItem>>>();
    for (const auto& option : *options) {
      auto item = std::make_shared<KXEvaluateItem>();
      item->setValue(number<int32_t>(option, "value"));
      item->setDescribe(text(option, "describe"));
      items->push_back(std::move(item));
    }
    c.humanEvaluateItems = std::move(items);
  }
  c.adminTipTime = number<int32_t>(json, "adminTipTime");
  c.adminTipWord = text(json, "adminTipWord");
  c.userTipTime = number<int32_t>(json, "userTipTime");
  c.userTipWord = text(json, "userTipWord");
  c.evaEntryPoint = number<uint64_t>(json, "evaEntryPoint");
  c.evaType = number<uint64_t>(json, "evaType");
  c.reportResolveStatus = number<int32_t>(json, "reportResolveStatus");
  c.leaveMessageType = number<uint64_t>(json, "leaveMessageType");
  c.disableLocation = number<int32_t>(json, "disableLocation");
  c.leaveMessageWebUrl = text(json, "leaveMessageWebUrl");
  const KXDictionary* fields = member(json, "leaveMessageNativeInfo");
  if (fields && fields->is_array()) {
    auto items = std::make_shared<std::vector<std::shared_ptr<KXCSLeaveMessageItem>>>();
    for (const auto& field : *fields) {
      auto item = std::make_shared<KXCSLeaveMessageItem>();
      item->setRequired(flag(field, "required"));
      item->setMax(number<int32_t>(field, "max"));
      item->setTitle(text(field, "title"));
      item->setName(text(field, "name"));
      item->setType(text(field, "type"));
      item->setDefaultText(text(field, "defaultText"));
      item->setVerification(text(field, "verification"));
      items->push_back(std::move(item));
    }
    c.leaveMessageNativeInfo = std::move(items);
  }
  c.announceMsg = text(json, "announceMsg");
  c.announceClickUrl = text(json, "announceClickUrl");
  return c;
}

}  // namespace quor
