// The service as a process of its own, beside a bus daemon of the test's own that may be ended.

#include <fcntl.h>
#include <gateway/config.h>
#include <sys/resource.h>

#include <algorithm>

#include "neighbour/child.h"
#include "support/test.h"

using namespace test;

namespace {

constexpr const char* kBusFolder = "/tmp/var/run/mbusd";
constexpr const char* kService = "iot.job.manager";
constexpr const char* kPath = "/iot/job/manager";
constexpr const char* kServing = "startListen server started...\n";

constexpr const char* kLog = "/tmp/var/service.log";

// Its output begins anew.
struct Service : gateway::Child {
  explicit Service(const std::vector<std::string>& command = {TASK_DISPATCHER})
      : Child(command, (fs::remove(kLog), kLog)) {}

  static std::string output() {
    std::string text;
    jobm::readFile(kLog, text);
    return text;
  }
  static bool has(const std::string& part, std::size_t times = 1) {
    return countOf(output(), part) >= times;
  }
  static bool awaits(const std::string& part, std::size_t times = 1) {
    return eventually([&] { return has(part, times); });
  }
};

class Process : public testing::Test {
 protected:
  Process() {
    fs::remove_all("/tarnvale/config");
    fs::remove_all(kBusFolder);
    fs::create_directories(std::string(kBusFolder) + "/services");
    daemon = std::make_unique<gateway::Child>(
        std::vector<std::string>{"dbus-daemon", std::string("--config-file=") + BUS_CONFIG,
                                 "--nofork", "--nopidfile", "--nosyslog"});
    EXPECT_TRUE(eventually(gateway::isBusThere));
  }

