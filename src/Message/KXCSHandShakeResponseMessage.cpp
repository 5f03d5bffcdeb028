#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Support/KXHost.h"
#include "Support/KXLog.h"

namespace quor {
namespace {

using Reader = KXJsonReader;

// Each object entry of the array under `key` of `object`, in order; a missing or non-array
// value gives no entries, and entries that are not objects are skipped.
template <class Item, class Make>
std::shared_ptr<const std::vector<std::shared_ptr<Item>>> readList(const KXDictionary* object,
                                                                   const char* key, Make make) {
  auto list = std::make_shared<std::vector<std::shared_ptr<Item>>>();
  if (const KXDictionary* entries = Reader::array(Reader::find(object, key))) {
    for (const auto& entry : *entries) {
      if (entry.is_object()) list->push_back(make(entry));
    }
  }
  return list;
}

std::shared_ptr<KXCustomerServiceGroupItem> makeGroup(const KXDictionary& entry) {
  auto group = std::make_shared<KXCustomerServiceGroupItem>();
  group->setGroupId(Reader::string(entry, "id"));
  group->setName(Reader::string(entry, "name"));
  group->setOnline(Reader::boolean(entry, "online"));
  return group;
}

std::shared_ptr<KXEvaluateItem> makeEvaluateItem(const KXDictionary& entry) {
  auto item = std::make_shared<KXEvaluateItem>();
  item->setDescribe(Reader::string(entry, "description"));
  item->setValue(Reader::integer(entry, "value"));
  return item;
}

}  // namespace

KX_RECEIVED_CONTENT_TYPE(KXCSHandShakeResponseMessage, "KX:CsHsR", 0)

void KXCSHandShakeResponseMessage::decodeWithData(const KXData& data) {
  if (!data) return;
  const auto body =
      Reader::readBody(data, KX_LOG_TAG, "ERROR: KXCSHandShakeResponseMessage JSON is nil!!");
  // Both lists are present from here on, even when the body does not parse.
  groupList_ = std::make_shared<std::vector<std::shared_ptr<KXCustomerServiceGroupItem>>>();
  leaveMessageNativeInfo_ = std::make_shared<std::vector<std::shared_ptr<KXCSLeaveMessageItem>>>();
  if (!body) return;

  code_ = Reader::integer(*body, "status");
  msg_ = Reader::string(*body, "msg");
  if (code_ != 0) {
    // Values of the wrong JSON type where an object is expected read as missing.
    const KXDictionary* d = Reader::object(Reader::find(&*body, "data"));
    cid_ = Reader::string(Reader::find(d, "sid"));
    uid_ = Reader::string(Reader::find(d, "uid"));
    pid_ = Reader::string(Reader::find(d, "pid"));
    companyName_ = Reader::string(Reader::find(d, "companyName"));
    isBlack_ = Reader::boolean(Reader::find(d, "isblack"));
    type_ = Reader::integer(Reader::find(d, "serviceType"));
    adminTipTime_ = Reader::integer(Reader::find(d, "adminTipTime"));
    adminTipWord_ = Reader::string(Reader::find(d, "adminTipWord"));
    userTipTime_ = Reader::integer(Reader::find(d, "userTipTime"));
    userTipWord_ = Reader::string(Reader::find(d, "userTipWord"));
    // The key's presence decides, not its value: a present false does not fall back.
    const KXDictionary* suspend = Reader::find(d, "suspendWhenQuit");
    suspendWhenQuit_ = suspend ? Reader::boolean(suspend) : KXHost::suspendWhenLeave();
    disableLocation_ = Reader::integer(Reader::find(d, "disableLocation"));
    robotName_ = Reader::string(Reader::find(d, "robotName"));
    robotLogo_ = Reader::string(Reader::find(d, "robotIcon"));
    robotHelloWord_ = Reader::string(Reader::find(d, "robotWelcome"));
    requiredChangMode_ = Reader::boolean(Reader::find(d, "notAutoCha"));
    robotSessionNoEva_ = Reader::boolean(Reader::find(d, "robotSessionNoEva"));
    humanSessionNoEva_ = Reader::boolean(Reader::find(d, "humanSessionNoEva"));
    groupList_ = readList<KXCustomerServiceGroupItem>(d, "groups", makeGroup);
    humanEvaluationItems_ = readList<KXEvaluateItem>(d, "evaluateList", makeEvaluateItem);

    const KXDictionary* evaConf = Reader::object(Reader::find(d, "evaConf"));
    evaConfig_ = Reader::shared(evaConf);
    evaEntryPoint_ = Reader::widenedInteger(Reader::find(evaConf, "evaEntryPoint"));
    evaType_ = Reader::widenedInteger(Reader::find(evaConf, "evaType"));
    reportResolveStatus_ = Reader::integer(Reader::find(evaConf, "reportResolveStatus"));

    const KXDictionary* leaveMsgConf = Reader::object(Reader::find(d, "leaveMsgConf"));
    leaveMessageType_ = Reader::widenedInteger(Reader::find(leaveMsgConf, "type"));
    if (const KXDictionary* customConf = Reader::object(Reader::find(leaveMsgConf, "customConf"))) {
      leaveMessageWebUrl_ = Reader::string(Reader::find(customConf, "url"));
    }
    auto nativeInfo = readList<KXCSLeaveMessageItem>(leaveMsgConf, "defaultConf",
                                                     KXCSLeaveMessageItem::modelWithDic);

    if (Reader::integer(Reader::find(d, "announceMsgFlag")) != 0) {
      announceMsg_ = Reader::string(Reader::find(d, "announceMsg"));
      if (Reader::integer(Reader::find(d, "announceClickFlag")) != 0) {
        announceClickUrl_ = Reader::string(Reader::find(d, "announceClickUrl"));
      }
    }
    leaveMessageNativeInfo_ = std::move(nativeInfo);
  }
  KXLog::info(KX_LOG_TAG, "KX:CsHsR JSON is : %@", {*body});
}

}  // namespace quor
