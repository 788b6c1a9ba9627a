// bench-latency service|polling|events CALLS PROXIES: prints the median and the 99th percentile, in
// seconds, of the time from sending a call to its callback. The service's proxy and the floors run
// beside a bare server on the same loop; the service's beside the one that leaves the loop alone.
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "bare.h"
#include "dbus_wrap/DProxy.h"
#include "dbus_wrap/LoopTasks.h"
#include "support/process.h"

namespace bench {
namespace {

constexpr const char* kPeer = "bench.echo";
constexpr const char* kPeerPath = "/bench/echo";

// Where the sending thread waits for the callback.
class Gate {
 public:
  void open() {
    const std::lock_guard guard(lock);
    time = now();
    isOpen = true;
    opened.notify_one();
  }
  double awaitOpen() {
    std::unique_lock guard(lock);
    opened.wait(guard, [this] { return isOpen; });
    isOpen = false;
    return time;
  }

 private:
  std::mutex lock;
  std::condition_variable opened;
  bool isOpen = false;
  double time = 0;
};

template <typename Send>
void measure(std::size_t calls, std::size_t proxies, const Send& send) {
  Gate gate;
  std::vector<double> latencies;
  // Calls come at any phase of timers and waits, not right after the tick before, and by any proxy.
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pause(0, 9999);
  std::uniform_int_distribution<std::size_t> which(0, proxies - 1);
  for (std::size_t i = 0; i < calls; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
    const std::size_t proxy = which(random);
    const double begin = now();
    send(proxy, gate);
    latencies.push_back(gate.awaitOpen() - begin);
  }
  std::printf("%.9f %.9f\n", percentile(latencies, 50), percentile(latencies, 99));
}

void measureService(std::size_t calls, std::size_t count) {
  std::vector<std::unique_ptr<quillon::DProxy>> proxies(count);
  for (auto& proxy : proxies) {
    proxy = std::make_unique<quillon::DProxy>(kPeer, kPeerPath, kPeer);
  }
  measure(calls, count, [&](std::size_t i, Gate& gate) {
    const auto call = proxies[i]->makeMethodCall("echo");
    call->writeString("hello");
    proxies[i]->sendMessageWithReply(
        call, [&gate](const std::shared_ptr<quillon::DMessage>&, void*) { gate.open(); }, nullptr);
  });
}

using BareProxies = std::vector<std::unique_ptr<BareProxy>>;

void measureFloor(std::size_t calls, BareProxies& proxies) {
  measure(calls, proxies.size(), [&](std::size_t i, Gate& gate) {
    const Message call = makeCall(kPeer, "echo", {"hello"});
    proxies[i]->send(call.get(), [&gate](DBusMessage*) { gate.open(); });
  });
}

}  // namespace
}  // namespace bench

int main(int count, char** arguments) {
  if (count != 4) return EXIT_FAILURE;
  const bool isFloor = std::string(arguments[1]) != "service";
  const bench::Shape shape = isFloor ? bench::shapeOf(arguments[1]) : bench::Shape::kEvents;
  const std::size_t calls = std::stoul(arguments[2]);
  const std::size_t proxies = std::stoul(arguments[3]);
  const auto server = bench::makeServer(shape, "bench.latency", 0);
  bench::BareProxies bare(isFloor ? proxies : 0);
  // Their handles belong to a loop that doesn't run yet; the service's proxies see to that
  // themselves.
  for (auto& proxy : bare) proxy = bench::makeProxy(shape);
  std::thread([] { quillon::runDefaultLoop(); }).detach();
  isFloor ? bench::measureFloor(calls, bare) : bench::measureService(calls, proxies);
  std::fflush(stdout);
  std::_Exit(EXIT_SUCCESS);  // the loop goes on until the end
}