  std::unique_ptr<gateway::Child> daemon;
};

TEST_F(Process, ends_with_status_0_on_every_trapped_signal) {
#ifdef __SANITIZE_THREAD__
  // The sanitizer defers these; the handlers of the others run at once, even inside its own locks.
  const int signals[] = {SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGTSTP};
#else
  const int signals[] = {SIGTERM, SIGINT, SIGSEGV, SIGPIPE, SIGQUIT,
                         SIGHUP,  SIGILL, SIGABRT, SIGTSTP};
#endif
  bool early = false;
  for (const int signal : signals) {
    SCOPED_TRACE(signal);
    Service service;
    early = !early;  // while it starts up, and while it serves
    ASSERT_TRUE(service.awaits(early ? "TaskDispatcher started...\n" : kServing));
    const rlimit none{};  // as when connections have used up all descriptors
    EXPECT_EQ(early ? 0 : prlimit(service.id(), RLIMIT_NOFILE, &none, nullptr), 0);
    service.signal(signal);
    EXPECT_EQ(service.end(5), 0);
    EXPECT_TRUE(service.has("Recv signal = " + std::to_string(signal) + ". Terminating...\n"));
    EXPECT_EQ(service.has("Received segmentation fault.\n"), signal == SIGSEGV);
    EXPECT_EQ(service.has(":   [00] "), signal != SIGTERM);
  }
}

TEST_F(Process, without_a_daemon_serves_nobody_and_stays) {
  daemon.reset();
  Service service;
  ASSERT_TRUE(service.awaits("prepare dbus server for iot.job.manager failed.\n"));
  EXPECT_EQ(service.end(0.3), std::nullopt);
  service.signal(SIGTERM);
  EXPECT_EQ(service.end(5), 0);
}

TEST_F(Process, serves_new_connections_when_nobody_reads_its_standard_output_any_more) {
  Service service({"bash", "-c", "exec 3> >(:); wait $!; exec '" TASK_DISPATCHER "' >&3"});
  ASSERT_TRUE(service.awaits(kServing)) << service.output();
  FakePeer executor("iot.test.x");
  const auto answer =
      busCall(kService, kPath, "registerExecutor", {registration("x", "iot.test.x", R"(["x"])")});
  EXPECT_EQ(parsed(answer.value_or(""))["code"], 0);
  service.signal(SIGPIPE);
  EXPECT_EQ(service.end(5), 0) << "by a signal that somebody sent";
}

void configure(const char* key, const std::string& value) {
  ASSERT_EQ(set_config(nullptr, key, value.c_str(), 10000), 0);
}

void fromCloud(FakePeer& bridge, const std::string& topic, const std::string& payload) {
  bridge.emit("/iot/bridge/mqtt", "iot.bridge.mqtt", "subscribe_event", {topic, payload}, kService);
}

// Sends what the cloud says to a publication.
void reply(FakePeer& bridge, const Received& publication, const std::string& attrs) {
  Json::Value reply = parsed(publication.text(1));
  reply["attrs"] = parsed(attrs);
  fromCloud(bridge, "/sys/key/device/scheduler/sysReply", jobm::json::compact(reply));
}

TEST_F(Process, registers_over_every_fault_of_the_bridge_and_works_until_the_watchdog_calls) {
  FakePeer watchdog("iot.gateway.watchdog");
  configure("gw_system_productkey", "key");
  Service service;
  ASSERT_TRUE(service.awaits(kServing));
  EXPECT_FALSE(eventually([&] { return service.has("registerRunner begin"); }, 1.5));
  configure("gw_system_devicename", "device");
  ASSERT_TRUE(service.awaits("Error subscribe reply =-1\n")) << "without a bridge";
  auto bridge = std::make_unique<FakePeer>("iot.bridge.mqtt");
  bridge->answer("subscribe", std::monostate());
  ASSERT_TRUE(bridge->await("subscribe"));
  bridge.reset();
  ASSERT_TRUE(service.awaits("Error subscribe reply =-1\n", 2)) << "it died in the call";
  bridge = std::make_unique<FakePeer>("iot.bridge.mqtt");
  bridge->on("subscribe", [&](const Received&) {
    const std::size_t n = bridge->count("subscribe");
    return n == 1 ? "garbage" : n == 2 || n == 4 ? R"({"code":9})" : R"({"code":0})";
  });
  ASSERT_TRUE(bridge->await("publish"));
  EXPECT_EQ(bridge->count("subscribe"), 3U);
  const Received registering = bridge->received("publish").at(0);
  reply(*bridge, registering, R"([{"code":200,"data":55}])");
  ASSERT_TRUE(bridge->await("subscribe", 5)) << "for triggers, until it works";
  ASSERT_TRUE(bridge->await("publish", 2, 12)) << "a heartbeat";
  const auto fed = watchdog.await("feedDog");
  ASSERT_TRUE(fed);
  EXPECT_EQ(fed->arguments, (std::vector<Argument>{kService, kService, 19}));

  const std::size_t before = bridge->received().size();
  watchdog.emit("/iot/gateway/watchdog", "iot.gateway.watchdog", "Terminate", {});
  ASSERT_TRUE(service.awaits("receive WatchDog Terminate signal.\n"));
  std::make_unique<FakePeer>("iot.runtime.js").reset();
  fromCloud(*bridge, "/sys/key/device/edge/rule/trigger", "{}");
  reply(*bridge, registering, "[]");
  for (const char* event : {"jobstatus_event", "cloudConnectivityEvent", "Terminate"}) {
    bridge->emit("/iot/bridge/mqtt", "iot.bridge.mqtt", event, {R"({"result":"r"})"});
  }
  for (const char* method :
       {"syncJobStatus", "registerExecutor", "registerParser", "getSelfDescribing"}) {
    EXPECT_TRUE(busCall(kService, kPath, method, {registration("x", "iot.x", "[]")})) << method;
  }
  EXPECT_FALSE(eventually([&] { return bridge->received().size() > before; }, 0.3));
  const std::string output = service.output();
  // New connections still print their line, but the log is closed.
  EXPECT_EQ(output.find("Z ", output.find("receive WatchDog Terminate signal.\n")),
            std::string::npos)
      << output;
  service.signal(SIGTERM);
  EXPECT_EQ(service.end(5), 0);
}

bool isStored(const std::string& key) {
  char* raw = nullptr;
  get_config(nullptr, key.c_str(), &raw, 10000);
  const std::unique_ptr<char, decltype(&std::free)> value(raw, std::free);
  return value && !parsed(value.get()).isNull();
}

// Kills and starts; with short periods, if there is such a program.
class Restarts : public Process {
 protected:
  Restarts() {
    configure("gw_system_productkey", "key");
    configure("gw_system_devicename", "device");
    const std::string silent = registration("silent", "iot.test.silent", R"(["silent"])");
    configure("gw_jobm_parsers", R"({"silent":)" + silent + "}");
    parser.answer("deployConfig", std::monostate());
  }

