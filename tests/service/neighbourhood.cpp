#include "neighbourhood.h"

#include <gtest/gtest.h>
#include <json_helper.h>

#include <algorithm>
#include <memory>

#include "executor_api/registry.h"
#include "runner_api/identity.h"

namespace test {
namespace {

// Lives as long as the tests run, not until the program's static objects go: other libraries'
// clean-up must not come before the end of the loop's thread.
struct Neighbourhood : testing::Environment {
  void SetUp() override {
    jobm::setDeviceInfo("key", "device");
    jobm::setRunId(77);
    bridge = std::make_unique<FakePeer>("iot.bridge.mqtt");
    loop = std::make_unique<LoopThread>();
  }
  void TearDown() override {
    loop.reset();
    bridge.reset();
  }
  std::unique_ptr<FakePeer> bridge;
  std::unique_ptr<LoopThread> loop;
};

// The test framework owns it.
auto& neighbourhood = static_cast<Neighbourhood&>(
    *testing::AddGlobalTestEnvironment(std::make_unique<Neighbourhood>().release()));

}  // namespace

FakePeer& bridge() { return *neighbourhood.bridge; }
LoopThread& loopThread() { return *neighbourhood.loop; }

Json::Value parsed(const std::string& text) {
  Json::Value value;
  return jobm::json::parse(text, value) ? value : Json::Value();
}

std::vector<Json::Value> published(const std::string& topic) {
  std::vector<Json::Value> payloads;
  for (const Received& call : bridge().received("publish")) {
    if (call.text(0) == topic) payloads.push_back(parsed(call.text(1)));
  }
  return payloads;
}

std::vector<Json::Value> resultsOf(const std::string& deployId) {
  std::vector<Json::Value> results = published(kDeployPost);
  std::erase_if(results, [&](const auto& result) { return result["deployId"] != deployId; });
  return results;
}

Json::Value awaitResult(const std::string& deployId, std::size_t n, double seconds) {
  const bool came = eventually([&] { return resultsOf(deployId).size() >= n; }, seconds);
  return came ? resultsOf(deployId)[n - 1] : Json::Value();
}

std::string registration(const std::string& executorName, const std::string& name,
                         const std::string& watchType, const std::string& storeType) {
  std::string path = "/" + name;
  std::replace(path.begin(), path.end(), '.', '/');
  return R"({"executorName":")" + executorName + R"(","linkType":1,"executorAddr":{"name":")" +
         name + R"(","interface":")" + name + R"(","path":")" + path + R"("},"storeType":)" +
         storeType + R"(,"watchType":)" + watchType + "}";
}

void addExecutor(const std::string& payload) {
  EXPECT_EQ(onLoop([&] { return jobm::registerExecutor(payload); }), "") << payload;
}

void addParser(const std::string& payload) {
  EXPECT_EQ(onLoop([&] { return jobm::registerParser(payload); }), "") << payload;
}

}  // namespace test

void Json::PrintTo(const Value& value, std::ostream* stream) { *stream << value.toStyledString(); }
