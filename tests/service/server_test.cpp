#include "jobm_server.h"

#include <CapturedLog.h>
#include <dbus_process_call.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "executor_api/registry.h"
#include "neighbourhood.h"

using namespace test;

namespace {

constexpr const char* kName = "iot.job.manager";
constexpr const char* kPath = "/iot/job/manager";

class Server : public testing::Test {
 protected:
  Server() {
    onLoop([this] {
      server = std::make_unique<jobm::JobManagerServer>(kName, kPath);
      EXPECT_EQ(server->prepare(), 0);
      server->addMatchRule("type='signal',path='/iot/bridge/mqtt'");
      server->addMatchRule(
          "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'");
      server->start();
    });
  }
  ~Server() override {
    onLoop([this] { server.reset(); });
  }

  static std::optional<std::string> call(const std::string& member,
                                         const std::vector<std::string>& texts = {},
                                         double seconds = 10) {
    return busCall(kName, kPath, member, texts, seconds);
  }

  static void signal(const std::string& member, const std::vector<std::string>& texts) {
    bridge().emit("/iot/bridge/mqtt", "iot.bridge.mqtt", member, texts);
  }

  std::unique_ptr<jobm::JobManagerServer> server;
};

std::string reply(int code, const std::string& message) {
  return "{\n   \"code\" : " + std::to_string(code) +
         ",\n   \"data\" : null,\n   \"message\" : \"" + message + "\"\n}\n";
}

TEST_F(Server, answers_its_methods_in_styled_text) {
  struct Case {
    const char* member;
    std::vector<std::string> arguments;
    std::string reply;
  };
  const std::string executor = registration("served", "iot.test.served", R"(["served"])");
  const Case cases[] = {
      {"registerExecutor", {executor}, reply(0, "registerExecutor success")},
      {"registerParser", {executor}, reply(0, "registerParser success")},
      {"registerExecutor", {"x"}, reply(100000, "registerExecutor params parse json error")},
      {"registerParser", {"x"}, reply(100000, "Invalid payload")},
      {"getSelfDescribing",
       {"ignored"},
       "{\n   \"code\" : 0,\n   \"data\" : {\n      \"ability\" : {\n         \"securied\" : {\n"
       "            \"algorithm\" : \"aes-256-cbc\",\n            \"padding\" : \"zero\"\n"
       "         }\n      }\n   },\n   \"message\" : \"success\"\n}\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(call(c.member, c.arguments), c.reply) << c.member;
  EXPECT_TRUE(jobm::getExecutor("served") && jobm::getParser("served"));
}

TEST_F(Server, passes_the_status_of_an_executors_job_on_as_that_of_an_added_one) {
  const std::string topic = "/sys/key/device/scheduler/publish/syncStatusActive";
  // The payload and the "attrs" that are published, none for a report that is refused. One that
  // were passed on all the same would be found in the place of the next.
  const std::pair<const char*, const char*> cases[] = {
      {R"({"jobId":7,"jobStatus":3,"executor":"IFTTTEngine","result":"ok","foreignKey":"k"})",
       R"([77,"IFTTTEngine",[{"jobId":7,"jobStatus":3,
           "result":"{\n   \"code\" : 3,\n   \"detail\" : \"ok\"\n}\n"}]])"},
      {"not JSON", nullptr},
      {R"({"jobId":7,"result":{}})", nullptr},
      {R"({"jobId":8,"jobStatus":-1})",
       R"([77,"",[{"jobId":8,"jobStatus":-1,
           "result":"{\n   \"code\" : 18446744073709551615,\n   \"detail\" : \"\"\n}\n"}]])"},
  };
  for (const auto& [payload, attrs] : cases) {
    SCOPED_TRACE(payload);
    const std::size_t before = published(topic).size();
    const bool taken = attrs != nullptr;
    EXPECT_EQ(call("syncJobStatus", {payload}),
              taken ? reply(0, "syncJobStatus success")
                    : reply(100000, "syncJobStatus fail, params error"));
    if (!taken) continue;
    ASSERT_TRUE(eventually([&] { return published(topic).size() > before; }));
    EXPECT_EQ(published(topic)[before]["attrs"], parsed(attrs));
  }
}

TEST_F(Server, leaves_unknown_methods_without_an_answer) {
  EXPECT_EQ(call("stop", {}, 0.3), std::nullopt);
  EXPECT_TRUE(call("getSelfDescribing"));
}

TEST_F(Server, republishes_the_result_of_a_job_log_event) {
  constexpr const char* kLogTopic = "/sys/key/device/edge/rule/post_log";
  const CapturedLog log;
  for (const char* payload : {"no JSON", R"({"result":{}})", R"({"result":"[\"\udc00\"]"})"}) {
    signal("jobstatus_event", {payload});
  }
  ASSERT_TRUE(eventually([&] { return !published(kLogTopic).empty(); }));
  EXPECT_EQ(published(kLogTopic)[0], parsed("[\"\uFFFD\uFFFD\uFFFD\"]"));
  EXPECT_EQ(published(kLogTopic).size(), 1U);
  EXPECT_EQ(log.count("jobstatus_event Exception e = "), 1U);
}

TEST_F(Server, hands_topic_and_payload_on_and_survives_what_it_can_not_read) {
  const CapturedLog log;
  FakePeer engine("", {"type='signal',member='IFTTTEngine_Event_Invoke'"});
  signal("subscribe_event", {"/any", R"({"id":1,"attrs":{}})"});
  signal("subscribe_event", {});
  signal("cloudConnectivityEvent", {"disconnected"});
  signal("subscribe_event", {"/sys/key/device/edge/rule/trigger", "the payload"});
  const auto trigger = engine.await("IFTTTEngine_Event_Invoke");
  ASSERT_TRUE(trigger);
  EXPECT_EQ(parsed(trigger->text()),
            parsed(R"({"interface":"actionOnce","payload":"the payload"})"));
  EXPECT_EQ(log.count("onSignalReceived Exception e = "), 1U);
  EXPECT_TRUE(log.has("netChanged status= disconnected\n"));
}

}  // namespace
