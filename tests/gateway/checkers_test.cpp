// Faults that the local gateway's programs must notice. That they accept what is right is shown by
// every run of the whole gateway, which never meets these.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "executor/call_fault.h"
#include "job/outcome.h"
#include "scheduler/reports.h"
#include "scheduler/request_check.h"
#include "support/parsed.h"

namespace {

std::string call(const std::string& text) { return gateway::callFault("deployJob", "s", text); }

std::string request(const std::string& text) {
  return gateway::requestFault("/scheduler/publish/registerRunner", test::parsed(text), "pk_dn", 7);
}

std::string reportOf(int deployType, const std::string& text) {
  Json::Value ordered(Json::objectValue);
  ordered["deployType"] = deployType;
  return gateway::reportFault(test::parsed(text), ordered);
}

std::string report(const std::string& text) { return reportOf(0, text); }

std::string resetReport(const std::string& text) { return reportOf(1, text); }

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
      {resetReport,
       R"({"deployId":"d","taskId":"t","isLastReply":true,"deployType":1,"details":[{}]})",
       {{"1", "0"}}},
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

TEST(Outcome,
     is_a_success_only_with_every_resource_and_nothing_that_differs_from_what_is_expected) {
  const Json::Value event = test::parsed(R"({"event":"report","resources":[
      {"resourceId":"a","success":true,"code":"0"},{"resourceId":"b","success":null}]})");
  EXPECT_FALSE(gateway::succeeded(event));
  EXPECT_FALSE(gateway::succeeded(test::parsed(R"({"event":"status","jobStatus":4})")));
  for (const char* expected : {R"({"a":{"code":0},"b":{}})", R"({"a":{"success":false},"b":{}})",
                               R"({"a":{}})", R"({"a":{},"b":{},"c":{}})"}) {
    EXPECT_EQ(gateway::differences(event, test::parsed(expected)).size(), 1U) << expected;
  }
}

}  // namespace
