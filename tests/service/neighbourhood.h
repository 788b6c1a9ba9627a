/// What surrounds the service's modules in their tests, shared by the tests of one program: the
/// loop's thread, the MQTT bridge, and a gateway that is runner 77 under the topic prefix
/// "/sys/key/device".
#pragma once

#include "dbus_process_call/dbus_process_call.h"
#include "scheduler_link/identity.h"
#include "support/LoopThread.h"
#include "support/test.h"

namespace test {

FakePeer& bridge();
LoopThread& loopThread();

/// Runs `task` on the listening thread, while the bridge is there.
template <typename Task>
auto onLoop(Task task) {
  return loopThread().run(std::move(task));
}

struct Publication {
  std::string suffix;  // of the topic
  Json::Value payload;
};

/// Everything that was published since the last call, in order.
std::vector<Publication> news();

/// What was published under `suffix` so far, oldest first.
std::vector<Json::Value> published(const std::string& suffix);

/// Registers live, as the bus service would; the test fails when the registration is refused.
void addExecutor(const std::string& payload);
void addParser(const std::string& payload);

}  // namespace test
