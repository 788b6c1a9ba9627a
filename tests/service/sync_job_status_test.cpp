#include "sync_job_status/sync_job_status.h"

#include "lib/comm_path.h"
#include "neighbourhood.h"
#include "sync_job_status/journal.h"

using namespace test;

namespace jobm {
namespace {

TEST(SyncJobStatus, goes_out_as_an_answer_or_on_its_own_account) {
  struct Case {
    std::int64_t ackId;
    int ackCode, status;
    const char *kind, *attrs;  // R stands for the result
    bool directoryStays;
    const char* tag;
  };
  const Case cases[] = {
      {5, 10201, 4, "Passive", R"([5,4,"R"])", false, "[Jobm_Deploy_Result][Failed]"},
      {-2, 10204, 4, "Passive", R"([18446744073709551614,0,"R"])", false,
       "[Jobm_Deploy_Result][Failed]"},
      {5, 10211, 0, "Passive", R"([5,0,"R"])", false, "[Jobm_RESET_Result][Succeeded]"},
      {-1, 10201, 2, "Active", R"([77,"Exec",[{"jobId":8,"jobStatus":2,"result":"R"}]])", true,
       "[Jobm_Deploy_Result][Succeeded]"},
      {-1, 10219, 5, "Active", R"([77,"Exec",[{"jobId":8,"jobStatus":0,"result":"R"}]])", true,
       "[Jobm_Deploy_Result][Unknown]"},
  };
  const std::string directory = generateDir("Exec", "8");
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    generateDir("Exec", "8");
    const CapturedLog log;
    syncEngineStringJobStatusToMaster({c.ackId, c.ackCode, 8, c.status, "Exec", "job's"}, "R");
    const auto reports = news();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].suffix, std::string("/scheduler/publish/syncStatus") + c.kind);
    EXPECT_EQ(reports[0].payload["attrs"], parsed(c.attrs));
    EXPECT_EQ(std::filesystem::exists(directory), c.directoryStays);
    EXPECT_TRUE(log.has(std::string(c.tag) + " [job's] jobid = 8 jobStatus= " +
                        std::to_string(c.status) + " result = R "));
  }
  setRunId(0);
  syncJobStatus({kNoAckId, 10201, 8, 3, "Exec", ""}, 0, "nothing on its own account");
  setRunId(77);
  setDeviceInfo("key", "");
  syncJobStatus({5, 10204, 8, 0, "Exec", ""}, 0, "nothing without a name");
  setDeviceInfo("key", "device");
  EXPECT_TRUE(news().empty());
  EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST(ResourcesReply, is_split_in_two_beyond_two_hundred_details_and_only_then_without_data) {
  for (const Json::ArrayIndex count : {200U, 201U}) {
    Json::Value details(Json::arrayValue);
    for (Json::ArrayIndex i = 0; i < count; ++i) details[i]["data"] = std::to_string(i);
    const bool split = count > 200;
    if (split) details[200] = "not an object";
    resourcesReply("deploy", "task", details, 1);
    const auto messages = news();
    ASSERT_EQ(messages.size(), split ? 2U : 1U);
    const Json::Value& first = messages[0].payload;
    const Json::Value& last = messages.back().payload;
    EXPECT_EQ(first["details"].size(), 200U);
    EXPECT_EQ(first["details"][199], details[199]) << "the caller's details change along";
    EXPECT_EQ(last["details"][split ? 0 : 199], details[count - 1]);
    EXPECT_EQ(first["isLastReply"], !split);
    EXPECT_EQ(last["isLastReply"], true);
    EXPECT_EQ(last["deployType"], 1);
    EXPECT_EQ(details[0].isMember("data"), !split);
  }
  for (const char* key : {"data", "message"}) {
    Json::Value tooLong(Json::arrayValue);
    tooLong[0]["success"] = false;
    tooLong[0][key] = std::string(kMaxPayload, 'x');
    resourcesReply("deploy", "task", tooLong, 0);
    EXPECT_EQ(news().at(0).payload["details"], parsed(R"([{"success":false}])"));
  }
}

TEST(Journal, keeps_a_report_until_the_bridge_has_taken_every_message_of_it) {
  const auto accept = [] { return onLoop([] { return acceptDeployment({"d", "task"}); }); };
  const Ticket ticket = accept();
  const auto stored = [&] {
    return parsed(getConfig("gw_jobm_deployment_" + std::to_string(ticket)));
  };
  EXPECT_EQ(stored()["deployId"], "d");
  setenv("GATEWAY_CONFIG_DB", "/dev/null/none", 1);
  onLoop([&] { publishReport(ticket, {"[0]"}); });
  unsetenv("GATEWAY_CONFIG_DB");
  EXPECT_TRUE(news().empty()) << "a restart would contradict it";
  onLoop(publishAgain);
  EXPECT_EQ(news().at(0).payload, parsed("[0]"));
  EXPECT_TRUE(eventually([&] { return stored().isNull(); }));
  EXPECT_EQ(accept(), ticket);
  const CapturedLog log;
  bridge().on("publish",
              [](const Received& call) { return call.text(1) == "[2]" ? R"({"code":5})" : "{}"; });
  onLoop([&] {
    publishReport(ticket, {"[1]", "[2]", "[3]"});
    publishAgain();  // all are under way
  });
  EXPECT_TRUE(eventually([&] { return log.has("the bridge did not take the report"); }));
  EXPECT_EQ(news().size(), 3U);
  EXPECT_EQ(stored()["messages"], parsed(R"(["[1]","[2]","[3]"])"));
  bridge().on("publish", {});
  setenv("GATEWAY_CONFIG_DB", "/dev/null/none", 1);
  onLoop(publishAgain);
  const auto again = news();
  ASSERT_EQ(again.size(), 2U);
  EXPECT_EQ(again[0].payload, parsed("[2]"));
  EXPECT_EQ(again[1].payload, parsed("[3]")) << "they are joined in their order";
  EXPECT_TRUE(eventually([&] { return log.has("deployment_0 could not be written"); }));
  unsetenv("GATEWAY_CONFIG_DB");
  EXPECT_FALSE(stored().isNull()) << "a restart would report again";
  onLoop(publishAgain);
  EXPECT_TRUE(stored().isNull());
  EXPECT_TRUE(news().empty());
  EXPECT_EQ(accept(), ticket);
  onLoop([&] { publishReport(ticket, {std::string(kMaxPayload + 8192, 'x')}); });
  EXPECT_TRUE(eventually([&] { return stored().isNull(); })) << "what no bus takes is let go";
}

}  // namespace
}  // namespace jobm
