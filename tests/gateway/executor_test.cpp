#include <answers.h>
#include <call_fault.h>
#include <gtest/gtest.h>
#include <json_helper.h>
#include <misbehaviour.h>

namespace {

using gateway::Misbehaviour;

TEST(CallFault, CallsThatCarryWhatTheyShouldPassAndOthersDoNot) {
  const char* resource = R"([{"snapshotId":"s","resourceId":"r","resourceType":"t"}])";
  const char* withData = R"([{"snapshotId":"s","resourceId":"r","resourceType":"t","data":{}}])";
  const char* config = R"({"key":"k","value":"v","snapshotId":"s"})";
  const struct {
    const char* method;
    const char* signature;
    const char* payload;
    bool good;
  } cases[] = {
      {"deployJob", "s", resource, true},
      {"deployJob", "s", withData, false},
      {"deployJob", "ss", resource, false},
      {"deployJob", "s", "[]", false},
      {"deployJob", "s", "[1]", false},
      {"deployJob", "s", "ok", false},
      {"deleteJob", "s", withData, true},
      {"deleteJob", "", "", false},
      {"deployConfig", "s", config, true},
      {"deployConfig", "s", R"({"key":"k"})", false},
      {"resetJobs", "", "", true},
      {"resetJobs", "s", "", false},
      {"onWatchTypesFinish", "", "", true},
      {"initExecutor", "", "", true},
      {"getJobStatus", "s", R"({"jobId":1,"foreignKey":"k"})", true},
      {"getJobStatus", "s", R"({"jobId":"1","foreignKey":"k"})", false},
      {"stop", "s", "{}", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(gateway::callFault(c.method, c.signature, c.payload).empty(), c.good)
        << c.method << " " << c.payload;
  }
}

TEST(ExecutorAnswer, OneResourceCanFailWhileTheCallSucceeds) {
  const std::string payload = R"([{"resourceId":"a"},{"resourceId":"b"}])";
  const Misbehaviour bad{.kind = Misbehaviour::Kind::kCode, .value = 5, .resourceId = "b"};
  Json::Value answer;
  ASSERT_TRUE(
      jobm::json::parse(gateway::executorAnswer("deployJob", payload, "", true, &bad), answer));
  EXPECT_EQ(answer["code"], 0);
  ASSERT_EQ(answer["data"].size(), 2U);
  EXPECT_EQ(answer["data"][0]["code"], 0);
  EXPECT_EQ(answer["data"][1]["resourceId"], "b");
  EXPECT_EQ(answer["data"][1]["code"], 5);
}

TEST(Misbehaviour, IsReadFromOneWord) {
  std::map<std::string, Misbehaviour> table;
  EXPECT_TRUE(gateway::addMisbehaviour("deployJob=code:5@r@1", table));
  EXPECT_EQ(table["deployJob"].value, 5);
  EXPECT_EQ(table["deployJob"].resourceId, "r@1");
  EXPECT_TRUE(gateway::addMisbehaviour("deleteJob=late:30", table));
  EXPECT_EQ(table["deleteJob"].kind, Misbehaviour::Kind::kLate);
  for (const char* text : {"deployJob", "x=late", "x=late:", "x=code:-1", "x=die:1", "x=often"}) {
    EXPECT_FALSE(gateway::addMisbehaviour(text, table)) << text;
  }
}

}  // namespace
