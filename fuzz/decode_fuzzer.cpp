// Decodes arbitrary bytes into each received message type, then writes every decoded value and
// every logged argument out again, as an application and a logger would.
#include <cstddef>
#include <cstdint>
#include <string>

#include "QuorCustomerService/QuorCustomerService.h"

namespace {

using namespace quor;

// A logger that formats every entry, so every JSON argument is written out.
class FormattingLogger : public KXFwLog {
 public:
  void write(int32_t, int32_t, std::string_view tag, std::string_view format,
             std::initializer_list<KXLogArgument> keys) override {
    sink_ = std::string(tag) + KXFwLog::format(format, keys);
  }

 private:
  std::string sink_;
};

std::size_t use(const KXString& text) { return text ? text->size() : 0; }
std::size_t use(const std::shared_ptr<const KXDictionary>& json) {
  return json ? json->dump(-1, ' ', false, KXDictionary::error_handler_t::replace).size() : 0;
}

std::size_t readAll(const KXCSHandShakeResponseMessage& r) {
  std::size_t n = use(r.msg()) + use(r.uid()) + use(r.cid()) + use(r.pid()) + use(r.companyName()) +
                  use(r.adminTipWord()) + use(r.userTipWord()) + use(r.robotName()) +
                  use(r.robotLogo()) + use(r.robotHelloWord()) + use(r.leaveMessageWebUrl()) +
                  use(r.announceMsg()) + use(r.announceClickUrl()) + use(r.evaConfig());
  if (r.groupList()) {
    for (const auto& group : *r.groupList()) n += use(group->groupId()) + use(group->name());
  }
  if (r.humanEvaluationItems()) {
    for (const auto& item : *r.humanEvaluationItems()) n += use(item->describe());
  }
  if (r.leaveMessageNativeInfo()) {
    for (const auto& item : *r.leaveMessageNativeInfo()) {
      n += use(item->title()) + use(item->name()) + use(item->type()) + use(item->defaultText()) +
           use(item->verification()) + use(item->message());
    }
  }
  return n;
}

// Every field of a decoded content, as an application would read it.
std::size_t readAll(const KXMessageContent& content) {
  if (auto* r = dynamic_cast<const KXCSHandShakeResponseMessage*>(&content)) return readAll(*r);
  if (auto* m = dynamic_cast<const KXCSChangeModeResponseMessage*>(&content))
    return use(m->errMsg()) + use(m->evaConfig()) + static_cast<std::size_t>(m->result());
  if (auto* m = dynamic_cast<const KXCSPullEvaluateMessage*>(&content)) return use(m->evaluateId());
  if (auto* m = dynamic_cast<const KXCSPullLeaveMessage*>(&content))
    return use(m->content()) + use(m->conversationDigest());
  if (auto* m = dynamic_cast<const KXCSTerminateMessage*>(&content))
    return use(m->msg()) + use(m->cid());
  if (auto* m = dynamic_cast<const KXCSUpdateMessage*>(&content))
    return use(m->cid()) + static_cast<std::size_t>(m->serviceStatus());
  return 0;
}

}  // namespace

// The first byte chooses one of the types the module registers with a host; the rest is the
// body, decoded into a fresh instance as a host would.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const std::vector<KXMessageContentType> types = [] {
    KXFwLog::setInstance(std::make_shared<FormattingLogger>());
    return QuorCustomerServiceExtensionModule::loadQuorExtensionModule().messageTypeList();
  }();
  if (size == 0) return 0;
  const KXData body = std::string(reinterpret_cast<const char*>(data) + 1, size - 1);
  auto content = types[data[0] % types.size()].create();
  content->decodeWithData(body);
  volatile std::size_t sink = readAll(*content);
  (void)sink;
  return 0;
}
