#include "executor_api/job_status.h"

#include <gtest/gtest.h>

#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

constexpr const char* kActive = "/sys/key/device/scheduler/publish/syncStatusActive";

TEST(JobStatus, of_an_executor_goes_to_the_scheduler_as_that_of_an_added_job) {
  // The payload and the "attrs" that are published, none for a report that is refused. One that
  // were passed on all the same would be found in the place of the next.
  const std::pair<const char*, const char*> cases[] = {
      {R"({"jobId":7,"jobStatus":3,"executor":"IFTTTEngine","result":"ok","foreignKey":"k"})",
       R"([77,"IFTTTEngine",[{"jobId":7,"jobStatus":3,
           "result":"{\n   \"code\" : 3,\n   \"detail\" : \"ok\"\n}\n"}]])"},
      {"not JSON", nullptr},
      {R"({"jobId":7,"result":{}})", nullptr},
      {R"({"jobId":8,"jobStatus":-1})",
       R"([77,"",[{"jobId":8,"jobStatus":-1,
           "result":"{\n   \"code\" : 18446744073709551615,\n   \"detail\" : \"\"\n}\n"}]])"},
  };
  for (const auto& [payload, attrs] : cases) {
    SCOPED_TRACE(payload);
    const std::size_t before = published(kActive).size();
    EXPECT_EQ(onLoop([p = payload] { return reportJobStatus(p); }), attrs != nullptr);
    if (attrs == nullptr) continue;
    ASSERT_TRUE(eventually([&] { return published(kActive).size() > before; }));
    EXPECT_EQ(published(kActive)[before]["attrs"], parsed(attrs));
  }
}

}  // namespace
}  // namespace jobm
