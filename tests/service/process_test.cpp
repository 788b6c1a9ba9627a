// The service as a process of its own, beside a bus daemon of the test's own that may be ended.

#include <FakePeer.h>
#include <fcntl.h>
#include <file_text.h>
#include <gateway/config.h>
#include <gtest/gtest.h>
#include <json_helper.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace test;

namespace {

namespace fs = std::filesystem;

constexpr const char* kBusFolder = "/tmp/var/run/mbusd";
constexpr const char* kService = "iot.job.manager";
constexpr const char* kPath = "/iot/job/manager";
constexpr const char* kServing = "startListen server started...\n";

// A program that is gone when this is. What it writes goes to a file.
class Child {
 public:
  Child(std::vector<std::string> command, std::string output) : file(std::move(output)) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    fs::remove(file);  // a file of the child before this one would be read as this one's
    pid = fork();
    if (pid != 0) return;
    dup2(open(file.c_str(), O_CREAT | O_WRONLY, 0600), STDERR_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  ~Child() {
    if (!status) send(SIGKILL);
    end(10);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void send(int signal) const { kill(pid, signal); }

  // The exit status, or minus the signal that ended it; nothing while it runs.
  std::optional<int> end(double seconds) {
    eventually(
        [this] {
          int raw = 0;
          if (!status && waitpid(pid, &raw, WNOHANG) == pid) {
            status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
          }
          return status.has_value();
        },
        seconds);
    return status;
  }

  std::string output() const {
    std::string text;
    jobm::readFile(file, text);
    return text;
  }
  bool has(const std::string& part, std::size_t times = 1) const {
    const std::string all = output();
    std::size_t at = all.find(part);
    while (--times > 0 && at != std::string::npos) at = all.find(part, at + 1);
    return at != std::string::npos;
  }
  bool awaits(const std::string& part, std::size_t times = 1) const {
    return eventually([&] { return has(part, times); });
  }

 private:
  const std::string file;
  pid_t pid = 0;
  std::optional<int> status;
};

class Service : public Child {
 public:
  Service() : Child({TASK_DISPATCHER}, "/tmp/var/service.log") {}
};

class Daemon : public Child {
 public:
  Daemon()
      : Child({"dbus-daemon", std::string("--config-file=") + BUS_CONFIG, "--nofork", "--nopidfile",
               "--nosyslog"},
              "/tmp/var/daemon.log") {
    const std::string address = std::string("unix:path=") + kBusFolder + "/mbusd_socket";
    EXPECT_TRUE(eventually([&] {
      DBusConnection* connection = dbus_connection_open_private(address.c_str(), nullptr);
      if (connection == nullptr) return false;
      dbus_connection_close(connection);
      dbus_connection_unref(connection);
      return true;
    }));
  }
};

class Process : public testing::Test {
 protected:
  Process() {
    fs::remove_all("/tarnvale/config");
    fs::remove_all(kBusFolder);
    fs::create_directories(std::string(kBusFolder) + "/services");
    daemon = std::make_unique<Daemon>();
  }

  std::unique_ptr<Daemon> daemon;
};

void configure(const char* key, const char* value) {
  ASSERT_EQ(set_config(nullptr, key, value, 10000), 0);
}

TEST_F(Process, ends_with_status_0_on_every_trapped_signal) {
#ifdef __SANITIZE_THREAD__
  // The handlers of the others are run at once, be it inside the sanitizer's own locks.
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
    service.send(signal);
    EXPECT_EQ(service.end(5), 0);
    EXPECT_TRUE(service.has("Recv signal = " + std::to_string(signal) + ". Terminating...\n"));
    EXPECT_EQ(service.has("Received segmentation fault.\n"), signal == SIGSEGV);
    EXPECT_EQ(service.has(":   [00] "), signal != SIGTERM);
  }
}

TEST_F(Process, ends_with_status_1_and_says_so_when_the_daemon_goes) {
  for (int round = 0; round < 8; ++round) {
    Service service;
    ASSERT_TRUE(service.awaits(kServing));
    ASSERT_TRUE(busCall(kService, kPath, "getSelfDescribing", {}));
    daemon.reset();
    EXPECT_EQ(service.end(5), 1);
    EXPECT_TRUE(service.has("DServer connection to dbus-daemon disconnected, quit DServer.\n"));
    fs::remove(std::string(kBusFolder) + "/mbusd_socket");
    daemon = std::make_unique<Daemon>();
  }
}

TEST_F(Process, goes_on_without_a_bus_service_when_there_is_no_daemon) {
  daemon.reset();
  Service service;
  ASSERT_TRUE(service.awaits("prepare dbus server for iot.job.manager failed.\n"));
  EXPECT_EQ(service.end(0.3), std::nullopt);
  service.send(SIGTERM);
  EXPECT_EQ(service.end(5), 0);
}

Json::Value published(const FakePeer& bridge, std::size_t n) {
  Json::Value payload;
  EXPECT_TRUE(jobm::json::parse(bridge.received("publish").at(n).text(1), payload));
  return payload;
}

void fromCloud(FakePeer& bridge, const std::string& topic, const std::string& payload) {
  bridge.emit("/iot/bridge/mqtt", "iot.bridge.mqtt", "subscribe_event", {topic, payload}, kService);
}

// Sends what the cloud says to the `n`-th publication.
void reply(FakePeer& bridge, std::size_t n, int code, const Json::Value& data) {
  Json::Value reply = published(bridge, n);
  reply["attrs"] = Json::Value(Json::arrayValue);
  reply["attrs"][0]["code"] = code;
  reply["attrs"][0]["data"] = data;
  fromCloud(bridge, "/sys/key/device/scheduler/sysReply", jobm::json::compact(reply));
}

Json::Value jobOf(int id) {
  Json::Value job;
  job["id"] = id;
  job["ackCode"] = 10201;
  job["jobId"] = id;
  job["executor"] = "ConfigManager";
  job["ackContent"] = R"({"type":"inline","content":"{\"deployId\":\")" + std::to_string(id) +
                      R"(\",\"deployType\":0,\"resources\":[]}"})";
  return job;
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
  EXPECT_FALSE(service.has("registerRunner id = "));
  ASSERT_TRUE(bridge->await("publish"));
  EXPECT_EQ(bridge->count("subscribe"), 3U);
  reply(*bridge, 0, 200, 55);
  const auto triggers = bridge->await("subscribe", 5);
  ASSERT_TRUE(triggers);
  EXPECT_EQ(triggers->arguments,
            (std::vector<Argument>{"/sys/key/device/edge/rule/trigger", kService, 1}));

