#include <gtest/gtest.h>
#include <json_helper.h>
#include <outcome.h>

namespace {

Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(jobm::json::parse(text, value)) << text;
  return value;
}

TEST(Outcome, AReportSucceedsOnlyWithEveryResource) {
  EXPECT_TRUE(gateway::succeeded(json(R"({"event":"report","resources":[{"success":true}]})")));
  EXPECT_FALSE(gateway::succeeded(
      json(R"({"event":"report","resources":[{"success":true},{"success":null}]})")));
  EXPECT_TRUE(
      gateway::succeeded(json(R"({"event":"report","resources":[{"operate":1,"success":null}]})")));
  EXPECT_TRUE(gateway::succeeded(json(R"({"event":"status","jobStatus":0})")));
  EXPECT_FALSE(gateway::succeeded(json(R"({"event":"status","jobStatus":4})")));
}

TEST(Outcome, ExpectationsTellTextsFromNumbersAndMissFewerAndMoreResources) {
  const Json::Value event = json(R"({"resources":[
      {"resourceId":"a","success":true,"code":"0"},{"resourceId":"b","success":true,"code":null}]})");
  const struct {
    const char* expected;
    std::size_t differences;
  } cases[] = {
      {R"({"a":{"code":"0"},"b":{"success":true}})", 0},
      {R"({"a":{"code":0},"b":{"code":null}})", 1},
      {R"({"a":{"code":"1","success":false},"b":{}})", 2},
      {R"({"a":{}})", 1},
      {R"({"a":{},"b":{},"c":{}})", 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(gateway::differences(event, json(c.expected)).size(), c.differences) << c.expected;
  }
}

}  // namespace
