#pragma once

#include <memory>
#include <string>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// The customer's information, sent as the body of the handshake. The application fills it
// and passes it to startCustomerService(); the library never changes it and reads it when the
// host encodes the handshake (on the host's sending thread), so do not change a record after
// passing it. Every property starts absent.
class QUOR_CS_EXPORT KXCustomerServiceInfo {
 public:
  // {"userInfo": {...}, "contactInfo": {...}, "requestInfo": {...}}: present properties under
  // their own names; "userInfo" only when it has an entry. Absent when the body cannot be
  // written (a string that is not valid UTF-8).
  KXData encode() const;
  // The information in the shape encode() writes ({"userInfo": {...}, "contactInfo": {...},
  // "requestInfo": {...}}, every key optional); values that are not strings (a list for
  // "listUrl") are left out. For callers that hold the information as JSON (the C API).
  static std::shared_ptr<KXCustomerServiceInfo> fromBody(const KXDictionary& body);

  const KXString& userId() const { return userId_; }
  void setUserId(KXString userId) { userId_ = std::move(userId); }
  const KXString& nickName() const { return nickName_; }
  void setNickName(KXString nickName) { nickName_ = std::move(nickName); }
  const KXString& loginName() const { return loginName_; }
  void setLoginName(KXString loginName) { loginName_ = std::move(loginName); }
  const KXString& name() const { return name_; }
  void setName(KXString name) { name_ = std::move(name); }
  const KXString& grade() const { return grade_; }
  void setGrade(KXString grade) { grade_ = std::move(grade); }
  const KXString& gender() const { return gender_; }
  void setGender(KXString gender) { gender_ = std::move(gender); }
  const KXString& birthday() const { return birthday_; }
  void setBirthday(KXString birthday) { birthday_ = std::move(birthday); }
  const KXString& age() const { return age_; }
  void setAge(KXString age) { age_ = std::move(age); }
  const KXString& profession() const { return profession_; }
  void setProfession(KXString profession) { profession_ = std::move(profession); }
  const KXString& portraitUrl() const { return portraitUrl_; }
  void setPortraitUrl(KXString portraitUrl) { portraitUrl_ = std::move(portraitUrl); }
  const KXString& province() const { return province_; }
  void setProvince(KXString province) { province_ = std::move(province); }
  const KXString& city() const { return city_; }
  void setCity(KXString city) { city_ = std::move(city); }
  const KXString& memo() const { return memo_; }
  void setMemo(KXString memo) { memo_ = std::move(memo); }
  const KXString& mobileNo() const { return mobileNo_; }
  void setMobileNo(KXString mobileNo) { mobileNo_ = std::move(mobileNo); }
  const KXString& email() const { return email_; }
  void setEmail(KXString email) { email_ = std::move(email); }
  const KXString& address() const { return address_; }
  void setAddress(KXString address) { address_ = std::move(address); }
  const KXString& QQ() const { return QQ_; }
  void setQQ(KXString QQ) { QQ_ = std::move(QQ); }
  const KXString& weibo() const { return weibo_; }
  void setWeibo(KXString weibo) { weibo_ = std::move(weibo); }
  const KXString& weixin() const { return weixin_; }
  void setWeixin(KXString weixin) { weixin_ = std::move(weixin); }
  const KXString& page() const { return page_; }
  void setPage(KXString page) { page_ = std::move(page); }
  const KXString& referrer() const { return referrer_; }
  void setReferrer(KXString referrer) { referrer_ = std::move(referrer); }
  const KXString& enterUrl() const { return enterUrl_; }
  void setEnterUrl(KXString enterUrl) { enterUrl_ = std::move(enterUrl); }
  const KXString& skillId() const { return skillId_; }
  void setSkillId(KXString skillId) { skillId_ = std::move(skillId); }
  // A list of URLs, written as a JSON array; null when absent.
  const std::shared_ptr<const std::vector<std::string>>& listUrl() const { return listUrl_; }
  void setListUrl(std::shared_ptr<const std::vector<std::string>> listUrl) {
    listUrl_ = std::move(listUrl);
  }
  const KXString& define() const { return define_; }
  void setDefine(KXString define) { define_ = std::move(define); }
  const KXString& productId() const { return productId_; }
  void setProductId(KXString productId) { productId_ = std::move(productId); }

 private:
  struct Fields;
  KXString userId_;
  KXString nickName_;
  KXString loginName_;
  KXString name_;
  KXString grade_;
  KXString gender_;
  KXString birthday_;
  KXString age_;
  KXString profession_;
  KXString portraitUrl_;
  KXString province_;
  KXString city_;
  KXString memo_;
  KXString mobileNo_;
  KXString email_;
  KXString address_;
  KXString QQ_;
  KXString weibo_;
  KXString weixin_;
  KXString page_;
  KXString referrer_;
  KXString enterUrl_;
  KXString skillId_;
  std::shared_ptr<const std::vector<std::string>> listUrl_;
  KXString define_;
  KXString productId_;
};

}  // namespace quor