  // Returns when it is registered and has sent what it has to, none of it before.
  void restart(const std::function<void()>& beforeItIsRegistered = [] {}) {
    const std::size_t subscribed = bridge.count("subscribe");
    service.reset();
    const std::size_t reported = published(kReports).size();
    service = std::make_unique<Service>(std::vector<std::string>{SHORT_PERIODS});
    const Received registering = next("registerRunner");
    EXPECT_EQ(published(kReports).size(), reported);
    beforeItIsRegistered();
    reply(bridge, registering, R"([{"code":200,"data":55}])");
    ASSERT_TRUE(bridge.await("subscribe", subscribed + 2));  // the second is for the triggers
    ASSERT_TRUE(busCall(kService, kPath, "getSelfDescribing", {}));
    ASSERT_TRUE(busCall("iot.bridge.mqtt", "/iot/bridge/mqtt", "any", {}));
  }

  // Has jobs accepted that bring these requests.
  void give(std::initializer_list<const char*> requests) {
    Json::Value answer = parsed(R"([{"code":10200,"data":[]}])");
    for (const char* request : requests) {
      Json::Value job = parsed(R"({"id":1,"ackCode":10201,"jobId":1,"executor":"ConfigManager"})");
      Json::Value content = parsed(R"({"type":"inline"})");
      content["content"] = request;
      job["ackContent"] = jobm::json::compact(content);
      answer[0]["data"].append(job);
    }
    const std::size_t accepted = published("syncStatusPassive").size() + requests.size();
    reply(bridge, next("heartbeat"), jobm::json::compact(answer));
    ASSERT_TRUE(eventually([&] { return published("syncStatusPassive").size() == accepted; }));
  }

  // What the bridge has got under topics that end so, and what it gets next.
  std::vector<Received> published(const char* topic) const {
    std::vector<Received> calls = bridge.received("publish");
    std::erase_if(calls, [&](const Received& call) { return !call.text().ends_with(topic); });
    return calls;
  }
  Received next(const char* topic) const {
    const std::size_t before = published(topic).size();
    EXPECT_TRUE(eventually([&] { return published(topic).size() > before; }, 20)) << topic;
    return published(topic).back();
  }

  // All reports, of which there have to be so many.
  std::vector<std::string> reports(std::size_t count) const {
    eventually([&] { return published(kReports).size() >= count; });
    std::vector<std::string> texts;
    for (const Received& report : published(kReports)) texts.push_back(report.text(1));
    EXPECT_EQ(texts.size(), count);
    texts.resize(count);
    return texts;
  }

