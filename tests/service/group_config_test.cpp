#include "engine_api/group_config.h"

#include "support/test.h"

using namespace test;

namespace {

TEST(Version, is_that_of_the_working_directory_and_empty_without_one) {
  const fs::path before = fs::current_path();
  fs::create_directories("/tmp/var/here/bin");
  fs::current_path("/tmp/var/here/bin");
  ASSERT_TRUE(jobm::writeFile("/tmp/var/here/VERSION", " 1.2.3\n"));
  EXPECT_EQ(jobm::getVersion(), "1.2.3");
  fs::remove_all("/tmp/var/here");
  EXPECT_EQ(jobm::getVersion(), "");
  fs::current_path(before);
}

}  // namespace
