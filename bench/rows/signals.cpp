// Signals of the bridge: replies to requests that nobody knows, and triggers.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

constexpr const char* kLog = "/tarnvale/service.log";

// The rule engine's side of a trigger: counts what the service passes on.
class Engine {
 public:
  Engine() {
    Connection connection = connectBus();
    for (const char* rule : {"type='signal',member='IFTTTEngine_Event_Invoke'",
                             "type='signal',interface='bench.relay'"}) {
      dbus_bus_add_match(connection.get(), rule, nullptr);
    }
    dbus_connection_flush(connection.get());
    reader = std::make_unique<BusReader>(std::move(connection), [this](DBusMessage* message) {
      if (dbus_message_is_signal(message, kService, "IFTTTEngine_Event_Invoke")) ++received;
    });
  }

  std::size_t count() const { return received; }

 private:
  std::atomic<std::size_t> received = 0;
  std::unique_ptr<BusReader> reader;
};

struct Kind {
  const char* name;
  std::string topic;
  std::string payload;
};

// Signals a second, until everything was handled: the daemon keeps the order, so a call that was
// sent behind them is answered behind them.
double rate(DBusConnection* connection, const char* from, const Kind& kind, std::size_t count,
            const std::string& to, const char* member) {
  const Message signal = makeSignal(from, "subscribe_event", {kind.topic, kind.payload});
  const double begin = now();
  for (std::size_t i = 0; i < count; ++i) {
    const Message copy(dbus_message_copy(signal.get()));
    dbus_connection_send(connection, copy.get(), nullptr);
  }
  callBlocking(connection, makeCall(to, member, {}).get());
  return static_cast<double>(count) / (now() - begin);
}

std::size_t countOf(DBusConnection* connection, const std::string& floor) {
  const Message counted = callBlocking(connection, makeCall(floor, "count", {}).get());
  return std::stoul(textsOf(counted.get()).at(0));
}

void measureFloor(DBusConnection* connection, const Kind& kind, std::size_t count,
                  const std::string& floor, const std::string& side) {
  const std::size_t before = countOf(connection, floor);
  const std::string bridge = floor + ".bridge";
  const double result = rate(connection, bridge.c_str(), kind, count, floor, "count");
  sample("signals", std::string(kind.name) + ": signals/s", side, result);
  require(countOf(connection, floor) - before == count, "the floor lost signals");
}

std::size_t unknownIdsInLog() {
  std::ifstream log(kLog);
  std::size_t count = 0;
  for (std::string line; std::getline(log, line);) {
    count += line.find("no exist") != std::string::npos ? 1 : 0;
  }
  return count;
}

void measureService(Service& service, const Kind& kind, std::size_t count, const Engine& engine) {
  std::filesystem::resize_file(kLog, 0);
  const std::size_t passedOn = engine.count();
  const std::string name = kind.name;
  const auto memory = [&] { return usageOf(service.child().id()).anonymous; };
  const double before = memory();
  const double result = rate(service.bus(), kBridge, kind, count, kService, "getSelfDescribing");
  sample("signals", name + ": signals/s", "service", result);
  if (name == "unknown ids") {
    sample("signals", name + ": lost", "service",
           static_cast<double>(count) - static_cast<double>(unknownIdsInLog()));
  } else {
    await(
        "triggers were lost", [&] { return engine.count() - passedOn >= count; }, 60);
    sample("signals", name + ": lost", "service",
           static_cast<double>(count) - static_cast<double>(engine.count() - passedOn));
  }
  // What it has just used is given back when it goes to sleep.
  double kept = memory() - before;
  for (int i = 0; i < 20 && kept > 1024; ++i, kept = memory() - before) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  sample("signals", name + ": memory kept KiB", "service", kept);
}

std::string nameOf(const std::string& what, const std::string& shape) {
  return "bench.floor." + what + "." + shape;
}

std::vector<std::string> floorCommand(const std::string& what, const std::string& shape,
                                      const std::string& number) {
  return {beside("bench-floor"), what, shape, nameOf(what, shape), "0", number};
}

}  // namespace

void signals(const Options& options) {
  Gateway gateway;
  const Engine engine;
  std::list<Child> floors;
  for (const char* shape : kShapes) {
    floors.emplace_back(floorCommand("server", shape, "0"));
    // Passes on as much as the service does for a trigger.
    floors.emplace_back(floorCommand("relay", shape, "1100"));
  }
  const std::string padding(960, 'x');
  const Kind kinds[] = {
      {"unknown ids", replyTopic(),
       R"({"id":1,"reply":true,"attrs":[{"code":200,"data":")" + padding + R"(","message":""}]})"},
      {"triggers", "/sys/bench/gateway/edge/rule/trigger", R"({"value":")" + padding + "\"}"}};
  const std::size_t count = options.scaled(100000);
  for (int run = 0; run < options.runs; ++run) {
    // A new one for each run: its log leaves out what one place writes beyond 200,000 records.
    Service service(gateway, kLog);
    for (const char* shape : kShapes) {
      awaitName(service.bus(), nameOf("server", shape));
      awaitName(service.bus(), nameOf("relay", shape));
    }
    for (const Kind& kind : kinds) {
      measureService(service, kind, count, engine);
      for (const std::string shape : kShapes) {
        measureFloor(service.bus(), kind, count, nameOf("server", shape), shape);
        if (&kind == &kinds[0]) continue;
        measureFloor(service.bus(), kind, count, nameOf("relay", shape), shape + ", passing on");
      }
    }
  }
}

}  // namespace bench
