#include <sqlite3.h>

#include <future>

#include "communicate_scene/queue.h"
#include "executor_api/registry.h"
#include "lib/comm_path.h"
#include "neighbourhood.h"
#include "runner_api/jobs.h"
#include "runner_api/runner.h"
#include "scheduler_link/routing.h"
#include "support/WebServer.h"
#include "sync_job_status/journal.h"
#include "util/http_download_kiv.h"

using namespace test;

namespace jobm {
namespace {

using Texts = std::vector<std::string>;

int dispatch(const std::string& payload) {
  return onLoop([&] { return dispatchMasterResponse("/any/topic", payload); });
}

std::string withId(std::int64_t id, const std::string& members) {
  return "{" + members + R"("id":)" + std::to_string(id) + "}";
}

TEST(Runner, is_registered_by_the_integer_code_200_only_and_beats_from_then_on) {
  const std::pair<const char*, std::int64_t> cases[] = {
      {R"({"attrs":[{"code":200.0,"data":338}]})", 0},
      {R"({"attrs":200})", 0},
      {R"({"attrs":[{"code":500,"data":1}]})", 0},
      {R"({"attrs":[{"code":200,"data":5000000000}]})", 5000000000},
  };
  setRunId(0);
  for (const auto& [reply, granted] : cases) {
    handleHeartbeat();
    EXPECT_TRUE(news().empty());
    EXPECT_EQ(registerRunnerResp(parsed(reply)), granted != 0) << reply;
    EXPECT_EQ(getRunId(), granted) << reply;
  }
  handleHeartbeat();
  EXPECT_EQ(news().at(0).payload["attrs"][0].asInt64(), 5000000000);
  setRunId(77);
}

TEST(Routing, calls_a_handler_once_with_the_whole_reply_and_forgets_it) {
  const std::size_t before = outstandingRequests();
  Json::Value got;
  std::int64_t nested = 0;
  const std::int64_t id = fileRequest([&](const Json::Value& reply) {
    got = reply;
    nested = fileRequest({});
    EXPECT_EQ(outstandingRequests(), before + 2) << "forgotten only after the call";
    return false;
  });
  const CapturedLog log;
  for (const std::string& payload : {std::string("not json"), std::string(5000, '[')}) {
    EXPECT_EQ(dispatch(payload), 0);
  }
  EXPECT_THROW(dispatch(withId(id, R"("attrs":[{"code":"x"}],)")), std::exception);
  EXPECT_TRUE(got.isNull()) << "what can't be routed leaves the request open";
  const std::string reply = withId(id, R"("reply":true,)");
  EXPECT_EQ(dispatch(reply), 1) << "neither attrs nor code are needed";
  EXPECT_EQ(got, parsed(reply));
  EXPECT_EQ(outstandingRequests(), before + 1);
  EXPECT_EQ(dispatch(reply), 1);
  EXPECT_TRUE(log.has("dispatchMasterResponse id " + std::to_string(id) + " no exist\n"));
  EXPECT_EQ(dispatch(withId(nested, "")), 1);
  EXPECT_TRUE(log.has("dispatchMasterResponse func is null"));
  EXPECT_EQ(outstandingRequests(), before);
}

// What was reported, one line each.
Texts reports() {
  Texts lines;
  for (const auto& [suffix, payload] : news()) {
    const Json::Value& attrs = payload["attrs"];
    lines.push_back(suffix == "/edge/deploy/post"
                        ? "result " + json::compact(payload["details"])
                        : suffix + " " + attrs[0].asString() + " " + attrs[1].asString() + " " +
                              parsed(attrs[2].asString())["detail"].asString());
  }
  return lines;
}

const std::string kDeployed = "/scheduler/publish/syncStatusPassive 9 3 job deploy success";
const Texts kDone = {"/scheduler/publish/syncStatusPassive 9 0 job deploy success"};
const Texts kUnreadable = {"result [null]\n"};
const Texts kTooMany = {"/scheduler/publish/syncStatusPassive 9 4 too many deployments waiting"};
const Texts kNotFetched = {"/scheduler/publish/syncStatusPassive 9 4 Download job package fail"};

TEST(Jobs, are_carried_out_by_their_code) {
  struct Case {
    const char *what, *executor, *content;
    Texts reports;
    int ackCode;
    bool directoryStays;
  };
  const Case cases[] = {
      {"deleted", "ConfigManager", "{}", kDone, 10204, false},
      {"another executor's", "NodeEngine_Script", "{}", kDone, 10204, true},
      {"a signature word", "ConfigManager", "JobPayloadSign", kUnreadable, 10204, true},
      {"reset", "ConfigManager", "{}", kDone, 10219, false},
      {"unknown code", "ConfigManager", "{}", {}, 10220, true},
      {"refused name", "../up", "{}", kUnreadable, 10220, false},
      {"no download", "ConfigManager", R"({"content":"m:","type":"kiv"})", kNotFetched, 10201,
       false},
      {"no package",
       "ConfigManager",
       R"({"content":"{\"deployId\":\"d\",\"deployType\":1} x","type":"inline"})",
       {kDeployed},
       10201,
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string directory = generateDir(c.executor, "41");
    onLoop([&] { handleJob(9, c.ackCode, 41, c.executor, c.content); });
    EXPECT_EQ(reports(), c.reports);
    EXPECT_EQ(std::filesystem::exists(directory), c.directoryStays);
  }
}

// The one test that waits for transfers to be given up, all of them at the same time.
TEST(Jobs, fail_when_their_package_brings_too_little_in_a_minute) {
  ASSERT_EQ(curl_init(), 0);
  WebServer web;
  const auto fetch = [&](const Page& page) {
    return std::async(std::launch::async, [url = web.serve(page)] {
      return http_download(url, "/tmp/var/" + std::to_string(gettid()));
    });
  };
  auto trickling = fetch({.body = "bytes", .part = 1, .pauseMs = 20000});
  auto slow = fetch({.body = std::string(1400, 'x'), .part = 100, .pauseMs = 5000});
  const std::string url = web.serve({.body = "half", .missing = 4});
  const std::string content = R"({"content":")" + url + R"(","type":"kiv"})";
  const CapturedLog log;
  onLoop([&] { handleJob(9, 10201, 41, "ConfigManager", content); });
  EXPECT_EQ(reports(), kNotFetched);
  EXPECT_TRUE(log.has("curl_easy_perform ret = 28 cost = 6"));
  EXPECT_EQ(trickling.get(), 28);
  EXPECT_EQ(slow.get(), 0) << "takes longer, but brings enough";
}

// The content of a job, and the request that it brings.
std::string contentOf(const std::string& request) {
  Json::Value content;
  content["content"] = request;
  content["type"] = "inline";
  return json::compact(content);
}

// Whether a deployment is in the first slot of those that were accepted.
bool isStored() { return !parsed(getConfig("gw_jobm_deployment_0")).isNull(); }

void answerHeartbeat(const std::string& members) {
  sendHeartbeat("");
  dispatch(withId(news().back().payload["id"].asInt64(), members));
}

TEST(Jobs, are_refused_where_too_many_wait_and_leave_nothing_behind) {
  const std::string request = R"({"deployId":"d","deployType":0,"resources":[]})";
  const std::size_t room = (std::size_t{64} << 20) - request.size();
  const Texts accepted{kDeployed, "result []\n"};
  const std::tuple<int, std::size_t, Texts> cases[] = {// how many wait, of how many bytes
                                                       {255, 0, accepted},
                                                       {256, 0, kTooMany},
                                                       {1, room, accepted},
                                                       {1, room + 1, kTooMany}};
  for (const auto& [waiting, bytes, expected] : cases) {
    setConfig("gw_jobm_jobId", "of another");
    bool isWrittenDown = false;
    onLoop([&, &waiting = waiting, &bytes = bytes] {
      holdQueue();
      for (int i = 0; i < waiting; ++i) runInTurn(bytes, [] {});
      handleJob(9, 10201, 41, "ConfigManager", contentOf(request));
      isWrittenDown = isStored();
      resumeQueue();
    });
    EXPECT_TRUE(eventually([] { return !onLoop(isQueueHeld); }));
    EXPECT_EQ(reports(), expected);
    EXPECT_EQ(isWrittenDown, expected == accepted);
    EXPECT_TRUE(eventually([] { return !isStored(); }));
    EXPECT_EQ(getConfig("gw_jobm_jobId"), expected == accepted ? "41" : "of another");
  }
}

TEST(Jobs, are_refused_where_the_bridge_takes_no_reports) {
  bridge().on("publish", [](const Received& call) {
    return call.text(1).starts_with("[") ? R"({"code":5})" : "{}";
  });
  onLoop([] {
    for (int i = 0; i < 256; ++i) publishReport(acceptDeployment({"d", "t"}), {"[]"});
    EXPECT_FALSE(isJournalFull()) << "nobody has refused them yet";
  });
  EXPECT_TRUE(eventually([] { return onLoop(isJournalFull); }));
  news();
  const std::string request = R"({"deployId":"d","deployType":0,"resources":[]})";
  onLoop([&] { handleJob(9, 10201, 41, "ConfigManager", contentOf(request)); });
  EXPECT_EQ(reports(), kTooMany);
  bridge().on("publish", {});
  EXPECT_TRUE(eventually([] {
    onLoop(publishAgain);
    return !isStored();
  }));
}

TEST(Jobs, take_their_turn_whatever_they_are_and_are_written_down_before_anybody_is_told) {
  std::unique_ptr<sqlite3, decltype(&sqlite3_close)> other(nullptr, sqlite3_close);
  const auto lockStore = [&] {
    sqlite3* raw = nullptr;
    sqlite3_open("/tarnvale/config/gateway.db", &raw);
    other.reset(raw);
    EXPECT_EQ(sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  };
  std::latch gate(1);
  FakePeer peer("iot.test.turns");
  addExecutor(registration("turns", "iot.test.turns", R"(["turns"])", R"(["file"])"));
  peer.on("deployJob", [&](const auto&) {
    gate.wait();
    return "{}";
  });
  const std::string deployment = contentOf(R"({"deployId":"d","deployType":0,"resources":[
      {"operate":0,"resourceType":"turns","resourceId":"r","snapshotId":"s"}]})");
  const std::string reset = contentOf(R"({"deployId":"r","deployType":1})");
  const std::pair<int, const std::string&> orders[] = {
      {10201, deployment}, {10201, deployment}, {10219, deployment}, {10201, reset}};
  const std::size_t told = bridge().count("publish");
  lockStore();
  auto ordered = std::async(std::launch::async, [&] {
    onLoop([&] {
      for (const auto& [code, content] : orders) handleJob(9, code, 41, "ConfigManager", content);
    });
  });
  EXPECT_FALSE(bridge().await("publish", told + 1, 0.3)) << "of the acceptance";
  other.reset();
  ordered.get();
  EXPECT_TRUE(peer.await("deployJob"));
  EXPECT_EQ(reports(), (Texts{kDeployed, kDeployed, kDeployed}));
  lockStore();
  gate.count_down();
  EXPECT_FALSE(bridge().await("publish", bridge().count("publish") + 1, 0.3)) << "of the end";
  other.reset();
  EXPECT_TRUE(peer.await("resetJobs", 2));
  EXPECT_TRUE(eventually([] { return !onLoop(isQueueHeld); }));
  Texts calls;
  for (const Received& call : peer.received()) {
    if (!call.isSignal) calls.push_back(call.member);
  }
  EXPECT_EQ(calls, (Texts{"deployJob", "deployJob", "resetJobs", "resetJobs"}));
  EXPECT_EQ(reports().at(2), kDone[0]);
}

TEST(Jobs, of_a_reply_are_reported_stored_deployed_and_cleared_away_in_order_up_to_a_faulty_one) {
  const std::string request = R"({"deployId":"d","deployType":0,"resources":[]})";
  Json::Value reply = parsed(R"({"attrs":[{"code":10200,"data":[
      {"id":1,"ackCode":10201,"jobId":4200000000,"executor":"Any"},
      {"id":2,"ackCode":10204,"executor":"x","ackContent":null},
      {"id":3,"ackCode":"x"},
      {"id":4,"ackCode":10204,"jobId":5,"executor":"x","ackContent":"{}"}]}]})");
  reply["attrs"][0]["data"][0]["ackContent"] = contentOf(request);
  const CapturedLog log;
  bridge().answer("publish", R"({"code":5})");
  answerHeartbeat(R"("attrs":)" + json::compact(reply["attrs"]) + ",");
  EXPECT_EQ(reports(), (Texts{"/scheduler/publish/syncStatusPassive 1 3 job deploy success",
                              "result []\n", "result [null]\n"}));
  EXPECT_TRUE(log.has("handleHeartbeatResp Exception e =  "));
  EXPECT_EQ(getConfig("gw_jobm_jobId"), "4200000000");
  EXPECT_EQ(getConfig("gw_jobm_jobContent"), request);
  EXPECT_FALSE(std::filesystem::exists(jobPath("any", "4200000000")));
  // What the bridge has not taken goes out again with the next reply.
  EXPECT_TRUE(eventually([&] { return log.has("the bridge did not take the report"); }));
  bridge().on("publish", {});
  answerHeartbeat("");
  EXPECT_EQ(reports(), Texts{"result []\n"});
  EXPECT_TRUE(eventually([] { return !isStored(); }));
}

}  // namespace
}  // namespace jobm
