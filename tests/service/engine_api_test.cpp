#include <TempFolder.h>
#include <file_text.h>

#include <filesystem>

#include "engine_api/bus_control.h"
#include "engine_api/group_config.h"
#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

TEST(BusControl, leaves_an_engine_alone_that_is_back_by_itself_and_survives_one_that_is_unknown) {
  FakePeer back("iot.test.engine");
  const CapturedLog log;
  handleEngineDead("iot.test.engine");
  EXPECT_TRUE(log.has("MethodCall iot.test.engine NameHasOwner get reply : 1\n"));
  EXPECT_FALSE(log.has("StartServiceByName"));
  EXPECT_EQ(startServiceByName("iot.test.nobody", 4), -1);
  EXPECT_EQ(getPidByName("iot.test.engine"), -1);
}

TEST(Version, is_what_the_file_in_the_parent_folder_says_without_space_around) {
  const auto before = std::filesystem::current_path();
  const TempFolder parent;
  std::filesystem::create_directory(parent / "work");
  std::filesystem::current_path(parent / "work");
  EXPECT_EQ(getVersion(), "");
  writeFile(parent / "VERSION", " \t1.2 beta\r\n\n");
  EXPECT_EQ(getVersion(), "1.2 beta");
  std::filesystem::current_path(before);
}

TEST(GroupConfig, is_refused_whatever_it_says) {
  for (const auto& [payload, size] : {std::pair{"", 0}, {"eyJjb2RlIjowfQ==", 10}, {"no !", 3}}) {
    const CapturedLog log;
    EXPECT_EQ(deployConfig("Exec", payload), 0) << payload;
    EXPECT_TRUE(log.has("size = " + std::to_string(size) + "\n")) << log.text();
    EXPECT_TRUE(log.has("payloadeployConfig parse Error\n")) << payload;
  }
}

}  // namespace
}  // namespace jobm
