// The smallest complete program: the library on the loopback host, talking to the desk
// simulator. A real app installs its own host adapter instead (docs/host-adapter.md).
#include <cstdio>

#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"

int main() {
  using namespace quor;
  auto host = std::make_shared<QuorLoopbackHost>();
  host->install();              // core client, logger, settings and main-thread dispatcher
  host->loadExtensionModule();  // registers the customer-service message types

  std::string error;
  auto desk = QuorDeskSimulator::fromProfile(QuorDeskSimulator::defaultProfile(), &error);
  desk->attach(host);

  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  client.startCustomerService(
      desk->deskId(), std::make_shared<KXCustomerServiceInfo>(),
      [](std::shared_ptr<KXCustomerServiceConfig> config) {
        std::printf("connected to %s\n", config->companyName().value_or("?").c_str());
      },
      [](int64_t code, const std::string& text) {
        std::printf("failed (%lld): %s\n", static_cast<long long>(code), text.c_str());
      },
      [](KXCSModeType mode) { std::printf("mode %llu\n", static_cast<unsigned long long>(mode)); },
      nullptr, nullptr, [](const std::string& text) { std::printf("ended: %s\n", text.c_str()); });
  host->settle();  // runs the host's threads and the main run loop until all is quiet

  client.stopCustomerService(desk->deskId());
  host->settle();
  QuorLoopbackHost::uninstall();
  return 0;
}
