// What waiting costs, with the built-in executors alone and with more. The floors are bare servers
// with as many bare proxies. All are measured in the same window: they don't disturb each other.
#include <chrono>
#include <list>
#include <string>
#include <thread>
#include <utility>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

constexpr std::size_t kBuiltIn = 3;
constexpr std::size_t kOwnProxies = 5;  // those that the service has for itself

using Sides = std::list<std::pair<std::string, pid_t>>;

void report(const std::string& side, std::size_t executors, const Usage& before, const Usage& after,
            double seconds) {
  const std::string prefix = std::to_string(executors) + " executors: ";
  sample("idle", prefix + "CPU %", side, (after.cpu - before.cpu) / seconds * 100);
  sample("idle", prefix + "switches/s", side, (after.switches - before.switches) / seconds);
  sample("idle", prefix + "resident MiB", side, after.resident / 1024);
  sample("idle", prefix + "anonymous MiB", side, after.anonymous / 1024);
}

void measure(const Sides& sides, std::size_t executors, double seconds) {
  std::list<Usage> before;
  const double begin = now();
  for (const auto& side : sides) before.push_back(usageOf(side.second));
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));  // the window itself
  const double elapsed = now() - begin;
  auto earlier = before.begin();
  for (const auto& [side, process] : sides) {
    report(side, executors, *earlier++, usageOf(process), elapsed);
  }
}

// The proxies show in the number of threads: each has one.
void awaitProxies(const Child& floor, std::size_t proxies) {
  await("no proxies", [&] { return usageOf(floor.id()).threads >= static_cast<double>(proxies); });
}

void idle(std::size_t executors, const Options& options) {
  Gateway gateway;
  Service service(gateway, "/dev/null", Service::kBuiltInsOnly);
  gateway.answerHeartbeats();
  for (std::size_t i = kBuiltIn; i < executors; ++i) {
    const std::string name = "idle" + std::to_string(i);
    service.call("registerExecutor", registration(name, {name}));
  }
  Sides sides{{"service", service.child().id()}};
  std::list<Child> floors;
  for (const std::string shape : kShapes) {
    const std::string name = "bench.floor." + shape;
    floors.emplace_back(std::vector<std::string>{beside("bench-floor"), "server", shape, name, "0",
                                                 std::to_string(kOwnProxies + executors)});
    awaitName(service.bus(), name);
    awaitProxies(floors.back(), kOwnProxies + executors);
    sides.emplace_back(shape, floors.back().id());
  }
  service.awaitHandled();
  for (int run = 0; run < options.runs; ++run) {
    measure(sides, executors, options.isShort ? 1 : 60);
  }
}

}  // namespace

void idle3(const Options& options) { idle(kBuiltIn, options); }
void idle20(const Options& options) { idle(20, options); }
void idle100(const Options& options) { idle(100, options); }

}  // namespace bench
