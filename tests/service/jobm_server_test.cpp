#include "jobm_server/jobm_server.h"

#include "neighbourhood.h"

using namespace test;

namespace {

constexpr const char* kName = "iot.job.manager";
constexpr const char* kPath = "/iot/job/manager";

class Server : public testing::Test {
 protected:
  Server() {
    news();  // what others were told
    onLoop([this] {
      server = std::make_unique<jobm::JobManagerServer>(kName, kPath);
      EXPECT_EQ(server->prepare(), 0);
      server->addMatchRule("type='signal',path='/iot/bridge/mqtt'");
      server->start();
    });
  }
  ~Server() override {
    onLoop([this] { server.reset(); });
  }

  static void signal(const std::string& member, const std::vector<std::string>& texts,
                     const std::string& path = "/iot/bridge/mqtt", const char* receiver = "") {
    bridge().emit(path, "iot.bridge.mqtt", member, texts, receiver);
  }

  std::unique_ptr<jobm::JobManagerServer> server;
};

std::string reply(int code, const std::string& message) {
  return "{\n   \"code\" : " + std::to_string(code) +
         ",\n   \"data\" : null,\n   \"message\" : \"" + message + "\"\n}\n";
}

TEST_F(Server, answers_its_methods_in_styled_text_and_others_not_at_all) {
  const std::string refused = reply(100000, "syncJobStatus fail, params error");
  struct Case {
    const char* member;
    std::string argument;
    std::string reply;
    const char* attrs;  // of what is published; nothing for what is refused
  };
  const Case cases[] = {
      {"registerParser", "x", reply(100000, "Invalid payload"), nullptr},
      {"getSelfDescribing", "ignored",
       "{\n   \"code\" : 0,\n   \"data\" : {\n      \"ability\" : {\n         \"securied\" : {\n"
       "            \"algorithm\" : \"aes-256-cbc\",\n            \"padding\" : \"zero\"\n"
       "         }\n      }\n   },\n   \"message\" : \"success\"\n}\n",
       nullptr},
      {"syncJobStatus", R"({"jobId":7,"result":{}})", refused, nullptr},
      {"syncJobStatus", R"({"jobId":8,"jobStatus":-1})", reply(0, "syncJobStatus success"),
       R"([77,"",[{"jobId":8,"jobStatus":-1,
           "result":"{\n   \"code\" : 18446744073709551615,\n   \"detail\" : \"\"\n}\n"}]])"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.argument);
    EXPECT_EQ(busCall(kName, kPath, c.member, {c.argument}), c.reply);
    const auto reports = news();
    ASSERT_EQ(reports.size(), c.attrs != nullptr ? 1U : 0U);
    if (c.attrs == nullptr) continue;
    EXPECT_EQ(reports[0].suffix, "/scheduler/publish/syncStatusActive");
    EXPECT_EQ(reports[0].payload["attrs"], parsed(c.attrs));
  }
  EXPECT_EQ(busCall(kName, kPath, "stop", {}, 0.3), std::nullopt);
}

TEST_F(Server, hands_signals_on_and_survives_what_it_can_not_read) {
  const CapturedLog log;
  for (const char* payload : {"no JSON", R"({"result":{}})", R"({"result":"[\"\udc00\"]"})"}) {
    signal("jobstatus_event", {payload});
  }
  signal("subscribe_event", {"/any", R"({"id":1,"attrs":{}})"});
  signal("subscribe_event", {});
  signal("cloudConnectivityEvent", {"unmatched"}, "/elsewhere");
  signal("cloudConnectivityEvent", {"addressed"}, "/elsewhere", kName);
  signal("cloudConnectivityEvent", {"disconnected"});
  EXPECT_TRUE(eventually([&] { return log.has("netChanged status= disconnected\n"); }));
  EXPECT_TRUE(log.has("netChanged status= addressed\n"));
  EXPECT_FALSE(log.has("unmatched"));
  EXPECT_EQ(log.count("onSignalReceived Exception e = "), 1U);
  EXPECT_EQ(log.count("jobstatus_event Exception e = "), 1U);
  const auto logged = news();
  ASSERT_EQ(logged.size(), 1U);
  EXPECT_EQ(logged[0].suffix, "/edge/rule/post_log");
  EXPECT_EQ(logged[0].payload, parsed("[\"\uFFFD\uFFFD\uFFFD\"]"));
}

TEST_F(Server, has_its_name_alone_and_until_it_goes) {
  jobm::JobManagerServer second(kName, kPath);
  EXPECT_EQ(second.prepare(), -1);
  onLoop([this] { server.reset(); });
  const FakePeer heir(kName);  // ends the test unless the name is free
}

}  // namespace
