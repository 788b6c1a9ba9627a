#include "executor_api/job_calls.h"

#include <dbus_process_call.h>
#include <gtest/gtest.h>
#include <json_helper.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "executor_api/stored_jobs.h"
#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

using Jobs = std::vector<Json::Value>;

Json::Value arrayOf(const Jobs& jobs) {
  Json::Value array(Json::arrayValue);
  for (const Json::Value& job : jobs) array.append(job);
  return array;
}

bool isSame(const Json::Value& a, const Json::Value& b) {
  return a["resourceId"] == b["resourceId"];
}

// The actions as anyone would write them first, for small lists.
void naiveUpdate(Jobs& list, const Jobs& items, int ackCode) {
  if (ackCode == 10219) list.clear();
  std::vector<std::size_t> doomed;
  for (const Json::Value& item : items) {
    const auto isItem = [&](const Json::Value& job) { return isSame(job, item); };
    if (ackCode == 10201) {
      const auto old = std::find_if(list.begin(), list.end(), isItem);
      if (old != list.end()) list.erase(old);
      list.push_back(item);
    } else if (ackCode == 10204 || ackCode == 10211) {
      for (std::size_t i = 0; i < list.size(); ++i) {
        if (isItem(list[i])) doomed.push_back(i);
      }
    }
  }
  std::sort(doomed.rbegin(), doomed.rend());
  for (const std::size_t i : doomed) {
    if (i < list.size()) list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

TEST(StoredJobs, end_up_as_the_plain_loops_would_leave_them_with_repeated_ids_too) {
  std::mt19937 random(7);
  const auto below = [&](unsigned limit) { return static_cast<int>(random() % limit); };
  // Mostly additions, so that lists grow.
  const int codes[] = {10201, 10201, 10201, 10204, 10211, 10219, 10202};
  Jobs expected{parsed(R"({"resourceId":"r0","n":-1})"), parsed(R"({"resourceId":"r0","n":-2})")};
  setConfig("listed", arrayOf(expected).toStyledString());
  for (int round = 0; round < 400; ++round) {
    const int ackCode = codes[below(round % 100 == 99 ? 7 : 5)];
    Jobs items;
    for (int i = below(5); i > 0; --i) {
      Json::Value item;
      item["resourceId"] = (below(9) == 0 ? "R" : "r") + std::to_string(below(5));
      item["n"] = round * 10 + i;
      items.push_back(item);
    }
    naiveUpdate(expected, items, ackCode);
    ASSERT_EQ(updateStoredJobs("listed", arrayOf(items), ackCode), 0);
    ASSERT_EQ(getConfig("listed"), json::styled(arrayOf(expected))) << round << " " << ackCode;
  }
}

TEST(StoredJobs, begin_anew_where_there_is_no_list) {
  const Json::Value added = parsed(R"([{"resourceId":"n"}])");
  for (const char* broken : {"no JSON", R"({"resourceId":"r"})", "7"}) {
    setConfig("broken", broken);
    EXPECT_EQ(updateStoredJobs("broken", added, 10201), 0);
    EXPECT_EQ(parsed(getConfig("broken")), added);
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
  const Json::Value unserved =
      parsed(R"({"snapshotId":"s3","success":true,"code":"0","message":"ignored"})");
  results->entries["s3"] = unserved;
  results->entries["s0"] = "odd";
  EXPECT_EQ(call(kAdd, "last", "fast", results), "0 deploy success");
  const Json::Value removed = parsed(R"([{"resourceId":"r2","snapshotId":"s2","data":1}])");
  EXPECT_EQ(call(kRemove, "last", "slow", results, removed), "0 delete success");
  ASSERT_TRUE(slow.await("deleteJob") && eventually([] { return done() == 1; }));
  EXPECT_TRUE(resultsOf("last").empty());

  gate.open();
  Json::Value expected = parsed(R"({"deployId":"last","taskId":"task","deployType":0,
      "isLastReply":true,"details":[
      {"snapshotId":"s1","success":false,"code":null,"message":null},
      {"snapshotId":"s2","success":true,"code":null,"message":null}]})");
  expected["details"].append(unserved);
  EXPECT_EQ(awaitResult("last"), expected);
  EXPECT_TRUE(fast.await("onWatchTypesFinish"));
  EXPECT_EQ(fast.received("deployJob")[0].text(), json::styled(parsed(R"([
      {"snapshotId":"s2","resourceId":"r2","resourceName":"n2"},
      {"snapshotId":"s1","resourceId":"R1","resourceName":"n1","extra":true}])")));
  EXPECT_EQ(slow.received("deleteJob")[0].text(), json::styled(removed));
  EXPECT_EQ(parsed(getConfig("fast")).size(), 2U);
  EXPECT_EQ(parsed(getConfig("slow"))[0]["resourceId"], "R1");
}

TEST(JobCalls, that_are_not_sent_say_why_at_once_and_are_not_counted) {
  FakePeer peer("iot.test.own");
  addExecutor(registration("gw_jobm_own", "iot.test.own", R"(["own"])"));
  setConfig("gw_jobm_own", "kept");
  const SharedResults results = begin(1);
  for (const Action action : {kAdd, kRemove}) {
    EXPECT_EQ(call(action, "unsent", "nobody", results), "101200 nobody not exist");
    // A deletion whose list can't be stored is sent all the same.
    EXPECT_EQ(call(action, "unsent", "gw_jobm_own", results), "101203 SetConfigManager_Fail");
  }
  EXPECT_EQ(awaitResult("unsent")["details"].size(), 2U);
  EXPECT_EQ(peer.count("deleteJob"), 1U);
  EXPECT_EQ(peer.count("deployJob"), 0U);
  EXPECT_EQ(done(), 1U);
  EXPECT_EQ(getConfig("gw_jobm_own"), "kept");
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
      {R"({"code":0,"data":{}})", silence, silence},
      {R"({"code":0,"data":[{"resourceId":"r1","code":3},{"resourceId":"r2","code":{}}]})",
       R"({"success":false,"code":"3","message":""})",
       R"({"success":false,"code":"101206","message":"JOBM_ERROR_ExecutorReplyFormatError"})"},
      {"garbage", silence, silence},
  };
  std::size_t n = 0;
  for (const auto& [answer, first, second] : cases) {
    SCOPED_TRACE(answer);
    peer.answer("deployJob", answer);
    call(kAdd, "corvex", "CorvexConfig", begin(1));
    Json::Value details = awaitResult("corvex", ++n)["details"];
    for (Json::Value& detail : details) detail.removeMember("snapshotId");
    EXPECT_EQ(details, arrayOf({parsed(first), parsed(second)}));
  }
  // A deletion is answered for as a whole.
  call(kRemove, "corvex", "CorvexConfig", begin(1));
  EXPECT_TRUE(awaitResult("corvex", ++n)["details"][0]["code"].isNull());
}

TEST(JobCalls, hand_a_parser_its_value_as_JSON_where_it_is_JSON) {
  FakePeer peer("iot.test.valued");
  peer.answer("deployJob", R"({"code":9,"message":"m","data":[]})");
  addParser(registration("valued", "iot.test.valued", R"(["valued"])"));
  std::promise<std::string> told;
  onLoop([&] {
    deployParserJob("k", "plain", *getParser("valued"), {});
    deployParserJob("k", R"({"a": 1})", *getParser("valued"),
                    [&](int code, const std::string& message, const std::string& data) {
                      told.set_value(std::to_string(code) + message + data);
                    });
  });
  EXPECT_EQ(told.get_future().get(), "9m[]\n");
  EXPECT_EQ(peer.received("deployJob")[0].text(), "{\"key\":\"k\",\"value\":\"plain\"}\n");
  EXPECT_EQ(peer.received("deployJob")[1].text(), "{\"key\":\"k\",\"value\":{\"a\":1}}\n");
}

}  // namespace
}  // namespace jobm
