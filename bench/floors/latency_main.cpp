// bench-latency service|floor CALLS: prints the median and the 99th percentile, in seconds, of the
// time from sending a call to its callback. Both sides run beside a bare server on the same loop.
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>

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
void measure(std::size_t calls, const Send& send) {
  Gate gate;
  std::vector<double> latencies;
  // Calls come at any phase of the timers and waits, not right after the tick before.
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pause(0, 9999);
  for (std::size_t i = 0; i < calls; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
    const double begin = now();
    send(gate);
    latencies.push_back(gate.awaitOpen() - begin);
  }
  std::printf("%.9f %.9f\n", percentile(latencies, 50), percentile(latencies, 99));
}

void measureService(std::size_t calls) {
  quillon::DProxy proxy(kPeer, kPeerPath, kPeer);
  measure(calls, [&](Gate& gate) {
    const auto call = proxy.makeMethodCall("echo");
    call->writeString("hello");
    proxy.sendMessageWithReply(
        call, [&gate](const std::shared_ptr<quillon::DMessage>&, void*) { gate.open(); }, nullptr);
  });
}

void measureFloor(std::size_t calls, BareProxy& proxy) {
  measure(calls, [&](Gate& gate) {
    const Message call = makeCall(kPeer, "echo", {"hello"});
    proxy.send(call.get(), [&gate](DBusMessage*) { gate.open(); });
  });
}

}  // namespace
}  // namespace bench

int main(int count, char** arguments) {
  if (count != 3) return EXIT_FAILURE;
  const bool isFloor = std::string(arguments[1]) == "floor";
  const std::size_t calls = std::stoul(arguments[2]);
  const bench::BareServer server("bench.latency", 0);
  std::unique_ptr<bench::BareProxy> bare;
  // Its timers are started before the loop runs; the service's proxy hands them to it by itself.
  if (isFloor) bare = std::make_unique<bench::BareProxy>();
  std::thread([] { quillon::runDefaultLoop(); }).detach();
  isFloor ? bench::measureFloor(calls, *bare) : bench::measureService(calls);
  std::fflush(stdout);
  std::_Exit(EXIT_SUCCESS);  // the loop goes on until the end
}
