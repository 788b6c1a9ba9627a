#include <gtest/gtest.h>
#include <json_helper.h>
#include <request_check.h>

namespace {

struct Case {
  const char* suffix;
  const char* attrs;
  const char* find;     // a mistake: this text of attrs ...
  const char* replace;  // ... becomes that; null: no mistake
};

constexpr const char* kRegister = "/scheduler/publish/registerRunner";
constexpr const char* kHeartbeat = "/scheduler/publish/heartbeat";
constexpr const char* kPassive = "/scheduler/publish/syncStatusPassive";
constexpr const char* kActive = "/scheduler/publish/syncStatusActive";
constexpr const char* kRunner =
    R"([{"type":0,"cpu":4,"memory":1000000000,"tenant":"TV_RN","runnerGroup":"tarnvale.runner.group",)"
    R"("address":"pk_dn","addressType":1,"heartRate":10000,"linkType":0,"executor":"[ConfigManager]",)"
    R"("sdkVersion":"1.1","tags":["{\"version\":\"1.0.0\"}"]}])";
constexpr const char* kUsage = R"([7,{"cpuUsage":1.0,"memUsage":1.0,"diskUsage":1.0}])";
constexpr const char* kStatus = R"([12,3,"{\"code\":0,\"detail\":\"d\"}"])";
constexpr const char* kExecutorStatus =
    R"([7,"e",[{"jobId":1,"jobStatus":3,"result":"{\"code\":3,\"detail\":\"d\"}"}]])";

const Case kCases[] = {
    {kRegister, kRunner, "", nullptr},
    {kRegister, kRunner, R"("pk_dn")", R"("pk-dn")"},
    {kRegister, kRunner, R"("cpu":4)", R"("cpu":"4")"},
    {kRegister, kRunner, R"("sdkVersion":"1.1",)", ""},
    {kRegister, kRunner, R"("type":0)", R"("type":0,"more":1)"},
    {kRegister, kRunner, "1.0.0", ""},
    {kHeartbeat, kUsage, "", nullptr},
    {kHeartbeat, kUsage, "7", "8"},
    {kHeartbeat, kUsage, R"("memUsage":1.0)", R"("memUsage":1)"},
    {kPassive, kStatus, "", nullptr},
    {kPassive, kStatus, "12", "-1"},
    {kPassive, kStatus, R"({\"code\":0,\"detail\":\"d\"})", "deployed"},
    {kPassive, kStatus, R"(\"code\":0)", R"(\"code\":-1)"},
    {kActive, kExecutorStatus, "", nullptr},
    {kActive, kExecutorStatus, "[{", "[{},{"},
    {kActive, kExecutorStatus, R"("jobId":1)", R"("jobId":-1)"},
    {"/scheduler/publish/other", "[]", "", ""},
};

std::string faultOf(const std::string& suffix, const std::string& text) {
  Json::Value request;
  EXPECT_TRUE(jobm::json::parse(text, request)) << text;
  return gateway::requestFault(suffix, request, "pk_dn", 7);
}

TEST(RequestFault, EveryKindOfRequestPassesAndEachMistakeInItDoesNot) {
  for (const Case& c : kCases) {
    std::string attrs = c.attrs;
    if (c.replace != nullptr && *c.find != '\0') {
      ASSERT_NE(attrs.find(c.find), std::string::npos) << c.find;
      attrs.replace(attrs.find(c.find), std::string(c.find).size(), c.replace);
    }
    const std::string fault =
        faultOf(c.suffix, R"({"id":1700000000000000,"reply":false,"attrs":)" + attrs + "}");
    EXPECT_EQ(fault.empty(), c.replace == nullptr) << c.suffix << " " << attrs << " " << fault;
  }
}

TEST(RequestFault, TheEnvelopeIsCheckedToo) {
  const std::string tail = std::string(R"(,"attrs":)") + kUsage + "}";
  for (const char* head :
       {R"({"id":1700000000,"reply":false)", R"({"id":"1700000000000000","reply":false)",
        R"({"id":1700000000000000,"reply":true)", R"({"id":1700000000000000)",
        R"({"id":1700000000000000,"reply":false,"more":1)"}) {
    EXPECT_NE(faultOf(kHeartbeat, head + tail), "") << head;
  }
}

}  // namespace
