// Benchmarks of the paths an app feels: the host's receive path, decoding and encoding, a whole
// handshake through the loopback host, the main thread's work, memory, and loading the module.
#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "AllocationCounter.h"
#include "EmptyVirtual.h"
#include "KXJsonTree.h"
#include "QuorCustomerService/QuorCustomerService.h"
#include "QuorDeskSimulator/QuorDeskSimulator.h"
#include "QuorLoopbackHost/QuorLoopbackHost.h"

namespace {

using namespace quor;
using bench::AllocationCounter;

// The one loopback host of the process: the module registers its types with the host installed
// at the first load, so every benchmark that needs a host uses this one.
std::shared_ptr<QuorLoopbackHost>& theHost() {
  static auto host = std::make_shared<QuorLoopbackHost>();
  return host;
}

// Installs the host afresh, with no peer, observer or log output.
std::shared_ptr<QuorLoopbackHost> freshHost() {
  auto host = theHost();
  host->install();
  host->setLogSink(nullptr, 0);
  host->setObserver(nullptr);
  host->connectPeer(nullptr);
  host->loadExtensionModule();
  return host;
}

// A logger that drops information lines (the usual release setting) or formats them all.
class BenchLogger : public KXFwLog {
 public:
  explicit BenchLogger(bool writeInfo) : writeInfo_(writeInfo) {}
  void write(int32_t level, int32_t, std::string_view, std::string_view format,
             std::initializer_list<KXLogArgument> keys) override {
    if (level > KXLogLevelError && !writeInfo_) return;
    text_ = KXFwLog::format(format, keys);
    benchmark::DoNotOptimize(text_.data());
  }

 private:
  bool writeInfo_;
  std::string text_;
};

// A realistic handshake response of about 1.6 KB: groups, evaluation options, a form.
std::string handShakeBody() {
  KXDictionary data = {
      {"uid", "uid-2f8c1a"},
      {"sid", "service-20261122-000193"},
      {"pid", "pid-7781"},
      {"companyName", "Quor Shop (Hangzhou) Co., Ltd."},
      {"isblack", 0},
      {"serviceType", 3},
      {"adminTipTime", 120},
      {"adminTipWord", "The customer is waiting for your answer."},
      {"userTipTime", 300},
      {"userTipWord", "Are you still there? We will close soon."},
      {"robotName", "Ava"},
      {"robotIcon", "https://cdn.shop.example/avatars/ava-128.png"},
      {"robotWelcome",
       "Hi, I am Ava, the Quor Shop assistant. Ask me about orders, delivery or returns."},
      {"notAutoCha", 0},
      {"robotSessionNoEva", 0},
      {"humanSessionNoEva", 0},
      {"suspendWhenQuit", true},
      {"disableLocation", 1},
      {"announceMsgFlag", 1},
      {"announceMsg", "Free returns all month long!"},
      {"announceClickFlag", 1},
      {"announceClickUrl", "https://shop.example/campaigns/returns"},
      {"groups",
       {{{"id", "sales"}, {"name", "Sales"}, {"online", 1}},
        {{"id", "after-sales"}, {"name", "After-sales"}, {"online", 1}},
        {{"id", "vip"}, {"name", "VIP service"}, {"online", 0}}}},
      {"evaluateList",
       {{{"description", "Very satisfied"}, {"value", 5}},
        {{"description", "Satisfied"}, {"value", 4}},
        {{"description", "Neutral"}, {"value", 3}},
        {{"description", "Unsatisfied"}, {"value", 2}},
        {{"description", "Very unsatisfied"}, {"value", 1}}}},
      {"evaConf", {{"evaEntryPoint", 1}, {"evaType", 2}, {"reportResolveStatus", 1}}},
      {"leaveMsgConf",
       {{"type", 1},
        {"customConf", {{"url", "https://shop.example/support/leave-message"}}},
        {"defaultConf",
         {{{"title", "Name"},
           {"name", "name"},
           {"type", "text"},
           {"defaultText", "Your name"},
           {"required", 1},
           {"max", 20}},
          {{"title", "Phone"},
           {"name", "phone"},
           {"type", "tel"},
           {"required", 1},
           {"verification", "mobile"},
           {"max", 11},
           {"message", {"Please enter a valid mobile number"}}},
          {{"title", "Message"},
           {"name", "content"},
           {"type", "textarea"},
           {"required", 1},
           {"max", 500}}}}}},
  };
  return KXDictionary{{"status", 1}, {"msg", "success"}, {"data", data}}.dump();
}

const std::string& bodyOf(int type) {
  static const std::string bodies[] = {
      handShakeBody(),
      R"({"code":200,"data":{"status":1,"satisfaction":[{"isQuestionFlag":1,"options":[5,4,3,2,1]}]}})",
      R"({"msgId":"dialog-20261122-42"})",
      R"({"content":"Our agents are busy. Leave us a message and we will call you back."})",
      R"({"code":0,"msg":"Thank you for contacting Quor Shop. Goodbye!","sid":"service-20261122-000193"})",
      R"({"sid":"service-20261122-000194","serviceStatus":2})",
  };
  return bodies[type];
}

template <class T>
void decode(benchmark::State& state, int type, bool writeInfo) {
  KXFwLog::setInstance(std::make_shared<BenchLogger>(writeInfo));
  const KXData body = bodyOf(type);
  for (auto _ : state) {
    T content;
    content.decodeWithData(body);
    benchmark::DoNotOptimize(&content);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body->size()));
  KXFwLog::setInstance(nullptr);
}

