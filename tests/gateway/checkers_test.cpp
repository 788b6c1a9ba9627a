// What the local gateway's programs notice. Calls and messages as they should be are what a whole
// gateway works with all the time; these it never meets.
#include <call_fault.h>
#include <gtest/gtest.h>
#include <outcome.h>
#include <reports.h>
#include <request_check.h>

#include <functional>
#include <vector>

#include <parsed.h>

namespace {

using test::parsed;
using Checker = std::function<std::string(const std::string&)>;

Checker call(const char* method) {
  return [=](const std::string& payload) { return gateway::callFault(method, "s", payload); };
}

const std::string kHead = R"({"id":1700000000000000,"reply":false,"attrs":)";

Checker request(const std::string& kind) {
  return [=](const std::string& text) {
    return gateway::requestFault("/scheduler/publish/" + kind, parsed(text), "pk_dn", 7);
  };
}

std::string report(const std::string& text) { return gateway::reportFault(parsed(text)); }

TEST(Checkers, FindEveryMistakeInWhatIsOtherwiseGood) {
  struct Mistake {
    std::string right, wrong;
  };
  const struct {
    Checker faultOf;
    std::string good;
    std::vector<Mistake> mistakes;
  } cases[] = {
      {call("deployJob"),
       R"([{"snapshotId":"s","resourceId":"r","resourceType":"t"}])",
       {{R"("t")", R"("t","data":{})"}, {"resourceId", "resource"}, {"{", "{},{"}}},
      {call("deployConfig"),
       R"({"key":"k","value":"v","snapshotId":"s"})",
       {{R"("v")", "{}"}, {"{", R"({"more":1,)"}}},
      {call("getJobStatus"), R"({"jobId":1,"foreignKey":"k"})", {{"1", R"("1")"}}},
      {request("registerRunner"),
       kHead +
           R"([{"type":0,"cpu":4,"memory":1000000000,"tenant":"TV_RN","address":"pk_dn",)"
           R"("runnerGroup":"tarnvale.runner.group","addressType":1,"heartRate":10000,"linkType":0,)"
           R"("executor":"[ConfigManager]","sdkVersion":"1.1","tags":["{\"version\":\"1.0.0\"}"]}]})",
       {{"pk_dn", "pk-dn"}, {":4", R"(:"4")"}, {"[{", R"([{"more":1,)"}, {"1.0.0", ""}}},
      {request("heartbeat"),
       kHead + R"([7,{"cpuUsage":1.0,"memUsage":1.0,"diskUsage":1.0}]})",
       {{"00000000", ""}, {"false", "true"}, {"[7", "[8"}, {"1.0", "1"}}},
      {request("syncStatusPassive"),
       kHead + R"([12,3,"{\"code\":0,\"detail\":\"d\"}"]})",
       {{"12", "-1"}, {":0", ":-1"}}},
      {request("syncStatusActive"),
       kHead + R"([7,"e",[{"jobId":1,"jobStatus":3,"result":"{\"code\":3,\"detail\":\"d\"}"}]]})",
       {{"[7", "[8"}, {":1,", ":-1,"}, {"[{", "[{},{"}}},
      {report,
       R"({"deployId":"d","taskId":"t","isLastReply":true,"deployType":0,"details":[null]})",
       {{R"("d")", R"("")"},
        {R"("t")", "1"},
        {"0", R"("0")"},
        {"[null]", "{}"},
        {"true", "false"}}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.faultOf(c.good), "") << c.good;
    for (const auto& [right, wrong] : c.mistakes) {
      std::string text = c.good;
      text.replace(text.find(right), right.size(), wrong);
      EXPECT_NE(c.faultOf(text), "") << text;
    }
  }
  EXPECT_NE(gateway::callFault("resetJobs", "s", ""), "");
  EXPECT_NE(gateway::callFault("deleteJob", "ss", cases[0].good), "");
}

TEST(Outcome, IsASuccessOnlyWithEveryResourceAndNothingThatDiffersFromWhatIsExpected) {
  const Json::Value event = parsed(R"({"event":"report","resources":[
      {"resourceId":"a","success":true,"code":"0"},{"resourceId":"b","success":null}]})");
  EXPECT_FALSE(gateway::succeeded(event));
  EXPECT_FALSE(gateway::succeeded(parsed(R"({"event":"status","jobStatus":4})")));
  for (const char* expected : {R"({"a":{"code":0},"b":{}})", R"({"a":{"success":false},"b":{}})",
                               R"({"a":{}})", R"({"a":{},"b":{},"c":{}})"}) {
    EXPECT_EQ(gateway::differences(event, parsed(expected)).size(), 1U) << expected;
  }
}

}  // namespace
