// The bridge as a process that the bus daemon starts, and a real broker; both are killed.
#include <algorithm>
#include <random>

#include "bridge/outbox.h"
#include "common/mqtt_client.h"
#include "neighbour/bus.h"
#include "neighbour/child.h"
#include "support/test.h"

using namespace test;

namespace {

constexpr const char* kBridge = "iot.bridge.mqtt";
constexpr const char* kTopic = "to/the/cloud";
constexpr const char* kFolder = "/tmp/var/bridge";

// On a port of its own, with what it knows on disk.
class Broker : public gateway::Child {
 public:
  explicit Broker(int port) : Child({"/usr/sbin/mosquitto", "-c", writeConfig(port)}) {
    gateway::MqttClient mqtt("", false, {});
    EXPECT_TRUE(gateway::eventually([&] { return mqtt.connect("127.0.0.1", port); }));
  }

 private:
  static std::string writeConfig(int port) {
    std::string file = std::string(kFolder) + "/mosquitto.conf";
    jobm::writeFile(file, "listener " + std::to_string(port) + " 127.0.0.1\n" + R"(
allow_anonymous true
user root
persistence true
persistence_location )" + kFolder +
                              R"(/
autosave_on_changes true
autosave_interval 1
max_queued_messages 0
)");
    return file;
  }
};

class Bridge : public testing::Test {
 protected:
  Bridge() {
    fs::create_directories(kFolder);
    jobm::writeFile(std::string("/tmp/var/run/mbusd/services/") + kBridge + ".service",
                    std::string("[D-BUS Service]\nName=") + kBridge + "\nExec=" + MQTT_BRIDGE +
                        " --port " + std::to_string(port) + " --state " + kFolder + "/state\n");
  }
  ~Bridge() override { killBridge(); }

  // Publishes the numbers up to `until` one after the other; each must be taken.
  void publishTo(int until) {
    for (; published < until; ++published) {
      const std::string number = std::to_string(published);
      const auto call = gateway::makeCall(kBridge, "publish", {kTopic, number});
      const std::int32_t qos = 1;
      dbus_message_append_args(call.get(), DBUS_TYPE_INT32, &qos, DBUS_TYPE_INVALID);
      const auto reply = gateway::callAndWait(bus.get(), call.get(), 10000);
      ASSERT_TRUE(reply);
      ASSERT_EQ(parsed(gateway::textsOf(reply.get()).at(0))["code"], 0) << number;
    }
  }

  // Comes back when the daemon has noticed; calls before that are lost.
  void killBridge() {
    const pid_t process = bridgeProcess();
    if (process == 0) return;
    kill(process, SIGKILL);
    EXPECT_TRUE(gateway::eventually([&] { return bridgeProcess() != process; }));
  }

  // 0 when there is none.
  pid_t bridgeProcess() {
    const auto call = gateway::makeCall(DBUS_SERVICE_DBUS, "GetConnectionUnixProcessID", {kBridge});
    const auto reply = gateway::callAndWait(bus.get(), call.get(), 10000);
    dbus_uint32_t process = 0;
    dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID);
    return static_cast<pid_t>(process);
  }

  // Waits for all that was published, as a subscriber whose session the broker keeps. Some may come
  // again.
  void collect() {
    bool subscribed = false;
    gateway::MqttClient mqtt("collector", true,
                             {.message =
                                  [&](const std::string&, const std::string& payload) {
                                    EXPECT_LE(std::stoi(payload), arrived)
                                        << "one before it is missing";
                                    arrived = std::max(arrived, std::stoi(payload) + 1);
                                  },
                              .subscribed = [&](bool) { subscribed = true; }});
    mqtt.connect("127.0.0.1", port);
    mqtt.subscribe(kTopic, 1);
    const auto isLate = [end = std::chrono::steady_clock::now() + std::chrono::seconds(20)] {
      return std::chrono::steady_clock::now() > end;
    };
    while ((!subscribed || arrived < published) && !isLate()) mqtt.pump(1000);
    EXPECT_EQ(arrived, published);
  }

  const int port = 20000 + static_cast<int>(std::random_device()() % 10000);
  const gateway::Connection bus = gateway::connectBus();
  int published = 0;
  int arrived = 0;
};

// The bridge finds on its way to the broker: messages that the broker never read, messages from
// when there was no broker, and others that come meanwhile.
TEST_F(Bridge, delivers_in_order_what_it_took_before_broker_and_bridge_were_killed) {
  for (const bool bridgeIsKilled : {false, true}) {
    auto broker = std::make_unique<Broker>(port);
    collect();
    publishTo(published + 100);
    collect();
    broker->signal(SIGSTOP);
    publishTo(published + 10);  // fewer than may be on their way
    broker.reset();
    publishTo(published + 50);
    if (bridgeIsKilled) killBridge();
    publishTo(published + 50);
    broker = std::make_unique<Broker>(port);
    publishTo(published + 50);
    collect();
  }
}

TEST(Outbox, keeps_the_oldest_when_it_is_full_also_for_the_next_bridge) {
  fs::create_directories(kFolder);
  const std::string payload(40, 'x');
  for (const bool isFirst : {true, false}) {
    gateway::Store store;
    gateway::Outbox outbox(100);
    ASSERT_TRUE(store.open(std::string(kFolder) + "/outbox"));
    outbox.restore(store);
    EXPECT_EQ(outbox.add("first", payload, 1).empty(), isFirst);
    EXPECT_EQ(outbox.add("second", payload, 0).empty(), isFirst);
    EXPECT_NE(outbox.add("third", payload, 1), "");
    if (isFirst) continue;
    const auto first = outbox.next(0);
    ASSERT_TRUE(first);
    outbox.remove(first->id);
    EXPECT_EQ(outbox.add("fourth", payload, 1), "") << "there is room again";
    const auto second = outbox.next(first->id);
    ASSERT_TRUE(second);
    EXPECT_EQ(first->topic + second->topic + std::to_string(second->qos), "firstsecond0");
  }
}

TEST(Store, sets_a_file_aside_that_is_no_database) {
  const std::string file = std::string(kFolder) + "/broken";
  fs::create_directories(kFolder);
  jobm::writeFile(file, std::string(5000, '{'));
  gateway::Store store;
  EXPECT_TRUE(store.open(file));
  EXPECT_TRUE(fs::exists(file + ".damaged"));
}

}  // namespace