void BM_Parse(benchmark::State& state, int type) {
  const std::string& body = bodyOf(type);
  for (auto _ : state) {
    auto json = KXDictionary::parse(body);
    benchmark::DoNotOptimize(&json);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}

// The library's own parse (the linear tree builder with the depth limit), of which a decode is
// made: parse plus reading the fields.
void BM_ParseTree(benchmark::State& state, int type) {
  const std::string& body = bodyOf(type);
  for (auto _ : state) {
    auto json = KXJsonTree::parse(body, 128);
    benchmark::DoNotOptimize(&json);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}
BENCHMARK_CAPTURE(BM_ParseTree, KXCSHandShakeResponseMessage, 0);

#define QUOR_DECODE_BENCHMARKS(Type, index)                        \
  void BM_Decode_##Type(benchmark::State& state, bool writeInfo) { \
    decode<Type>(state, index, writeInfo);                         \
  }                                                                \
  BENCHMARK_CAPTURE(BM_Decode_##Type, quiet, false);               \
  BENCHMARK_CAPTURE(BM_Decode_##Type, logged, true);               \
  BENCHMARK_CAPTURE(BM_Parse, Type, index);

QUOR_DECODE_BENCHMARKS(KXCSHandShakeResponseMessage, 0)
QUOR_DECODE_BENCHMARKS(KXCSChangeModeResponseMessage, 1)
QUOR_DECODE_BENCHMARKS(KXCSPullEvaluateMessage, 2)
QUOR_DECODE_BENCHMARKS(KXCSPullLeaveMessage, 3)
QUOR_DECODE_BENCHMARKS(KXCSTerminateMessage, 4)
QUOR_DECODE_BENCHMARKS(KXCSUpdateMessage, 5)

// Very large bodies: a long text, or many small group entries. The time per byte must stay flat
// as the size grows tenfold.
void BM_DecodeLargeText(benchmark::State& state) {
  const KXData body = R"({"status":1,"msg":")" +
                      std::string(static_cast<std::size_t>(state.range(0)), 'x') + R"("})";
  for (auto _ : state) {
    KXCSHandShakeResponseMessage content;
    content.decodeWithData(body);
    benchmark::DoNotOptimize(&content);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body->size()));
}
BENCHMARK(BM_DecodeLargeText)->Arg(1 << 20)->Arg(10 << 20)->Unit(benchmark::kMillisecond);

// Decodes `body` as a handshake response on every iteration, counting its bytes.
void decodeHandShakeResponses(benchmark::State& state, const std::string& body) {
  const KXData bytes = body;
  for (auto _ : state) {
    KXCSHandShakeResponseMessage content;
    content.decodeWithData(bytes);
    benchmark::DoNotOptimize(&content);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * body.size()));
}

void BM_DecodeManyGroups(benchmark::State& state) {
  std::string body = R"({"status":1,"data":{"groups":[)";
  for (int64_t i = 0; i < state.range(0); ++i)
    body += (i ? ",{\"id\":\"g" : "{\"id\":\"g") + std::to_string(i) + "\"}";
  body += "]}}";
  decodeHandShakeResponses(state, body);
}
BENCHMARK(BM_DecodeManyGroups)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);

