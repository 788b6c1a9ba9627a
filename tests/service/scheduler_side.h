/// What surrounds the scheduler's side in its tests: the loop's thread, the MQTT bridge, and a
/// gateway with the topic prefix "/sys/key/device" that is not registered yet.
#pragma once

#include <CapturedLog.h>
#include <FakePeer.h>
#include <LoopThread.h>
#include <dbus_process_call.h>
#include <gtest/gtest.h>
#include <json/writer.h>  // how a failed comparison shows a value
#include <parsed.h>

#include <string>
#include <vector>

#include "runner_api/identity.h"
#include "runner_api/routing.h"

namespace test {

class SchedulerSide : public testing::Test {
 protected:
  struct Published {
    std::string suffix;  // of the topic
    Json::Value payload;
  };

  SchedulerSide() {
    jobm::setDeviceInfo("key", "device");
    jobm::setRunId(0);
  }

  /// What is under way must not reach the next test's bridge.
  ~SchedulerSide() override { callsUpToNow(); }

  /// Everything that was published since the last call, in order.
  std::vector<Published> published() {
    const std::vector<Received> calls = callsUpToNow();
    std::vector<Published> news;
    for (; taken + 1 < calls.size(); ++taken) {
      const std::string prefix = "/sys/key/device";
      const std::string topic = calls[taken].text();
      EXPECT_TRUE(topic.starts_with(prefix)) << topic;
      EXPECT_EQ(calls[taken].arguments.at(2), Argument(std::int32_t{1})) << topic;
      news.push_back({topic.substr(prefix.size()), parsed(calls[taken].text(1))});
    }
    taken = calls.size();
    return news;
  }

  FakePeer bridge{"iot.bridge.mqtt"};
  LoopThread loop;

 private:
  // A mark goes out behind everything else and is waited for; it is the last of the calls.
  std::vector<Received> callsUpToNow() {
    const std::string mark = "mark " + std::to_string(++marks);
    jobm::publishAsync(mark, "", 0);
    std::vector<Received> calls;
    EXPECT_TRUE(eventually([&] {
      calls = bridge.received("publish");
      return !calls.empty() && calls.back().text() == mark;
    }));
    return calls;
  }

  std::size_t taken = 0;
  int marks = 0;
};

}  // namespace test