  static constexpr const char* kReports = "/edge/deploy/post";
  FakePeer bridge{"iot.bridge.mqtt"};
  FakePeer parser{"iot.test.silent"};
  std::unique_ptr<Service> service;
};

TEST_F(Restarts, lose_and_repeat_no_report_of_what_was_accepted) {
  bridge.on("publish", [](const Received& call) -> Answer {
    const bool isReport = call.text().ends_with(kReports);
    if (isReport && call.text(1).find("done") == std::string::npos) return std::monostate();
    return "{}";
  });
  restart();
  give({R"({"deployId":"done","deployType":0,"resources":[]})",
        R"({"deployId":"reported","deployType":0,"resources":[
            {"operate":1,"snapshotId":"s","resourceId":"r","resourceType":"none"}]})"});
  ASSERT_TRUE(eventually([] { return !isStored("gw_jobm_deployment_0"); }));
  // The first of these is in the first slot, and later than what is in the second.
  give({R"({"deployId":"parsed","taskId":"task","deployType":0,"resources":[
            {"operate":0,"snapshotId":"s1","resourceId":"r1","resourceType":"silent"},
            {"operate":0,"snapshotId":"s2","resourceId":"r2","resourceType":"none"}]})",
        R"({"deployId":"waiting","deployType":0,"resources":[{"snapshotId":"s3"}]})",
        R"({"deployId":"reset","deployType":1})"});
  ASSERT_TRUE(parser.await("deployConfig"));
  ASSERT_TRUE(isStored("gw_jobm_deployment_0"));
  restart();
  const std::vector<std::string> first = reports(6);
  const char* expected[] = {
      R"({"deployId":"done","deployType":0,"isLastReply":true,"details":[]})",
      R"({"deployId":"reported","deployType":0,"isLastReply":true,"details":[]})",
      R"({"deployId":"reported","deployType":0,"isLastReply":true,"details":[]})",
      R"({"deployId":"parsed","taskId":"task","deployType":0,"isLastReply":true,"details":[
        {"snapshotId":"s1","code":101209,"success":false,"message":"interrupted by a restart"},
        {"snapshotId":"s2","code":101209,"success":false,"message":"interrupted by a restart"}]})",
      R"({"deployId":"waiting","deployType":0,"isLastReply":true,"details":[
        {"snapshotId":"s3","code":101209,"success":false,"message":"interrupted by a restart"}]})",
      R"({"deployId":"reset","deployType":1,"isLastReply":true,"details":[
        {"code":101209,"success":false,"detail":"interrupted by a restart"}]})"};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(parsed(first[i]), parsed(expected[i]));
  EXPECT_EQ(first[1], first[2]);
  bridge.on("publish", {});
  restart();
  const std::vector<std::string> second = reports(10);
  EXPECT_TRUE(std::equal(first.begin() + 2, first.end(), second.begin() + 6));
  for (const char slot : std::string("0123")) {
    EXPECT_TRUE(eventually([&] { return !isStored(std::string("gw_jobm_deployment_") + slot); }));
  }
  restart();
  reports(10);
}

void swapStores() {
  EXPECT_EQ(renameat2(AT_FDCWD, "/tarnvale/config", AT_FDCWD, "/tarnvale/away", RENAME_EXCHANGE),
            0);
}

TEST_F(Restarts, read_what_is_stored_as_soon_as_it_can_be_read) {
  fs::create_directories("/tarnvale/away/gateway.db");
  std::jthread mending;
  const auto hideUntil = [&](const char* noticed) {
    swapStores();
    mending = std::jthread([noticed] {
      EXPECT_TRUE(Service::awaits(kServing) && Service::awaits(noticed)) << noticed;
      EXPECT_TRUE(busCall(kService, kPath, "getSelfDescribing", {})) << "it serves meanwhile";
      swapStores();
    });
  };
  hideUntil("initAllExecutors payload = \n");
  restart();
  give({R"({"deployId":"kept","deployType":0,"resources":[
            {"operate":0,"snapshotId":"s","resourceId":"r","resourceType":"silent"}]})"});
  ASSERT_TRUE(parser.await("deployConfig")) << "nobody is registered";
  restart([&] { hideUntil("the accepted deployments could not be read, trying again.\n"); });
  reports(1);
}

}  // namespace
