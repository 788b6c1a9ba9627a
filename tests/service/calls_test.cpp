#include <proxies.h>

#include "scheduler_side.h"

namespace {

using namespace jobm;
using Arguments = std::vector<test::Argument>;
using Calls = test::SchedulerSide;

TEST_F(Calls, GoToTheBridgeWithTheirArgumentsInOrder) {
  EXPECT_EQ(publish("a/b", "payload", 2), 0);
  publishAsync("c/d", "later", 1);
  EXPECT_EQ(subscribe("e/f", "iot.some.name", 1), 0);
  EXPECT_EQ(unSubscribe("g/h", "iot.some.name"), 0);
  ASSERT_TRUE(bridge.await("publish", 2));
  const auto publications = bridge.received("publish");
  EXPECT_EQ(publications[0].arguments, (Arguments{"a/b", "payload", std::int32_t{2}}));
  EXPECT_EQ(publications[1].arguments, (Arguments{"c/d", "later", std::int32_t{1}}));
  const auto subscription = bridge.await("subscribe");
  const auto cancellation = bridge.await("unsubscribe");
  ASSERT_TRUE(subscription && cancellation);
  EXPECT_EQ(subscription->arguments, (Arguments{"e/f", "iot.some.name", std::int32_t{1}}));
  EXPECT_EQ(cancellation->arguments, (Arguments{"g/h", "iot.some.name"}));
}

TEST_F(Calls, ReadTheBridgesCodeOutOfWhateverItAnswers) {
  struct Case {
    test::Answer answer;
    int code;
  };
  const Case cases[] = {
      {R"({"code":0})", 0},
      {R"(/* quite */ {"code":7,"message":"no"})", 7},
      {R"({"code":"seven"})", -1},
      {R"({})", 0},
      {R"([7])", -1},
      {"ok", -1},
      {"", -1},
      {std::string(5000, '['), -1},
      {test::Error{"iot.test.Refused", R"({"code":0)"}, -1},
  };
  for (const Case& c : cases) {
    bridge.answer("publish", c.answer);
    EXPECT_EQ(publish("t", "p", 1), c.code) << &c - cases;
  }
  const test::CapturedLog log;
  bridge.answer("unsubscribe", "ok");
  EXPECT_EQ(unSubscribe("t", "iot.some.name"), -1);
  EXPECT_TRUE(log.has("publish parse failed res = ok\n"));
}

TEST_F(Calls, LogAnOutcomeThatNobodyWaitsForOnlyWhenItIsAFailure) {
  bridge.on("publish",
            [](const test::Received& call) { return R"({"code":)" + call.text(1) + "}"; });
  const test::CapturedLog log;
  for (const char* code : {"0", "5", "0"}) publishAsync("t", code, 1);
  EXPECT_TRUE(test::eventually([&] { return log.has("publishAsync get reply : 5\n"); }));
  EXPECT_EQ(log.count("publishAsync get reply"), 1U);
}

TEST_F(Calls, EmitSignalsThatNameThisService) {
  test::FakePeer engine("", {"type='signal',path='/iot/job/manager'"});
  const auto emitted = [&](const std::string& member, std::size_t n = 1) {
    const auto signal = engine.await(member, n);
    EXPECT_TRUE(signal && signal->interface == "iot.job.manager") << member;
    return signal ? test::parsed(signal->text()) : Json::Value();
  };
  deliveryInfoToNodeEngineBySignal("word", "{not json", "Engine");
  EXPECT_EQ(emitted("Engine_Event_Invoke"),
            test::parsed(R"({"payload":"{not json","interface":"word"})"));
  sendGroupConfigToDBus(-1, 2, 1LL << 40, "Exec", "/a/path");
  EXPECT_EQ(emitted("NodeEngine_Config_Event"),
            test::parsed(R"({"ackId":-1,"ackCode":2,"jobId":1099511627776,"executor":"Exec",
                             "groupPath":"/a/path"})"));
  struct Case {
    const char *given, *sent;  // parentGroupIds
  };
  const Case cases[] = {{R"({"parentGroupIds":[4,5]})", "[4,5]"},
                        {"", R"("")"},
                        {"4,5", R"("4,5")"},
                        {"[4,5]", R"("[4,5]")"},
                        {"{}", "null"}};
  std::size_t n = 0;
  for (const Case& c : cases) {
    sendSignalToDBus(11, 12, 13, "Exec", "/p", "kind", 14, c.given, "scene");
    Json::Value body = emitted("Exec_Event", ++n);
    EXPECT_EQ(body["parentGroupIds"], test::parsed(c.sent)) << c.given;
    body.removeMember("parentGroupIds");
    EXPECT_EQ(body, test::parsed(R"({"ackId":11,"ackCode":12,"jobId":13,"executor":"Exec",
                                     "path":"/p","type":"kind","groupId":14,"sceneId":"scene"})"));
  }
}

TEST_F(Calls, FeedTheWatchdogAndTheLogService) {
  test::FakePeer watchdog("iot.gateway.watchdog");
  test::FakePeer logService("", {"type='signal',path='/iot/gateway/log_system'"});
  feedDog("iot.some.name", 19);
  sendSignalToLog(3, "tag", "file", "func", "line", "message");
  const auto fed = watchdog.await("feedDog");
  ASSERT_TRUE(fed);
  EXPECT_EQ(fed->path + " " + fed->interface, "/iot/job/manager iot.gateway.watchdog");
  EXPECT_EQ(fed->arguments, (Arguments{"iot.job.manager", "iot.some.name", std::int32_t{19}}));
  const auto logged = logService.await("logPrint");
  ASSERT_TRUE(logged);
  EXPECT_EQ(logged->interface, "iot.gateway.log_system");
  EXPECT_EQ(logged->arguments,
            (Arguments{std::int32_t{3}, "tag", "file", "func", "line", "message"}));
}

TEST_F(Calls, KeepTheServicesOwnKeysFromStrangers) {
  EXPECT_EQ(getConfig("never set"), "");
  for (const std::string key : {"gw_system_productkey", "gw_jobm_executors"}) {
    EXPECT_EQ(setConfig(key, "own"), 0);
    EXPECT_EQ(setForeignConfig(key, "stranger's"), -1);
    EXPECT_EQ(getConfig(key), "own");
  }
  EXPECT_EQ(setForeignConfig("gw_other", "stranger's"), 0);
  EXPECT_EQ(getConfig("gw_other"), "stranger's");
}

// In a process of its own, for the proxies do not come back. Status 0 when nothing was done.
void callEverythingWithoutProxies() {
  setConfig("key", "value");
  dropProxies();
  publishAsync("t", "p", 1);
  feedDog("iot.some.name", 19);
  deliveryInfoToNodeEngineBySignal("word", "payload", "Engine");
  sendGroupConfigToDBus(1, 2, 3, "Exec", "/p");
  const bool failed = publish("t", "p", 1) == -1 && subscribe("t", "s", 1) == -1 &&
                      unSubscribe("t", "s") == -1 && getConfig("key").empty() &&
                      setConfig("key", "value") == -1;
  _exit(failed ? 0 : 3);
}

TEST(CallsDeathTest, FailQuietlyOnceTheProxiesAreGone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(callEverythingWithoutProxies(), testing::ExitedWithCode(0), "");
}

}  // namespace
