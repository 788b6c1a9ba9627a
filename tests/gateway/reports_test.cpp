#include <gtest/gtest.h>
#include <json_helper.h>
#include <reports.h>

namespace {

using gateway::ReportJoiner;

Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(jobm::json::parse(text, value)) << text;
  return value;
}

Json::Value part(const std::string& deployId, bool last, int first, int count) {
  Json::Value message(Json::objectValue);
  message["deployId"] = deployId;
  message["taskId"] = "t";
  message["isLastReply"] = last;
  message["deployType"] = 0;
  message["details"] = Json::Value(Json::arrayValue);
  for (int i = first; i < first + count; ++i) {
    Json::Value detail(Json::objectValue);
    detail["snapshotId"] = std::to_string(i);
    message["details"].append(detail);
  }
  return message;
}

TEST(ReportJoiner, AResultInTwoPartsComesOutWholeAlsoWithAnotherInBetween) {
  ReportJoiner joiner;
  EXPECT_FALSE(joiner.add(part("a", false, 0, 200)));
  const auto other = joiner.add(part("b", true, 0, 1));
  ASSERT_TRUE(other);
  EXPECT_EQ((*other)["details"].size(), 1U);
  const auto whole = joiner.add(part("a", true, 200, 50));
  ASSERT_TRUE(whole);
  EXPECT_EQ((*whole)["messages"], 2);
  ASSERT_EQ((*whole)["details"].size(), 250U);
  EXPECT_EQ((*whole)["details"][249]["snapshotId"], "249");
  // Nothing of it is left for the next one.
  EXPECT_EQ((*joiner.add(part("a", true, 0, 1)))["details"].size(), 1U);
}

TEST(ReportFault, NamesWhatIsWrongWithAMessage) {
  EXPECT_EQ(gateway::reportFault(part("a", true, 0, 300)), "");
  EXPECT_EQ(gateway::reportFault(json(R"({"isLastReply":true,"deployType":0,"details":[null]})")),
            "");
  const std::pair<const char*, const char*> changes[] = {
      {"deployId", R"("")"},  {"taskId", "1"},   {"isLastReply", "1"},
      {"deployType", "null"}, {"details", "{}"}, {"more", "1"}};
  for (const auto& [member, value] : changes) {
    Json::Value message = part("a", true, 0, 1);
    message[member] = json(std::string("[") + value + "]")[0];
    EXPECT_NE(gateway::reportFault(message), "") << member;
  }
  EXPECT_NE(gateway::reportFault(part("a", false, 0, 199)), "");
  EXPECT_NE(gateway::reportFault(json("[]")), "");
}

TEST(RowsOf, FindsTheResourceOfEachDetailAndHidesNothing) {
  const Json::Value request = json(R"({"resources":[
      {"resourceId":"r1","snapshotId":"s1","operate":0},{"resourceId":"r2","snapshotId":"s2"},
      {"resourceId":"r3","snapshotId":"s3","operate":1}]})");
  const Json::Value details = json(R"([
      {"snapshotId":"s2","success":true,"code":"0","message":"m"},
      {"snapshotId":"s2","success":false,"code":"7","message":"again"},
      {"snapshotId":"foreign","success":true}, null, {"code":0,"detail":"reset","success":true}])");
  const Json::Value rows = gateway::rowsOf(request, details);
  ASSERT_EQ(rows.size(), 7U);
  EXPECT_EQ(rows[0]["resourceId"], "r1");
  EXPECT_EQ(rows[0]["success"], false);
  EXPECT_EQ(rows[0]["message"], "no result");
  EXPECT_EQ(rows[1]["resourceId"], "r2");
  EXPECT_EQ(rows[1]["message"], "m");
  EXPECT_TRUE(rows[2]["success"].isNull());
  EXPECT_EQ(rows[3]["message"], "again");
  EXPECT_TRUE(rows[4]["success"].isNull());
  EXPECT_EQ(rows[5]["message"], "reset");
  EXPECT_EQ(rows[6]["snapshotId"], "foreign");
}

}  // namespace
