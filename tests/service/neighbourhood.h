/// What surrounds the executors' side in its tests, shared by the tests of one program: the loop's
/// thread, the MQTT bridge, and a gateway that is runner 77 under the topic prefix
/// "/sys/key/device".
#pragma once

#include <FakePeer.h>
#include <LoopThread.h>
#include <json/value.h>

#include <chrono>
#include <future>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace test {

inline constexpr const char* kDeployPost = "/sys/key/device/edge/deploy/post";

FakePeer& bridge();
LoopThread& loopThread();

/// Runs `task` on the listening thread, while the bridge is there.
template <typename Task>
auto onLoop(Task task) {
  return loopThread().run(std::move(task));
}

/// Lets the answer of a peer wait for the test. Gives up after a while, so that a failed test ends.
class Gate {
 public:
  void open() { promise.set_value(); }
  void wait() const { opened.wait_for(std::chrono::seconds(60)); }

 private:
  std::promise<void> promise;
  std::shared_future<void> opened = promise.get_future().share();
};

/// `text` as JSON, null for anything else.
Json::Value parsed(const std::string& text);

/// What was published on `topic` so far, oldest first.
std::vector<Json::Value> published(const std::string& topic);

/// The results of the deployment `deployId` so far; the `n`-th, null when it doesn't come in time.
std::vector<Json::Value> resultsOf(const std::string& deployId);
Json::Value awaitResult(const std::string& deployId, std::size_t n = 1, double seconds = 10);

/// The payload that registers `executorName` at the bus name `name`, from which interface and path
/// follow. The types are JSON texts.
std::string registration(const std::string& executorName, const std::string& name,
                         const std::string& watchType, const std::string& storeType = "[]");

/// Registers live, as the bus service would; the test fails when the registration is refused.
void addExecutor(const std::string& payload);
void addParser(const std::string& payload);

}  // namespace test

namespace Json {
/// How a failed comparison shows a value.
void PrintTo(const Value& value, std::ostream* stream);
}  // namespace Json
