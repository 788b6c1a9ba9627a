// What waiting costs, with the built-in executors alone and with more. The floor is a bare server
// with as many bare proxies.
#include <signal.h>

#include <chrono>
#include <string>
#include <thread>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

constexpr const char* kFloor = "bench.floor.idle";
constexpr std::size_t kOwnProxies = 5;  // those that the service has for itself

// The proxies show in the number of threads: each has one, the main and the server's aside.
void measure(const char* side, std::size_t executors, const Child& child, double seconds) {
  const Usage before = usageOf(child.id());
  const double begin = now();
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));  // the window itself
  const Usage after = usageOf(child.id());
  const double elapsed = now() - begin;
  const std::string prefix = std::to_string(executors) + " executors: ";
  sample("idle", prefix + "CPU %", side, (after.cpu - before.cpu) / elapsed * 100);
  sample("idle", prefix + "switches/s", side, (after.switches - before.switches) / elapsed);
  sample("idle", prefix + "resident MiB", side, after.resident / 1024);
  sample("idle", prefix + "anonymous MiB", side, after.anonymous / 1024);
}

void measureFloor(DBusConnection* connection, std::size_t executors, double seconds) {
  const Child floor(
      {beside("bench-floor"), "server", kFloor, "0", std::to_string(kOwnProxies + executors)});
  awaitName(connection, kFloor);
  await("no proxies", [&] {
    return usageOf(floor.id()).threads >= static_cast<double>(kOwnProxies + executors);
  });
  measure("floor", executors, floor, seconds);
}

}  // namespace

void idle(const Options& options) {
  constexpr std::size_t kBuiltIn = 3;
  const double seconds = options.isShort ? 1 : 30;
  Gateway gateway;
  Service service(gateway, "/dev/null", Service::kBuiltInsOnly);
  std::size_t executors = kBuiltIn;
  for (const std::size_t wanted : {kBuiltIn, std::size_t{20}, std::size_t{100}}) {
    for (; executors < wanted; ++executors) {
      const std::string name = "idle" + std::to_string(executors);
      service.call("registerExecutor", registration(name, {name}));
    }
    for (int run = 0; run < options.runs; ++run) {
      measure("service", wanted, service.child(), seconds);
      // The two don't disturb each other.
      service.child().signal(SIGSTOP);
      measureFloor(service.bus(), wanted, seconds);
      service.child().signal(SIGCONT);
      service.awaitHandled();
    }
  }
}

}  // namespace bench
