// The host contract: what the library relies on from any host, as one parameterised GoogleTest
// suite. A host adapter's author implements QuorHostContractSubject for their host (a factory
// that makes a fresh host with a desk peer on its channel) and instantiates the suite:
//
//   INSTANTIATE_TEST_SUITE_P(MyHost, QuorHostContract,
//                            ::testing::Values(QuorHostContractFactory{"MyHost", makeMySubject}));
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "QuorCustomerService/QuorCustomerService.h"

namespace quor::contract {

// One host under test, installed as the library's host with the library's module loaded, and
// a desk at the other end of its channel.
class QuorHostContractSubject {
 public:
  virtual ~QuorHostContractSubject() = default;

  virtual KXCoreClient& core() = 0;
  virtual KXMainThreadDispatcher& mainThread() = 0;
  // Offers every received message to `module` as well, after the library's module.
  virtual void loadModule(QuorIMLibExtensionModule& module) = 0;
  // Adds an application message listener.
  virtual void addListener(std::function<void(const std::shared_ptr<KXMessage>&)> listener) = 0;
  // Runs the main thread's work until `done` holds; false when that takes too long.
  virtual bool runMainUntil(const std::function<bool()>& done) = 0;

  // The id of the desk at the other end.
  virtual std::string deskId() const = 0;
  // The desk sends the customer one message.
  virtual void deskSends(const std::string& objectName, const std::string& body) = 0;
  // The object names of what the desk received so far, in order.
  virtual std::vector<std::string> deskReceived() = 0;
  // Takes the customer offline, has the desk send `messages`, and brings the customer back.
  virtual void deliverWhileOffline(
      const std::vector<std::pair<std::string, std::string>>& messages) = 0;
  // Arranges that the next send to the returned target fails, and the code it fails with.
  struct Failure {
    std::string targetId;
    int64_t code = 0;
  };
  virtual Failure arrangeFailingSend() = 0;
};

struct QuorHostContractFactory {
  std::string name;
  std::function<std::unique_ptr<QuorHostContractSubject>()> make;
};
inline void PrintTo(const QuorHostContractFactory& factory, std::ostream* out) {
  *out << factory.name;
}

class QuorHostContract : public ::testing::TestWithParam<QuorHostContractFactory> {
 protected:
  void SetUp() override {
    subject = GetParam().make();
    ASSERT_TRUE(subject);
  }
  void TearDown() override { subject.reset(); }

  std::unique_ptr<QuorHostContractSubject> subject;
};

// Defined beside the duties: the reference below makes every test that includes this header link
// them in from the static library (nothing else refers to their registrations).
int linkHostContractDuties();
[[maybe_unused]] inline const int kHostContractDutiesLinked = linkHostContractDuties();

// For INSTANTIATE_TEST_SUITE_P's name generator.
inline std::string contractName(const ::testing::TestParamInfo<QuorHostContractFactory>& info) {
  return info.param.name;
}

}  // namespace quor::contract
