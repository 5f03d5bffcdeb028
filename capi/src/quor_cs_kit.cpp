// The test kit in C: the loopback host installed with the library's module, and a desk
// simulator at the other end.
#include "QuorCApi.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"

struct quor_cs_kit {
  std::shared_ptr<quor::QuorLoopbackHost> host;
  std::shared_ptr<quor::QuorDeskSimulator> desk;
  std::string deskId;
};

extern "C" {

quor_cs_kit* quor_cs_kit_create(const char* profile_json, char** error) {
  using namespace quor;
  quor::capi::give(error, std::nullopt);
  return capi::guardedValue<quor_cs_kit*>(nullptr, [&]() -> quor_cs_kit* {
    KXDictionary profile = QuorDeskSimulator::defaultProfile();
    if (profile_json) {
      std::string problem;
      auto changes = KXJsonTree::parse(profile_json, KXJsonTree::kMaxDepth, &problem);
      if (!changes || !changes->is_object()) {
        capi::give(error, "the profile is not a JSON object" +
                              (problem.empty() ? std::string() : ": " + problem));
        return nullptr;
      }
      profile.merge_patch(*changes);
    }
    std::string problem;
    auto desk = QuorDeskSimulator::fromProfile(profile, &problem);
    if (!desk) {
      capi::give(error, problem);
      return nullptr;
    }
    auto kit = std::make_unique<quor_cs_kit>();
    if (!capi::claimHost(kit.get())) {
      capi::give(error, std::string("another kit or host is installed: destroy it first"));
      return nullptr;
    }
    // Given back if anything below throws.
    struct Release {
      quor_cs_kit* kit;
      ~Release() {
        if (kit) capi::releaseHost(kit);
      }
    } release{kit.get()};
    kit->host = std::make_shared<QuorLoopbackHost>();
    kit->host->install();
    capi::keepAppDispatcher();
    kit->host->setLogSink(nullptr, 0);
    kit->host->loadExtensionModule();
    desk->attach(kit->host);
    kit->deskId = desk->deskId();
    kit->desk = std::move(desk);
    release.kit = nullptr;
    return kit.release();
  });
}

void quor_cs_kit_destroy(quor_cs_kit* kit) {
  if (!kit) return;
  quor::capi::guarded([kit] {
    kit->host->settle();
    quor::QuorLoopbackHost::uninstall();
    quor::capi::keepAppDispatcher();
    return QUOR_CS_OK;
  });
  quor::capi::releaseHost(kit);
  delete kit;
}

const char* quor_cs_kit_desk_id(const quor_cs_kit* kit) { return kit ? kit->deskId.c_str() : ""; }

void quor_cs_kit_settle(quor_cs_kit* kit) {
  if (!kit) return;
  quor::capi::guarded([kit] {
    kit->host->settle();
    return QUOR_CS_OK;
  });
}

int quor_cs_kit_desk_say(quor_cs_kit* kit, const char* text) {
  if (!kit || !text) return QUOR_CS_ERROR_ARGUMENT;
  return quor::capi::guarded([&] {
    kit->desk->say(text);
    return QUOR_CS_OK;
  });
}

int quor_cs_kit_desk_request_rating(quor_cs_kit* kit) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  return quor::capi::guarded([&] {
    kit->desk->requestEvaluation();
    return QUOR_CS_OK;
  });
}

int quor_cs_kit_desk_end(quor_cs_kit* kit, const char* text, int code) {
  if (!kit) return QUOR_CS_ERROR_ARGUMENT;
  return quor::capi::guarded([&] {
    kit->desk->endService(text ? text : "", code);
    return QUOR_CS_OK;
  });
}

}  // extern "C"
