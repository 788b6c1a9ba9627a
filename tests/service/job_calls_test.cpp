#include "executor_api/job_calls.h"

#include <dbus_process_call.h>
#include <gtest/gtest.h>
#include <json_helper.h>

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

TEST(JobCalls, to_nobody_say_so_at_once) {
  Json::Value items;
  EXPECT_EQ(onLoop([&] { return deployEJob("", "", items, "nobody", {}); }),
            parsed(R"({"code":101200,"message":"nobody not exist"})"));
  EXPECT_EQ(onLoop([&] { return deleteEJob("", "", items, "nobody", {}); })["code"], 101200);
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
