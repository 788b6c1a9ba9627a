#include "scheduler_side.h"

namespace {

using namespace jobm;
using Arguments = std::vector<test::Argument>;
using Calls = test::SchedulerSide;

TEST_F(Calls, ReadTheBridgesCodeOutOfWhateverItAnswers) {
  struct Case {
    test::Answer answer;
    int code;
  };
  const Case cases[] = {
      {R"({"code":0})", 0},         {R"(/* quite */ {"code":7,"message":"no"})", 7},
      {R"({"code":"seven"})", -1},  {"ok", -1},
      {std::string(5000, '['), -1}, {test::Error{"iot.test.Refused", R"({"code":0)"}, -1},
  };
  for (const Case& c : cases) {
    bridge.answer("publish", c.answer);
    EXPECT_EQ(publish("t", "p", 1), c.code) << &c - cases;
  }
  const test::CapturedLog log;
  bridge.answer("unsubscribe", "ok");
  EXPECT_EQ(unSubscribe("t", "iot.some.name"), -1);
  EXPECT_TRUE(log.has("publish parse failed res = ok\n"));
  EXPECT_EQ(bridge.received("unsubscribe")[0].arguments, (Arguments{"t", "iot.some.name"}));
}

TEST_F(Calls, LogAnOutcomeThatNobodyWaitsForOnlyWhenItIsAFailure) {
  bridge.on("publish",
            [](const test::Received& call) { return R"({"code":)" + call.text(1) + "}"; });
  const test::CapturedLog log;
  for (const char* code : {"0", "5"}) publishAsync("t", code, 1);
  EXPECT_TRUE(test::eventually([&] { return log.has("publishAsync get reply : 5\n"); }));
  EXPECT_FALSE(log.has("publishAsync get reply : 0"));
}

TEST_F(Calls, EmitSignalsThatNameThisService) {
  test::FakePeer engine("", {"type='signal',path='/iot/job/manager'"});
  sendGroupConfigToDBus(-1, 2, 1LL << 40, "Exec", "/a/path");
  // The parents as they are given and as they are sent.
  const std::pair<const char*, const char*> cases[] = {
      {R"({"parentGroupIds":[4,5]})", "[4,5]"}, {"[4,5]", R"("[4,5]")"}, {"{}", "null"}};
  std::size_t n = 0;
  for (const auto& [given, sent] : cases) {
    sendSignalToDBus(11, 12, 13, "Exec", "/p", "kind", 14, given, "scene");
    const auto signal = engine.await("Exec_Event", ++n);
    ASSERT_TRUE(signal);
    Json::Value body = test::parsed(signal->text());
    EXPECT_EQ(body["parentGroupIds"], test::parsed(sent)) << given;
    body.removeMember("parentGroupIds");
    EXPECT_EQ(body, test::parsed(R"({"ackId":11,"ackCode":12,"jobId":13,"executor":"Exec",
                                     "path":"/p","type":"kind","groupId":14,"sceneId":"scene"})"));
  }
  const test::Received config = engine.received("NodeEngine_Config_Event").at(0);
  EXPECT_EQ(config.interface, "iot.job.manager");
  EXPECT_EQ(test::parsed(config.text()),
            test::parsed(R"({"ackId":-1,"ackCode":2,"jobId":1099511627776,"executor":"Exec",
                             "groupPath":"/a/path"})"));
}

TEST_F(Calls, ReachTheLogService) {
  test::FakePeer logService("", {"type='signal',path='/iot/gateway/log_system'"});
  sendSignalToLog(3, "tag", "file", "func", "line", "message");
  const auto logged = logService.await("logPrint");
  ASSERT_TRUE(logged);
  EXPECT_EQ(logged->interface, "iot.gateway.log_system");
  EXPECT_EQ(logged->arguments,
            (Arguments{std::int32_t{3}, "tag", "file", "func", "line", "message"}));
}

}  // namespace