  ASSERT_TRUE(bridge->await("publish", 2, 12));
  EXPECT_EQ(bridge->received("publish")[1].text(), "/sys/key/device/scheduler/publish/heartbeat");
  Json::Value jobs;
  for (const int id : {7, 8}) jobs.append(jobOf(id));
  reply(*bridge, 1, 10200, jobs);
  ASSERT_TRUE(bridge->await("publish", 6));
  for (const std::size_t n : {2, 4}) {
    const Json::Value& job = jobs[n == 2 ? 0 : 1];
    EXPECT_EQ(published(*bridge, n)["attrs"][0], job["id"]);
    EXPECT_EQ(published(*bridge, n)["attrs"][1], 3);
    EXPECT_EQ(published(*bridge, n + 1)["deployId"], job["id"].asString());
  }
  const auto fed = watchdog.await("feedDog");
  ASSERT_TRUE(fed);
  EXPECT_EQ(fed->arguments, (std::vector<Argument>{kService, kService, 19}));

  const std::size_t before = bridge->received().size();
  watchdog.emit("/iot/gateway/watchdog", "iot.gateway.watchdog", "Terminate", {});
  ASSERT_TRUE(service.awaits("receive WatchDog Terminate signal.\n"));
  std::make_unique<FakePeer>("iot.runtime.js").reset();
  fromCloud(*bridge, "/sys/key/device/edge/rule/trigger", "{}");
  reply(*bridge, 1, 10200, jobs);
  for (const char* event : {"jobstatus_event", "cloudConnectivityEvent", "Terminate"}) {
    bridge->emit("/iot/bridge/mqtt", "iot.bridge.mqtt", event, {R"({"result":"r"})"});
  }
  const std::string registration = R"({"executorName":"x","executorAddr":{"name":"iot.test.x",)"
                                   R"("interface":"iot.test.x","path":"/x"},"watchType":["x"]})";
  for (const char* method :
       {"syncJobStatus", "registerExecutor", "registerParser", "getSelfDescribing"}) {
    EXPECT_TRUE(busCall(kService, kPath, method, {registration})) << method;
  }
  EXPECT_FALSE(eventually([&] { return bridge->received().size() > before; }, 0.3));
  const std::string output = service.output();
  // Connections are still announced, but not in the log.
  EXPECT_EQ(output.find("Z ", output.find("receive WatchDog Terminate signal.\n")),
            std::string::npos)
      << output;
  service.send(SIGTERM);
  EXPECT_EQ(service.end(5), 0);
}

}  // namespace
