#include "QuorCustomerService/Message/KXCustomerServiceInfo.h"

#include <nlohmann/json.hpp>

#include "Message/KXJsonWriter.h"

namespace quor {

// The information's string fields by wire key, in each group's order; shared by encode() and
// fromBody(). A member class, so that it may name the private fields.
struct KXCustomerServiceInfo::Fields {
  using Field = std::pair<const char*, KXString KXCustomerServiceInfo::*>;
  static const Field user[13];
  static const Field contact[6];
  // "listUrl", a list, is written between "skillId" and "define".
  static const Field request[6];
};

const KXCustomerServiceInfo::Fields::Field KXCustomerServiceInfo::Fields::user[13] = {
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
const KXCustomerServiceInfo::Fields::Field KXCustomerServiceInfo::Fields::contact[6] = {
    {"mobileNo", &KXCustomerServiceInfo::mobileNo_}, {"email", &KXCustomerServiceInfo::email_},
    {"address", &KXCustomerServiceInfo::address_},   {"QQ", &KXCustomerServiceInfo::QQ_},
    {"weibo", &KXCustomerServiceInfo::weibo_},       {"weixin", &KXCustomerServiceInfo::weixin_},
};

const KXCustomerServiceInfo::Fields::Field KXCustomerServiceInfo::Fields::request[6] = {
    {"page", &KXCustomerServiceInfo::page_},
    {"referrer", &KXCustomerServiceInfo::referrer_},
    {"enterUrl", &KXCustomerServiceInfo::enterUrl_},
    {"skillId", &KXCustomerServiceInfo::skillId_},
    {"define", &KXCustomerServiceInfo::define_},
    {"productId", &KXCustomerServiceInfo::productId_},
};

KXData KXCustomerServiceInfo::encode() const {
  const auto group = [this](const auto& fields) {
    KXDictionary object = KXDictionary::object();
    for (const Fields::Field& field : fields)
      KXJsonWriter::putString(object, field.first, this->*field.second);
    return object;
  };

  KXDictionary body = KXDictionary::object();
  KXDictionary userInfo = group(Fields::user);
  // An empty user group is left out, while the other two groups are always written.
  if (!userInfo.empty()) body["userInfo"] = std::move(userInfo);
  body["contactInfo"] = group(Fields::contact);

  KXDictionary requestInfo = KXDictionary::object();
  for (const Fields::Field& field : Fields::request) {
    if (field.second == &KXCustomerServiceInfo::define_ && listUrl_)
      requestInfo["listUrl"] = *listUrl_;
    KXJsonWriter::putString(requestInfo, field.first, this->*field.second);
  }
  body["requestInfo"] = std::move(requestInfo);
  return KXJsonWriter::write(body);
}

std::shared_ptr<KXCustomerServiceInfo> KXCustomerServiceInfo::fromBody(const KXDictionary& body) {
  auto info = std::make_shared<KXCustomerServiceInfo>();
  const auto read = [&info](const KXDictionary* group, const auto& fields) {
    if (!group || !group->is_object()) return;
    for (const Fields::Field& field : fields) {
      const auto value = group->find(field.first);
      if (value != group->end() && value->is_string())
        (*info).*field.second = value->template get<std::string>();
    }
  };
  const auto groupOf = [&body](const char* key) -> const KXDictionary* {
    if (!body.is_object()) return nullptr;
    const auto it = body.find(key);
    return it == body.end() ? nullptr : &*it;
  };
  read(groupOf("userInfo"), Fields::user);
  read(groupOf("contactInfo"), Fields::contact);
  read(groupOf("requestInfo"), Fields::request);
  if (const KXDictionary* request = groupOf("requestInfo"); request && request->is_object()) {
    const auto urls = request->find("listUrl");
    if (urls != request->end() && urls->is_array()) {
      auto list = std::make_shared<std::vector<std::string>>();
      for (const auto& url : *urls) {
        if (url.is_string()) list->push_back(url.get<std::string>());
      }
      info->listUrl_ = std::move(list);
    }
  }
  return info;
}

}  // namespace quor
