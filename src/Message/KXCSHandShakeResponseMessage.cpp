#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"

#include <nlohmann/json.hpp>

#include "Message/KXContentTypeDefinition.h"
#include "Message/KXJsonReader.h"
#include "Support/KXHost.h"
#include "Support/KXLog.h"

namespace quor {
namespace {

using Reader = KXJsonReader;

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

// The keys of the response's "data" read by the decoder, found in one pass.
enum DataKey {
  kSid,
  kUid,
  kPid,
  kCompanyName,
  kIsBlack,
  kServiceType,
  kAdminTipTime,
  kAdminTipWord,
  kUserTipTime,
  kUserTipWord,
  kSuspendWhenQuit,
  kDisableLocation,
  kRobotName,
  kRobotIcon,
  kRobotWelcome,
  kNotAutoCha,
  kRobotSessionNoEva,
  kHumanSessionNoEva,
  kGroups,
  kEvaluateList,
  kEvaConf,
  kLeaveMsgConf,
  kAnnounceMsgFlag,
  kAnnounceMsg,
  kAnnounceClickFlag,
  kAnnounceClickUrl,
  kDataKeys
};

const Reader::Keys& dataKeys() {
  static const Reader::Keys keys({"sid",
                                  "uid",
                                  "pid",
                                  "companyName",
                                  "isblack",
                                  "serviceType",
                                  "adminTipTime",
                                  "adminTipWord",
                                  "userTipTime",
                                  "userTipWord",
                                  "suspendWhenQuit",
                                  "disableLocation",
                                  "robotName",
                                  "robotIcon",
                                  "robotWelcome",
                                  "notAutoCha",
                                  "robotSessionNoEva",
                                  "humanSessionNoEva",
                                  "groups",
                                  "evaluateList",
                                  "evaConf",
                                  "leaveMsgConf",
                                  "announceMsgFlag",
                                  "announceMsg",
                                  "announceClickFlag",
                                  "announceClickUrl"});
  return keys;
}

// Each object entry of the array `value`, in order; a missing or non-array value gives no
// entries, and entries that are not objects are skipped.
template <class Item, class Make>
std::shared_ptr<const std::vector<std::shared_ptr<Item>>> readList(const KXDictionary* value,
                                                                   Make make) {
  auto list = std::make_shared<std::vector<std::shared_ptr<Item>>>();
  if (const KXDictionary* entries = Reader::array(value)) {
    list->reserve(entries->size());
    for (const auto& entry : *entries) {
      if (entry.is_object()) list->push_back(make(entry));
    }
  }
  return list;
}

}  // namespace

KX_RECEIVED_CONTENT_TYPE(KXCSHandShakeResponseMessage, "KX:CsHsR", 0)

void KXCSHandShakeResponseMessage::decodeWithData(const KXData& data) {
  if (!data) return;
  auto body =
      Reader::readBody(data, KX_LOG_TAG, "ERROR: KXCSHandShakeResponseMessage JSON is nil!!");
  // Both lists are present from here on, even when the body does not parse.
  groupList_ = std::make_shared<std::vector<std::shared_ptr<KXCustomerServiceGroupItem>>>();
  config_.leaveMessageNativeInfo =
      std::make_shared<std::vector<std::shared_ptr<KXCSLeaveMessageItem>>>();
  if (!body) return;

  // Logged before the configuration's dictionaries are moved out of the body below.
  KXLog::info(KX_LOG_TAG, "KX:CsHsR JSON is : %@", {*body});
  code_ = Reader::integer(*body, "status");
  msg_ = Reader::string(*body, "msg");
  if (code_ != 0) {
    // Values of the wrong JSON type where an object is expected read as missing.
    // The body is this decoder's own: strings and dictionaries kept whole are moved out of it.
    const auto found = body->find("data");
    KXDictionary* data = found != body->end() && found->is_object() ? &*found : nullptr;
    KXDictionary* d[kDataKeys];
    dataKeys().find(data, d);
    ids_.cid = Reader::takenString(d[kSid]);
    ids_.uid = Reader::takenString(d[kUid]);
    ids_.pid = Reader::takenString(d[kPid]);
    config_.companyName = Reader::takenString(d[kCompanyName]);
    config_.isBlack = Reader::boolean(d[kIsBlack]);
    type_ = Reader::integer(d[kServiceType]);
    config_.adminTipTime = Reader::integer(d[kAdminTipTime]);
    config_.adminTipWord = Reader::takenString(d[kAdminTipWord]);
    config_.userTipTime = Reader::integer(d[kUserTipTime]);
    config_.userTipWord = Reader::takenString(d[kUserTipWord]);
    // The key's presence decides, not its value: a present false does not fall back.
    suspendWhenQuit_ =
        d[kSuspendWhenQuit] ? Reader::boolean(d[kSuspendWhenQuit]) : KXHost::suspendWhenLeave();
    config_.disableLocation = Reader::integer(d[kDisableLocation]);
    robotName_ = Reader::takenString(d[kRobotName]);
    robotLogo_ = Reader::takenString(d[kRobotIcon]);
    robotHelloWord_ = Reader::takenString(d[kRobotWelcome]);
    requiredChangMode_ = Reader::boolean(d[kNotAutoCha]);
    config_.robotSessionNoEva = Reader::boolean(d[kRobotSessionNoEva]);
    config_.humanSessionNoEva = Reader::boolean(d[kHumanSessionNoEva]);
    groupList_ = readList<KXCustomerServiceGroupItem>(d[kGroups], makeGroup);
    config_.humanEvaluateItems = readList<KXEvaluateItem>(d[kEvaluateList], makeEvaluateItem);

    evaConfig_ = Reader::taken(Reader::object(d[kEvaConf]) ? d[kEvaConf] : nullptr);
    const KXDictionary* evaConf = evaConfig_.get();
    config_.evaEntryPoint = Reader::widenedInteger(Reader::find(evaConf, "evaEntryPoint"));
    config_.evaType = Reader::widenedInteger(Reader::find(evaConf, "evaType"));
    config_.reportResolveStatus = Reader::integer(Reader::find(evaConf, "reportResolveStatus"));

    const KXDictionary* leaveMsgConf = Reader::object(d[kLeaveMsgConf]);
    config_.leaveMessageType = Reader::widenedInteger(Reader::find(leaveMsgConf, "type"));
    if (const KXDictionary* customConf = Reader::object(Reader::find(leaveMsgConf, "customConf"))) {
      config_.leaveMessageWebUrl = Reader::string(Reader::find(customConf, "url"));
    }
    auto nativeInfo = readList<KXCSLeaveMessageItem>(Reader::find(leaveMsgConf, "defaultConf"),
                                                     KXCSLeaveMessageItem::modelWithDic);

    if (Reader::integer(d[kAnnounceMsgFlag]) != 0) {
      config_.announceMsg = Reader::takenString(d[kAnnounceMsg]);
      if (Reader::integer(d[kAnnounceClickFlag]) != 0) {
        config_.announceClickUrl = Reader::takenString(d[kAnnounceClickUrl]);
      }
    }
    config_.leaveMessageNativeInfo = std::move(nativeInfo);
  }
}

}  // namespace quor