// An object of many keys ("data" of a handshake response): building it must not search the
// keys on every insert.
void BM_DecodeManyKeys(benchmark::State& state) {
  std::string body = R"({"status":1,"data":{)";
  for (int64_t i = 0; i < state.range(0); ++i)
    body += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
  body += "}}";
  decodeHandShakeResponses(state, body);
}
BENCHMARK(BM_DecodeManyKeys)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// A rating whose extra has many keys: the merge into the body must not search either.
void BM_EncodeManyExtraKeys(benchmark::State& state) {
  auto extra = std::make_shared<KXDictionary>(KXDictionary::object());
  for (int64_t i = 0; i < state.range(0); ++i) (*extra)["k" + std::to_string(i)] = i;
  KXCSEvaluateMessage message;
  message.setExtra(extra);
  std::size_t bytes = 0;
  for (auto _ : state) {
    const KXData body = message.encode();
    bytes = body ? body->size() : 0;
    benchmark::DoNotOptimize(body);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}
BENCHMARK(BM_EncodeManyExtraKeys)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// --- the receive path ---------------------------------------------------------------------

void BM_EmptyVirtualCall(benchmark::State& state) {
  std::unique_ptr<bench::EmptyVirtual> target = bench::EmptyVirtual::make();
  benchmark::DoNotOptimize(target);
  auto message =
      std::make_shared<KXMessage>(1, "friend", 2, 1, KXTextMessage::messageWithContent("hi"));
  for (auto _ : state) benchmark::DoNotOptimize(target->call(message, false));
}
BENCHMARK(BM_EmptyVirtualCall);

void BM_PassThrough(benchmark::State& state) {
  QuorIMLibExtensionModule* module = &QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  benchmark::DoNotOptimize(module);
  auto message =
      std::make_shared<KXMessage>(1, "friend", 2, 1, KXTextMessage::messageWithContent("hi"));
  const uint64_t before = AllocationCounter::allocations();
  for (auto _ : state) benchmark::DoNotOptimize(module->didHoldReceivedMessage(message, false));
  state.counters["allocs_per_call"] =
      static_cast<double>(AllocationCounter::allocations() - before) /
      static_cast<double>(state.iterations());
}
BENCHMARK(BM_PassThrough);

// --- encoding -----------------------------------------------------------------------------

void BM_Encode(benchmark::State& state, std::shared_ptr<KXMessageContent> content) {
  for (auto _ : state) benchmark::DoNotOptimize(content->encode());
}

std::shared_ptr<KXMessageContent> handShake() {
  auto info = std::make_shared<KXCustomerServiceInfo>();
  info->setUserId("customer-7");
  info->setNickName("Mei");
  info->setMobileNo("13800000000");
  info->setPage("orders");
  info->setListUrl(std::make_shared<std::vector<std::string>>(
      std::vector<std::string>{"https://a", "https://b"}));
  auto message = std::make_shared<KXCSHandShakeMessage>();
  message->setInfo(info);
  return message;
}
std::shared_ptr<KXMessageContent> changeMode() {
  auto message = std::make_shared<KXCSChangeModeMessage>();
  message->setUid("uid-2f8c1a");
  message->setCid("service-20261122-000193");
  message->setPid("pid-7781");
  message->setGroupid("after-sales");
  return message;
}
std::shared_ptr<KXMessageContent> evaluation() {
  auto message = std::make_shared<KXCSEvaluateMessage>();
  message->setCid("dialog-42");
  message->setSource(5);
  message->setSuggest("Quick and friendly");
  message->setResolveStatus(1);
  message->setType(1);
  message->setTagText("fast");
  message->setExtra(std::make_shared<const KXDictionary>(KXDictionary{{"orderId", "1024"}}));
  return message;
}
std::shared_ptr<KXMessageContent> leave() {
  auto message = std::make_shared<KXCSLeaveMessage>();
  message->setLeaveMessageDic(std::make_shared<const KXDictionary>(KXDictionary{
      {"name", "Mei"}, {"phone", "13800000000"}, {"content", "Please call me after 6 pm."}}));
  return message;
}
std::shared_ptr<KXMessageContent> suspend() {
  auto message = std::make_shared<KXCSSuspendMessage>();
  message->setUid("uid-2f8c1a");
  message->setCid("service-20261122-000193");
  message->setPid("pid-7781");
  return message;
}
BENCHMARK_CAPTURE(BM_Encode, KXCSHandShakeMessage, handShake());
BENCHMARK_CAPTURE(BM_Encode, KXCSChangeModeMessage, changeMode());
BENCHMARK_CAPTURE(BM_Encode, KXCSEvaluateMessage, evaluation());
BENCHMARK_CAPTURE(BM_Encode, KXCSLeaveMessage, leave());
BENCHMARK_CAPTURE(BM_Encode, KXCSSuspendMessage, suspend());

// --- a whole handshake through the loopback host ---------------------------------------------

// Answers every handshake at once with the realistic response.
class AnsweringDesk : public QuorLoopbackPeer {
 public:
  explicit AnsweringDesk(std::weak_ptr<QuorLoopbackHost> host) : host_(std::move(host)) {}
  void onMessageFromClient(const QuorWireMessage& message) override {
    if (message.objectName != "KX:CsHs") return;
    if (auto host = host_.lock()) {
      QuorWireMessage answer;
      answer.objectName = "KX:CsHsR";
      answer.targetId = message.targetId;
      answer.senderUserId = message.targetId;
      answer.body = bodyOf(0);
      host->receiveAsync(std::move(answer));
    }
  }

 private:
  std::weak_ptr<QuorLoopbackHost> host_;
};

// Counts decoded bodies logged on the main thread: the main thread must never parse JSON.
class ThreadCheckingLogger : public KXFwLog {
 public:
  void write(int32_t, int32_t, std::string_view, std::string_view format,
             std::initializer_list<KXLogArgument>) override {
    if (QuorLoopbackHost::threadName() == "main" &&
        format.find("JSON is") != std::string_view::npos) {
      ++mainThreadJson;
    }
  }
  std::atomic<int> mainThreadJson{0};
};

void BM_WholeHandshake(benchmark::State& state) {
  auto host = freshHost();
  auto logger = std::make_shared<ThreadCheckingLogger>();
  KXFwLog::setInstance(logger);
  host->connectPeer(std::make_shared<AnsweringDesk>(host));
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  int done = 0;
  for (auto _ : state) {
    const int before = done;
    client.startCustomerService(
        "bench-desk", nullptr, [&](auto) {}, nullptr, [&](KXCSModeType) { ++done; }, nullptr,
        nullptr, nullptr);
    // The main thread polls its run loop, as a UI run loop that is awake would.
    while (done == before) {
      if (host->mainRunLoop().runUntilIdle() == 0) std::this_thread::yield();
    }
  }
  host->settle();
  state.counters["main_thread_json"] = logger->mainThreadJson.load();
  QuorLoopbackHost::uninstall();
}
BENCHMARK(BM_WholeHandshake)->UseRealTime();

// The main thread's work for one control message (an update): the posted mode report.
void BM_MainThreadPerControlMessage(benchmark::State& state) {
  auto host = freshHost();
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  client.startCustomerService(
      "main-desk", nullptr, nullptr, nullptr,
      [](KXCSModeType mode) { benchmark::DoNotOptimize(mode); }, nullptr, nullptr, nullptr);
  host->settle();
  auto update = std::make_shared<KXCSUpdateMessage>();
  update->decodeWithData(bodyOf(5));
  auto message = std::make_shared<KXMessage>(5, "main-desk", 2, 1, update);
  message->setSentTime(INT64_MAX);
  for (auto _ : state) {
    state.PauseTiming();
    client.onCustomerServiceMessageReceived(message);
    state.ResumeTiming();
    host->mainRunLoop().runUntilIdle();
  }
  QuorLoopbackHost::uninstall();
}
BENCHMARK(BM_MainThreadPerControlMessage);

// --- memory -------------------------------------------------------------------------------

long residentKilobytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return 0;
}

