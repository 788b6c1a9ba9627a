// Faults that the local gateway's programs must notice. That they accept what is right is shown by
// every run of the whole gateway, which never meets these.

#include "executor/call_fault.h"
#include "scheduler/reports.h"
#include "scheduler/request_check.h"
#include "support/test.h"

using namespace test;

namespace {

std::string call(const std::string& text) { return gateway::callFault("deployJob", "s", text); }

std::string request(const std::string& text) {
  return gateway::requestFault("/scheduler/publish/registerRunner", parsed(text), "pk_dn", 7);
}

std::string report(const std::string& text) {
  return gateway::reportFault(parsed(text), parsed(R"({"deployType":0})"));
}

TEST(Checkers, find_every_mistake_in_what_is_otherwise_good) {
  using Mistakes = std::vector<std::pair<std::string, std::string>>;
  const std::tuple<std::string (*)(const std::string&), std::string, Mistakes> cases[] = {
      {call,
       R"([{"snapshotId":"s","resourceId":"r","resourceType":"t"}])",
       {{R"("t")", R"("t","data":{})"}, {"resourceId", "resource"}, {"{", "{},{"}}},
      {request,
       R"({"id":1700000000000000,"reply":false,"attrs":[{"type":0,"cpu":4,"memory":1000000000,)"
       R"("tenant":"TV_RN","address":"pk_dn","runnerGroup":"tarnvale.runner.group","addressType":1,)"
       R"("heartRate":10000,"linkType":0,"executor":"[ConfigManager]","sdkVersion":"1.1",)"
       R"("tags":["{\"version\":\"1.0.0\"}"]}]})",
       {{"00000000", ""},
        {"pk_dn", "pk-dn"},
        {":4", R"(:"4")"},
        {"1.0.0", ""},
        {"1.0.0", R"(1.0.0\\n)"}}},
      {report,
       R"({"deployId":"d","taskId":"t","isLastReply":true,"deployType":0,"details":[null]})",
       {{R"("d")", R"("")"}, {"0", R"("0")"}, {"0", "1"}, {"[null]", "{}"}, {"true", "false"}}},
  };
  for (const auto& [faultOf, good, mistakes] : cases) {
    EXPECT_EQ(faultOf(good), "") << good;
    for (const auto& [right, wrong] : mistakes) {
      std::string text = good;
      text.replace(text.find(right), right.size(), wrong);
      EXPECT_NE(faultOf(text), "") << text;
    }
  }
  EXPECT_NE(gateway::callFault("resetJobs", "s", ""), "");
}

}  // namespace
