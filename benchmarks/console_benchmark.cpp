// A console with many customers on its board (1,000 unless told), for the page's rendering
// benchmark (console_render.py): the desk is not connected; the board gets what that many
// sessions would have told it. The agent "Bench" logs in with "bench-password". Prints the
// console's link, then serves until its input closes.
#include <cstdio>
#include <iostream>
#include <string>

#include "QuorDeskConsole/QuorDeskConsole.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorXmppDesk/QuorXmppDesk.h"

int main(int argc, char** argv) {
  using namespace quor;
  const int customers = argc > 1 ? std::stoi(argv[1]) : 1000;
  QuorXmppOptions unused;
  unused.jid = "desk@localhost";
  unused.password = "unused";
  QuorXmppDesk desk(QuorDeskSimulator::defaultProfile(), unused);
  QuorDeskConsole console(desk, {});
  std::string error;
  if (!console.start(&error)) {
    std::fprintf(stderr, "console_benchmark: %s\n", error.c_str());
    return 1;
  }
  const std::string problem = console.agents().add("Bench", "bench-password");
  if (!problem.empty()) {
    std::fprintf(stderr, "console_benchmark: %s\n", problem.c_str());
    return 1;
  }
  for (int i = 0; i < customers; ++i) {
    const std::string id = "customer-" + std::to_string(i) + "@localhost";
    const std::string name = "Customer " + std::to_string(i);
    auto said = [&](const char* objectName, std::string body) {
      console.board().record(
          {id, QuorConsoleBoard::now(), true, objectName, std::move(body), "", ""});
    };
    said("KX:CsHs", R"({"userInfo":{"userId":"c)" + std::to_string(i) + R"(","name":")" + name +
                        R"("},"contactInfo":{},"requestInfo":{"page":"orders"}})");
    said("KX:TxtMsg", R"({"content":"Where is my order?"})");
    if (i % 3 == 0) said("KX:CsCha", R"({"groupid":"sales"})");
  }
  std::printf("%s\n", console.link().c_str());
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
  }
  console.stop();
  return 0;
}
