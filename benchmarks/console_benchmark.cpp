// A console with a thousand customers on its board, for the page's rendering benchmark
// (console_render.py): the desk is not connected; the board gets what a thousand sessions would
// have told it. Prints the console's link, then serves until its input closes.
#include <cstdio>
#include <iostream>
#include <string>

#include "QuorDeskConsole/QuorDeskConsole.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"

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
  auto wire = [](const char* name, std::string body) {
    QuorWireMessage message;
    message.objectName = name;
    message.body = std::move(body);
    return message;
  };
  for (int i = 0; i < customers; ++i) {
    const std::string id = "customer-" + std::to_string(i) + "@localhost";
    const std::string name = "Customer " + std::to_string(i);
    console.board().record(
        id,
        wire("KX:CsHs", R"({"userInfo":{"userId":"c)" + std::to_string(i) + R"(","name":")" + name +
                            R"("},"contactInfo":{},"requestInfo":{"page":"orders"}})"),
        true);
    console.board().record(id, wire("KX:TxtMsg", R"({"content":"Where is my order?"})"), true);
    if (i % 3 == 0) console.board().record(id, wire("KX:CsCha", R"({"groupid":"sales"})"), true);
  }
  std::printf("%s\n", console.link().c_str());
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
  }
  console.stop();
  return 0;
}
