#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"

#include <nlohmann/json.hpp>

#include "Message/KXJsonReader.h"

namespace quor {

std::shared_ptr<KXCSLeaveMessageItem> KXCSLeaveMessageItem::modelWithDic(const KXDictionary& dic) {
  auto item = std::make_shared<KXCSLeaveMessageItem>();
  item->initWithDic(dic);
  return item;
}

KXCSLeaveMessageItem& KXCSLeaveMessageItem::initWithDic(const KXDictionary& dic) {
  if (!dic.is_object()) return *this;
  title_ = KXJsonReader::string(dic, "title");
  name_ = KXJsonReader::string(dic, "name");
  type_ = KXJsonReader::string(dic, "type");
  defaultText_ = KXJsonReader::string(dic, "defaultText");
  required_ = KXJsonReader::boolean(dic, "required");
  verification_ = KXJsonReader::string(dic, "verification");
  max_ = KXJsonReader::integer(dic, "max");
  // The list is kept unconverted; a value that is not a list reads as absent.
  message_ = KXJsonReader::shared(KXJsonReader::array(KXJsonReader::find(&dic, "message")));
  return *this;
}

}  // namespace quor