// Starts and answers 10,000 desks; sessions are never removed, so this is what stays.
void BM_TenThousandDesks(benchmark::State& state) {
  auto host = freshHost();
  auto& client = KXCustomerServiceClient::sharedCustomerServiceClient();
  const auto noop = [](auto&&...) {};
  const std::string response =
      R"({"status":1,"data":{"uid":"u","sid":"s","pid":"p","serviceType":3,)"
      R"("robotName":"Ava","robotWelcome":"Hi","groups":[{"id":"g","name":"G"}]}})";
  for (auto _ : state) {
    state.PauseTiming();
    client.setCustomerServiceSessions({});
    host->settle();
    const int64_t bytesBefore = AllocationCounter::liveBytes();
    const long residentBefore = residentKilobytes();
    state.ResumeTiming();
    for (int i = 0; i < 10000; ++i) {
      const std::string desk = "desk-" + std::to_string(i);
      client.startCustomerService(desk, nullptr, noop, noop, noop, noop, noop, noop);
      QuorWireMessage answer;
      answer.objectName = "KX:CsHsR";
      answer.targetId = desk;
      answer.body = response;
      host->receiveAsync(std::move(answer));
    }
    host->settle();
    state.PauseTiming();
    host->setObserver(nullptr);
    state.counters["bytes_per_session"] =
        static_cast<double>(AllocationCounter::liveBytes() - bytesBefore) / 10000.0;
    state.counters["rss_growth_kb"] = static_cast<double>(residentKilobytes() - residentBefore);
    state.counters["rss_kb"] = static_cast<double>(residentKilobytes());
    state.ResumeTiming();
  }
  client.setCustomerServiceSessions({});
  QuorLoopbackHost::uninstall();
}
BENCHMARK(BM_TenThousandDesks)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

// loadQuorExtensionModule on its first call, measured before anything else loads the module.
int main(int argc, char** argv) {
  theHost()->install();
  theHost()->setLogSink(nullptr, 0);
  const auto start = std::chrono::steady_clock::now();
  QuorCustomerServiceExtensionModule::loadQuorExtensionModule();
  const double firstLoadNs =
      std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
  benchmark::AddCustomContext("first_load_ns", std::to_string(static_cast<long>(firstLoadNs)));
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
