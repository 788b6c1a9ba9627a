#include <call_fault.h>
#include <gtest/gtest.h>

namespace {

// Calls as they should be are what a whole gateway makes all the time; these it never makes.
TEST(CallFault, IsFoundInEveryCallThatDoesNotCarryWhatItShould) {
  const struct {
    const char *method, *signature, *payload;
  } cases[] = {
      {"deployJob", "s", R"([{"snapshotId":"s","resourceId":"r","resourceType":"t","data":{}}])"},
      {"deployJob", "ss", R"([{"snapshotId":"s","resourceId":"r","resourceType":"t"}])"},
      {"deployJob", "s", R"([{"snapshotId":"s","resourceType":"t"}])"},
      {"deployJob", "s", "[]"},
      {"deleteJob", "s", "ok"},
      {"deployConfig", "s", R"({"key":"k","value":{},"snapshotId":"s"})"},
      {"resetJobs", "s", ""},
      {"getJobStatus", "s", R"({"jobId":"1","foreignKey":"k"})"},
      {"stop", "s", "{}"},
  };
  for (const auto& c : cases) {
    EXPECT_NE(gateway::callFault(c.method, c.signature, c.payload), "")
        << c.method << " " << c.payload;
  }
}

}  // namespace
