#include "executor_api/job_calls.h"

#include <dbus_process_call.h>
#include <gtest/gtest.h>
#include <json_helper.h>

#include <memory>

#include "executor_api/stored_jobs.h"
#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

// "a1 b2" is the job "a", which is numbered 1, and then "b", numbered 2.
Json::Value jobsOf(const std::string& text) {
  Json::Value jobs(Json::arrayValue);
  for (std::size_t i = 0; i < text.size(); i += 3) {
    Json::Value job;
    job["resourceId"] = text.substr(i, 1);
    job["n"] = text.substr(i + 1, 1);
    jobs.append(job);
  }
  return jobs;
}

TEST(StoredJobs, are_replaced_appended_and_removed_by_their_ids_with_repeated_ones_too) {
  struct Case {
    const char* before;
    int ackCode;
    const char *items, *after;
  };
  const Case cases[] = {
      {"a1 b1 a2", 10201, "a3", "b1 a2 a3"}, {"a1 b1", 10201, "a2 a3", "b1 a3"},
      {"a1 b1 a2 c1", 10204, "a3", "b1 c1"}, {"a1 A1", 10211, "A2", "a1"},
      {"a1 b1 c1", 10204, "a1 a1", "c1"},    {"a1 b1", 10219, "b1", ""},
      {"a1", 10202, "b1 a1", "a1"},
  };
  for (const Case& c : cases) {
    setConfig("listed", jobsOf(c.before).toStyledString());
    EXPECT_EQ(updateStoredJobs("listed", jobsOf(c.items), c.ackCode), 0);
    EXPECT_EQ(getConfig("listed"), json::styled(jobsOf(c.after))) << c.before << " " << c.ackCode;
  }
  for (const char* broken : {"no JSON", R"({"resourceId":"r"})"}) {
    setConfig("listed", broken);
    EXPECT_EQ(updateStoredJobs("listed", jobsOf("a1"), 10201), 0);
    EXPECT_EQ(parsed(getConfig("listed")), jobsOf("a1"));
  }
}

constexpr const char* kItems =
    R"([{"snapshotId":"s2","resourceId":"r2","resourceName":"n2","data":{"a":1}},
        {"snapshotId":"s1","resourceId":"R1","resourceName":"n1","data":2,"extra":true}])";

enum Action { kAdd, kRemove };

// Makes one call of a deployment; its immediate result as one text.
std::string call(Action action, const std::string& deployId, const std::string& executor,
                 const SharedResults& results, Json::Value items = parsed(kItems)) {
  const Json::Value result = onLoop([&] {
    return action == kAdd ? deployEJob(deployId, "task", items, executor, results)
                          : deleteEJob(deployId, "task", items, executor, results);
  });
  return result["code"].asString() + " " + result["message"].asString();
}

SharedResults begin(unsigned calls) {
  onLoop([&] { G_ExecutorResultCounter = {0, calls}; });
  return std::make_shared<DeploymentResults>(nullptr);
}

std::uint32_t done() {
  return onLoop([] { return G_ExecutorResultCounter.done; });
}

TEST(JobCalls, report_once_the_last_executor_has_answered) {
  Gate gate;
  FakePeer fast("iot.test.fast");
  FakePeer slow("iot.test.slow");
  fast.answer("deployJob", R"({"code":12,"message":"no"})");
  slow.on("deleteJob", [&](const auto&) {
    gate.wait();
    return R"({"code":0})";
  });
  addExecutor(registration("fast", "iot.test.fast", R"(["f1","f2"])"));
  addExecutor(registration("slow", "iot.test.slow", R"(["f1"])"));
  setConfig("slow", kItems);
  const SharedResults results = begin(2);
  EXPECT_EQ(call(kAdd, "last", "fast", results), "0 deploy success");
  const Json::Value removed = parsed(R"([{"resourceId":"r2","snapshotId":"s2","data":1}])");
  EXPECT_EQ(call(kRemove, "last", "slow", results, removed), "0 delete success");
  ASSERT_TRUE(slow.await("deleteJob") && eventually([] { return done() == 1; }));
  EXPECT_TRUE(resultsOf("last").empty());

  gate.open();
  EXPECT_EQ(awaitResult("last"), parsed(R"({"deployId":"last","taskId":"task","deployType":0,
      "isLastReply":true,"details":[
      {"snapshotId":"s1","success":false,"code":null,"message":null},
      {"snapshotId":"s2","success":true,"code":null,"message":null}]})"));
  EXPECT_TRUE(fast.await("onWatchTypesFinish"));
  EXPECT_EQ(fast.received("deployJob")[0].text(), json::styled(parsed(R"([
      {"snapshotId":"s2","resourceId":"r2","resourceName":"n2"},
      {"snapshotId":"s1","resourceId":"R1","resourceName":"n1","extra":true}])")));
  EXPECT_EQ(slow.received("deleteJob")[0].text(), json::styled(removed));
  EXPECT_EQ(parsed(getConfig("slow"))[0]["resourceId"], "R1");
}

TEST(JobCalls, to_nobody_say_so_at_once_and_are_not_counted) {
  for (const Action action : {kAdd, kRemove}) {
    EXPECT_EQ(call(action, "unsent", "nobody", begin(1)), "101200 nobody not exist");
  }
  EXPECT_EQ(done(), 0U);
}

TEST(JobCalls, take_the_word_of_CorvexConfig_for_each_resource) {
  initAllExecutors();
  FakePeer peer("iot.gateway.cvbase");
  const char* silence = R"({"success":true,"code":"","message":""})";
  // The answer, and what is reported for R1 and r2.
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {R"({"code":0,"data":[{"resourceId":"r1","code":3,"message":"bad"},
                            {"resourceId":"R2","code":0,"message":"fine"},
                            {"resourceId":"R1","code":4,"message":"second"}]})",
       R"({"success":false,"code":"3","message":"bad"})",
       R"({"success":true,"code":"0","message":"fine"})"},
      {R"({"code":1,"data":[{"resourceId":"R1","code":-1}]})",
       R"({"success":false,"code":"-1","message":""})", silence},
      {"garbage", silence, silence},
  };
  std::size_t n = 0;
  for (const auto& [answer, first, second] : cases) {
    SCOPED_TRACE(answer);
    peer.answer("deployJob", answer);
    call(kAdd, "corvex", "CorvexConfig", begin(1));
    Json::Value details = awaitResult("corvex", ++n)["details"];
    for (Json::Value& detail : details) detail.removeMember("snapshotId");
    EXPECT_EQ(details[0], parsed(first));
    EXPECT_EQ(details[1], parsed(second));
  }
  // A deletion is answered for as a whole.
  call(kRemove, "corvex", "CorvexConfig", begin(1));
  EXPECT_TRUE(awaitResult("corvex", ++n)["details"][0]["code"].isNull());
}

TEST(JobCalls, hand_a_parser_its_value_as_JSON_where_it_is_JSON) {
  FakePeer peer("iot.test.valued");
  addParser(registration("valued", "iot.test.valued", R"(["valued"])"));
  onLoop([&] {
    deployParserJob("k", "plain", *getParser("valued"), {});
    deployParserJob("k", R"({"a": 1})", *getParser("valued"), {});
  });
  ASSERT_TRUE(peer.await("deployJob", 2));
  EXPECT_EQ(peer.received("deployJob")[0].text(), "{\"key\":\"k\",\"value\":\"plain\"}\n");
  EXPECT_EQ(peer.received("deployJob")[1].text(), "{\"key\":\"k\",\"value\":{\"a\":1}}\n");
}

}  // namespace
}  // namespace jobm
