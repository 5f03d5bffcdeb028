#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/QuorCustomerServiceExport.h"

namespace quor {

// One field of the native leave-message form described by the desk ("defaultConf" entry of
// the handshake response). Filled by the decoder and then only read.
class QUOR_CS_EXPORT KXCSLeaveMessageItem {
 public:
  // modelWithDic: a new item filled by initWithDic().
  static std::shared_ptr<KXCSLeaveMessageItem> modelWithDic(const KXDictionary& dic);
  // initWithDic: fills the item from one "defaultConf" entry; a non-object fills nothing.
  KXCSLeaveMessageItem& initWithDic(const KXDictionary& dic);

  const KXString& title() const { return title_; }
  void setTitle(KXString title) { title_ = std::move(title); }
  const KXString& name() const { return name_; }
  void setName(KXString name) { name_ = std::move(name); }
  const KXString& type() const { return type_; }
  void setType(KXString type) { type_ = std::move(type); }
  const KXString& defaultText() const { return defaultText_; }
  void setDefaultText(KXString defaultText) { defaultText_ = std::move(defaultText); }
  bool required() const { return required_; }
  void setRequired(bool required) { required_ = required; }
  const KXString& verification() const { return verification_; }
  void setVerification(KXString verification) { verification_ = std::move(verification); }
  // The desk's list of messages for the field, a JSON array stored unconverted; null when
  // absent.
  const std::shared_ptr<const KXDictionary>& message() const { return message_; }
  void setMessage(std::shared_ptr<const KXDictionary> message) { message_ = std::move(message); }
  int32_t max() const { return max_; }
  void setMax(int32_t max) { max_ = max; }

 private:
  KXString title_;
  KXString name_;
  KXString type_;
  KXString defaultText_;
  bool required_ = false;
  KXString verification_;
  std::shared_ptr<const KXDictionary> message_;
  int32_t max_ = 0;
};

// A shared, read-only list of form fields; a null pointer is an absent list.
using KXCSLeaveMessageItemList =
    std::shared_ptr<const std::vector<std::shared_ptr<KXCSLeaveMessageItem>>>;

}  // namespace quor
