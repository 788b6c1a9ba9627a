#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

using Arguments = std::vector<Argument>;

// What nothing calls yet.
TEST(Calls, emit_signals_of_this_service_and_for_the_log_service_and_end_subscriptions) {
  FakePeer engine("", {"type='signal',path='/iot/job/manager'"});
  FakePeer logService("", {"type='signal',path='/iot/gateway/log_system'"});
  std::size_t n = 0;
  sendGroupConfigToDBus(-1, 2, 1LL << 40, "Exec", "/a/path");
  sendSignalToDBus(11, 12, 13, "Exec", "/p", "kind", 14, R"({"parentGroupIds":[4,5]})", "scene");
  sendSignalToDBus(11, 12, 13, "Exec", "/p", "kind", 14, "[4,5]", "scene");
  ASSERT_TRUE(engine.await("Exec_Event", 2));
  Json::Value body = parsed(R"({"ackId":11,"ackCode":12,"jobId":13,"executor":"Exec","path":"/p",
                                "type":"kind","groupId":14,"sceneId":"scene"})");
  for (const char* parents : {"[4,5]", R"("[4,5]")"}) {
    body["parentGroupIds"] = parsed(parents);
    EXPECT_EQ(parsed(engine.received("Exec_Event").at(n++).text()), body);
  }
  const Received config = engine.received("NodeEngine_Config_Event").at(0);
  EXPECT_EQ(config.interface, "iot.job.manager");
  EXPECT_EQ(parsed(config.text()), parsed(R"({"ackId":-1,"ackCode":2,"jobId":1099511627776,
                                              "executor":"Exec","groupPath":"/a/path"})"));
  sendSignalToLog(3, "tag", "file", "func", "line", "message");
  const auto logged = logService.await("logPrint");
  ASSERT_TRUE(logged);
  EXPECT_EQ(logged->interface, "iot.gateway.log_system");
  EXPECT_EQ(logged->arguments, (Arguments{3, "tag", "file", "func", "line", "message"}));

  bridge().answer("unsubscribe", Error{"iot.test.Refused", R"({"code":0)"});
  EXPECT_EQ(unSubscribe("t", "iot.some.name"), -1) << "only a reply can be a success";
  EXPECT_EQ(bridge().received("unsubscribe")[0].arguments, (Arguments{"t", "iot.some.name"}));
}

}  // namespace
}  // namespace jobm
