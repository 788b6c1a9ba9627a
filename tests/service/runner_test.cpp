#include "runner_api/runner.h"

#include <algorithm>

#include "engine_api/group_config.h"
#include "scheduler_side.h"

namespace {

using namespace jobm;
using Runner = test::SchedulerSide;

TEST_F(Runner, SubscribesItsRepliesAndThenAsksToBeRegistered) {
  const std::size_t before = outstandingRequests();
  registerRunner(4, 1000000000, "[ConfigManager]", "1.1");
  const auto requests = published();
  ASSERT_EQ(requests.size(), 1U);
  const auto calls = bridge.received();
  const auto firstOf = [&](const char* member) {
    return std::find_if(calls.begin(), calls.end(), [&](auto& c) { return c.member == member; });
  };
  const auto subscription = firstOf("subscribe");
  ASSERT_LT(subscription, firstOf("publish"));
  EXPECT_EQ(subscription->text(0), "/sys/key/device/scheduler/sysReply");
  EXPECT_EQ(subscription->text(1), "iot.job.manager");
  EXPECT_EQ(std::get<std::int32_t>(subscription->arguments.at(2)), 1);
  EXPECT_EQ(requests[0].suffix, "/scheduler/publish/registerRunner");
  Json::Value expected = test::parsed(R"({"reply":false,"attrs":[{
      "type":0,"cpu":4,"memory":1000000000,"tenant":"TV_RN","runnerGroup":"tarnvale.runner.group",
      "address":"key_device","addressType":1,"heartRate":10000,"linkType":0,
      "executor":"[ConfigManager]","sdkVersion":"1.1"}]})");
  expected["attrs"][0]["tags"][0] = "{\n   \"version\" : \"" + getVersion() + "\"\n}\n";
  const Json::Value id = requests[0].payload["id"];
  expected["id"] = id;
  EXPECT_EQ(requests[0].payload, expected);

  EXPECT_EQ(outstandingRequests(), before + 1);
  const std::string reply = R"({"attrs":[{"code":200,"data":338}],"id":)" + id.asString() + "}";
  loop.run([&] { dispatchMasterResponse("/any", reply); });
  EXPECT_EQ(getRunId(), 338);
  EXPECT_EQ(outstandingRequests(), before);
}

TEST_F(Runner, IsRegisteredByTheIntegerCode200Only) {
  const std::pair<const char*, bool> cases[] = {
      {R"({"attrs":[{"code":200,"data":"x"}]})", false},
      {R"({"attrs":[{"code":200.0,"data":338}]})", false},
      {R"({"attrs":200})", false},
      {R"({"attrs":[{"code":200,"data":5000000000}]})", true},
      {R"({"attrs":[{"code":500,"data":1}]})", false},
  };
  std::int64_t granted = 0;
  for (const auto& [reply, grants] : cases) {
    EXPECT_EQ(registerRunnerResp(test::parsed(reply)), grants) << reply;
    if (grants) granted = 5000000000;
    EXPECT_EQ(getRunId(), granted) << reply;
  }
}

TEST_F(Runner, BeatsOnlyOnceItHasAnId) {
  handleHeartbeat();
  EXPECT_TRUE(published().empty());
  setRunId(338);
  handleHeartbeat();
  const auto beats = published();
  ASSERT_EQ(beats.size(), 1U);
  EXPECT_EQ(beats[0].suffix, "/scheduler/publish/heartbeat");
  EXPECT_EQ(beats[0].payload["attrs"],
            test::parsed(R"([338,{"cpuUsage":1.0,"memUsage":1.0,"diskUsage":1.0}])"));
  EXPECT_FALSE(beats[0].payload["reply"].asBool());
}

}  // namespace
