#include "runner_api/jobs.h"

#include <WebServer.h>
#include <comm_path.h>

#include <filesystem>

#include "runner_api/runner.h"
#include "scheduler_side.h"

namespace {

using namespace jobm;
using Texts = std::vector<std::string>;

class Jobs : public test::SchedulerSide {
 protected:
  // What was reported, one line each.
  Texts reports() {
    Texts lines;
    for (const Published& report : published()) {
      const Json::Value& attrs = report.payload["attrs"];
      lines.push_back(report.suffix == "/edge/deploy/post"
                          ? "result " + json::compact(report.payload["details"])
                          : report.suffix + " " + attrs[0].asString() + " " + attrs[1].asString() +
                                " " + test::parsed(attrs[2].asString())["detail"].asString());
    }
    return lines;
  }
};

constexpr const char* kDone = "/scheduler/publish/syncStatusPassive 9 0 job deploy success";
constexpr const char* kUnreadable = "result [null]\n";

TEST_F(Jobs, AreCarriedOutByTheirCode) {
  struct Case {
    const char *what, *executor, *content;
    Texts reports;
    int ackCode;
    bool directoryStays;
  };
  const Case cases[] = {
      {"deleted", "ConfigManager", "{}", {kDone}, 10204, false},
      {"another executor's", "NodeEngine_Script", "{}", {kDone}, 10204, true},
      {"a signature word", "ConfigManager", "JobPayloadSign", {kUnreadable}, 10204, true},
      {"reset", "ConfigManager", "{}", {kDone}, 10219, false},
      {"reset with a word", "ConfigManager", "word", {kUnreadable}, 10219, true},
      {"unknown code", "ConfigManager", "{}", {}, 10220, true},
      {"refused name", "../up", "{}", {kUnreadable}, 10220, false},
      {"no download",
       "ConfigManager",
       R"({"content":"http://127.0.0.1:1/","type":"kiv"})",
       {"/scheduler/publish/syncStatusPassive 9 4 Download job package fail"},
       10201,
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string directory = generateDir(c.executor, "41");
    loop.run([&] { handleJob(9, c.ackCode, 41, c.executor, c.content); });
    EXPECT_EQ(reports(), c.reports);
    EXPECT_EQ(std::filesystem::exists(directory), c.directoryStays);
  }
}

// The one test that waits for a transfer to be given up.
TEST_F(Jobs, FailAMinuteAfterTheirPackageHasStoppedToCome) {
  test::WebServer web;
  web.serve("/stalls", {{.body = "half and half", .fault = test::Fault::stall}});
  const std::string content = R"({"content":")" + web.url("/stalls") + R"(","type":"kiv"})";
  const test::CapturedLog log;
  loop.run([&] { handleJob(9, 10201, 41, "ConfigManager", content); });
  EXPECT_EQ(reports(), Texts{"/scheduler/publish/syncStatusPassive 9 4 Download job package fail"});
  EXPECT_TRUE(log.has("curl_easy_perform ret = 28 cost = 6"));
}

TEST_F(Jobs, AreReportedStoredDeployedAndClearedAwayInThisOrder) {
  const std::string request = R"({"deployId":"d","deployType":0,"resources":[]})";
  Json::Value content;
  content["content"] = request;
  content["type"] = "inline";
  loop.run([&] { handleJob(9, 10201, 4200000000, "Any", json::compact(content)); });
  EXPECT_EQ(reports(),
            (Texts{"/scheduler/publish/syncStatusPassive 9 3 job deploy success", "result []\n"}));
  EXPECT_EQ(getConfig("gw_jobm_jobId"), "4200000000");
  EXPECT_EQ(getConfig("gw_jobm_jobContent"), request);
  EXPECT_FALSE(std::filesystem::exists(jobPath("any", "4200000000")));
}

TEST_F(Jobs, OfAHeartbeatsReplyAreTakenInOrderUpToTheFirstFaultyOne) {
  const std::string job = R"({"id":1,"ackCode":10204,"jobId":5,"executor":"x","ackContent":"{}"})";
  const std::string noContent = R"({"id":2,"ackCode":10204,"executor":"x","ackContent":null})";
  const std::string faulty = R"({"id":3,"ackCode":"x"})";
  setRunId(338);
  sendHeartbeat("");
  const auto beats = published();
  ASSERT_EQ(beats.size(), 1U);
  const std::string reply = R"({"attrs":[{"code":10200,"data":[)" + job + "," + noContent + "," +
                            faulty + "," + job + R"(]}],"id":)" +
                            beats[0].payload["id"].asString() + "}";
  const test::CapturedLog log;
  loop.run([&] { dispatchMasterResponse("/any", reply); });
  EXPECT_EQ(reports(),
            (Texts{"/scheduler/publish/syncStatusPassive 1 0 job deploy success", kUnreadable}));
  EXPECT_TRUE(log.has("handleHeartbeatResp Exception e =  "));
}

}  // namespace
