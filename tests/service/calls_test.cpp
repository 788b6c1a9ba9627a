#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

using Arguments = std::vector<Argument>;

TEST(Calls, read_the_bridges_code_out_of_whatever_it_answers) {
  const std::pair<Answer, int> cases[] = {
      {R"(/* quite */ {"code":7,"message":"no"})", 7},
      {R"({"code":"seven"})", -1},
      {"ok", -1},
      {Error{"iot.test.Refused", R"({"code":0)"}, -1},
  };
  const CapturedLog log;
  for (const auto& [answer, code] : cases) {
    bridge().answer("unsubscribe", answer);
    EXPECT_EQ(unSubscribe("t", "iot.some.name"), code);
  }
  EXPECT_EQ(bridge().received("unsubscribe")[0].arguments, (Arguments{"t", "iot.some.name"}));
  EXPECT_TRUE(log.has("publish parse failed res = ok\n"));
  bridge().answer("publish", R"({"code":5})");
  publishAsync("/sys/key/device/t", "{}", 1);
  EXPECT_TRUE(eventually([&] { return log.has("publishAsync get reply : 5\n"); }));
  bridge().on("publish", {});
  EXPECT_EQ(publish("/sys/key/device/t", "{}", 1), 0);
  EXPECT_EQ(news().size(), 2U);
}

TEST(Calls, emit_signals_of_this_service_and_for_the_log_service) {
  FakePeer engine("", {"type='signal',path='/iot/job/manager'"});
  FakePeer logService("", {"type='signal',path='/iot/gateway/log_system'"});
  sendGroupConfigToDBus(-1, 2, 1LL << 40, "Exec", "/a/path");
  // The parents as they are given and as they are sent.
  const std::pair<const char*, const char*> cases[] = {
      {R"({"parentGroupIds":[4,5]})", "[4,5]"}, {"[4,5]", R"("[4,5]")"}, {"{}", "null"}};
  std::size_t n = 0;
  for (const auto& [given, sent] : cases) {
    sendSignalToDBus(11, 12, 13, "Exec", "/p", "kind", 14, given, "scene");
    const auto signal = engine.await("Exec_Event", ++n);
    ASSERT_TRUE(signal);
    Json::Value body = parsed(signal->text());
    EXPECT_EQ(body["parentGroupIds"], parsed(sent)) << given;
    body.removeMember("parentGroupIds");
    EXPECT_EQ(body, parsed(R"({"ackId":11,"ackCode":12,"jobId":13,"executor":"Exec","path":"/p",
                               "type":"kind","groupId":14,"sceneId":"scene"})"));
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
}

}  // namespace
}  // namespace jobm
