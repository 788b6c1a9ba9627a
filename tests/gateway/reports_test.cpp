#include <reports.h>

#include <parsed.h>

namespace {

TEST(ReportFault, IsFoundForEachMemberThatIsMissingOrWrong) {
  const Json::Value good = test::parsed(
      R"({"deployId":"d","taskId":"t","isLastReply":true,"deployType":0,"details":[null]})");
  EXPECT_EQ(gateway::reportFault(good), "");
  const std::pair<const char*, Json::Value>
      changes[] = {{"deployId", ""},      {"taskId", 1},     {"isLastReply", Json::Value()},
                   {"deployType", "0"},   {"details", "[]"}, {"more", 1},
                   {"isLastReply", false}};  // of a split one, but without its 200 details
  for (const auto& [member, value] : changes) {
    Json::Value message = good;
    message[member] = value;
    EXPECT_NE(gateway::reportFault(message), "") << member;
  }
}

TEST(RowsOf, FindsTheResourceOfEachDetailAndHidesNothing) {
  const Json::Value request = test::parsed(R"({"resources":[
      {"resourceId":"r1","snapshotId":"s1","operate":0},{"resourceId":"r2","snapshotId":"s2"},
      {"resourceId":"r3","snapshotId":"s3","operate":1}]})");
  const Json::Value details = test::parsed(R"([
      {"snapshotId":"s2","success":true,"message":"m"},
      {"snapshotId":"s2","success":false,"message":"again"},
      {"snapshotId":"foreign","success":true}, null, {"code":0,"detail":"reset","success":true}])");
  std::string seen;
  for (const Json::Value& row : gateway::rowsOf(request, details)) {
    for (const char* key : {"resourceId", "success", "message"}) {
      seen += jobm::json::compact(row[key]);
    }
  }
  std::erase(seen, '\n');
  EXPECT_EQ(seen, R"("r1"false"no result""r2"true"m""r3"null"no result")"
                  R"(nullfalse"again"nullnullnullnulltrue"reset"nulltruenull)");
}

}  // namespace
