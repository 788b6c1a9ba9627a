#include "neighbourhood.h"

#include "executor_api/registry.h"

namespace test {
namespace {

const std::string kPrefix = "/sys/key/device";

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
  std::size_t told = 0;  // as news
  int marks = 0;
};

// The test framework owns it.
auto& neighbourhood = static_cast<Neighbourhood&>(
    *testing::AddGlobalTestEnvironment(std::make_unique<Neighbourhood>().release()));

}  // namespace

FakePeer& bridge() { return *neighbourhood.bridge; }
LoopThread& loopThread() { return *neighbourhood.loop; }

// A mark goes out behind everything else and is waited for; it is the last of the calls.
std::vector<Publication> news() {
  const std::string mark = "mark " + std::to_string(++neighbourhood.marks);
  jobm::publishAsync(mark, "", 0);
  std::vector<Received> calls;
  EXPECT_TRUE(eventually([&] {
    calls = bridge().received("publish");
    return !calls.empty() && calls.back().text() == mark;
  }));
  std::vector<Publication> all;
  for (std::size_t i = std::exchange(neighbourhood.told, calls.size()); i + 1 < calls.size(); ++i) {
    const std::string topic = calls[i].text();
    const bool isOurs = topic.starts_with(kPrefix);
    EXPECT_EQ(calls[i].arguments.at(2), Argument(std::int32_t{1})) << topic;
    all.push_back({isOurs ? topic.substr(kPrefix.size()) : topic, parsed(calls[i].text(1))});
  }
  return all;
}

std::vector<Json::Value> published(const std::string& suffix) {
  std::vector<Json::Value> payloads;
  for (const Received& call : bridge().received("publish")) {
    if (call.text(0) == kPrefix + suffix) payloads.push_back(parsed(call.text(1)));
  }
  return payloads;
}

void addExecutor(const std::string& payload) {
  EXPECT_EQ(onLoop([&] { return jobm::registerExecutor(payload); }), "") << payload;
}

void addParser(const std::string& payload) {
  EXPECT_EQ(onLoop([&] { return jobm::registerParser(payload); }), "") << payload;
}

}  // namespace test
