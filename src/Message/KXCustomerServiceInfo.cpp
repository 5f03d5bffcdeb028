#include "QuorCustomerService/Message/KXCustomerServiceInfo.h"

#include <nlohmann/json.hpp>

#include "Message/KXJsonWriter.h"

namespace quor {

KXData KXCustomerServiceInfo::encode() const {
  using Field = std::pair<const char*, KXString KXCustomerServiceInfo::*>;
  static const Field userFields[] = {
      {"userId", &KXCustomerServiceInfo::userId_},
      {"nickName", &KXCustomerServiceInfo::nickName_},
      {"loginName", &KXCustomerServiceInfo::loginName_},
      {"name", &KXCustomerServiceInfo::name_},
      {"grade", &KXCustomerServiceInfo::grade_},
      {"gender", &KXCustomerServiceInfo::gender_},
      {"birthday", &KXCustomerServiceInfo::birthday_},
      {"age", &KXCustomerServiceInfo::age_},
      {"profession", &KXCustomerServiceInfo::profession_},
      {"portraitUrl", &KXCustomerServiceInfo::portraitUrl_},
      {"province", &KXCustomerServiceInfo::province_},
      {"city", &KXCustomerServiceInfo::city_},
      {"memo", &KXCustomerServiceInfo::memo_},
  };
  static const Field contactFields[] = {
      {"mobileNo", &KXCustomerServiceInfo::mobileNo_}, {"email", &KXCustomerServiceInfo::email_},
      {"address", &KXCustomerServiceInfo::address_},   {"QQ", &KXCustomerServiceInfo::QQ_},
      {"weibo", &KXCustomerServiceInfo::weibo_},       {"weixin", &KXCustomerServiceInfo::weixin_},
  };

  const auto group = [this](const auto& fields) {
    KXDictionary object = KXDictionary::object();
    for (const Field& field : fields)
      KXJsonWriter::putString(object, field.first, this->*field.second);
    return object;
  };

  KXDictionary body = KXDictionary::object();
  KXDictionary userInfo = group(userFields);
  // An empty user group is left out, while the other two groups are always written.
  if (!userInfo.empty()) body["userInfo"] = std::move(userInfo);
  body["contactInfo"] = group(contactFields);

  KXDictionary requestInfo = KXDictionary::object();
  KXJsonWriter::putString(requestInfo, "page", page_);
  KXJsonWriter::putString(requestInfo, "referrer", referrer_);
  KXJsonWriter::putString(requestInfo, "enterUrl", enterUrl_);
  KXJsonWriter::putString(requestInfo, "skillId", skillId_);
  if (listUrl_) requestInfo["listUrl"] = *listUrl_;
  KXJsonWriter::putString(requestInfo, "define", define_);
  KXJsonWriter::putString(requestInfo, "productId", productId_);
  body["requestInfo"] = std::move(requestInfo);
  return KXJsonWriter::write(body);
}

}  // namespace quor
