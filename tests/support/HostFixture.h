// The fixture every test uses: a fresh recording host installed for each test.
#pragma once

#include <gtest/gtest.h>

#include "RecordingHost.h"

namespace quor::test {

class HostFixture : public ::testing::Test {
 public:
  void SetUp() override { host = RecordingHost::install(); }
  void TearDown() override { RecordingHost::uninstall(); }

  // The log entries written so far, as "level|text" lines.
  std::vector<std::string> logLines() const {
    std::vector<std::string> lines;
    for (const auto& log : host->logs())
      lines.push_back(std::to_string(log.level) + "|" + log.text);
    return lines;
  }

  std::shared_ptr<RecordingHost> host;
};

}  // namespace quor::test
