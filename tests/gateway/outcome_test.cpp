#include <outcome.h>

#include <parsed.h>

namespace {

TEST(Outcome, IsASuccessOnlyWithEveryResource) {
  const std::pair<const char*, bool> cases[] = {
      {R"({"event":"report","resources":[{"success":true},{"operate":1,"success":null}]})", true},
      {R"({"event":"report","resources":[{"success":true},{"success":null}]})", false},
      {R"({"event":"report","resources":[{"success":false},{"success":true}]})", false},
      {R"({"event":"status","jobStatus":0})", true},
      {R"({"event":"status","jobStatus":4})", false},
  };
  for (const auto& [event, good] : cases) {
    EXPECT_EQ(gateway::succeeded(test::parsed(event)), good) << event;
  }
}

TEST(Outcome, DiffersFromAnExpectationInTypesAndInMissingAndAdditionalResources) {
  const Json::Value event = test::parsed(R"({"resources":[
      {"resourceId":"a","success":true,"code":"0"},{"resourceId":"b","success":true,"code":null}]})");
  const std::pair<const char*, std::size_t> cases[] = {
      {R"({"a":{"code":"0"},"b":{"success":true}})", 0},
      {R"({"a":{"code":0},"b":{"code":null}})", 1},
      {R"({"a":{"code":"1","success":false},"b":{}})", 2},
      {R"({"a":{}})", 1},
      {R"({"a":{},"b":{},"c":{}})", 1},
  };
  for (const auto& [expected, differences] : cases) {
    EXPECT_EQ(gateway::differences(event, test::parsed(expected)).size(), differences) << expected;
  }
}

}  // namespace
