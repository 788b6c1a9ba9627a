#include <TempFolder.h>
#include <file_text.h>

#include <filesystem>

#include "engine_api/bus_control.h"
#include "engine_api/group_config.h"
#include "scheduler_side.h"

namespace {

using namespace jobm;

TEST(BusControl, KnowsWhoOwnsAName) {
  test::FakePeer owner("iot.test.owner");
  EXPECT_TRUE(nameHasOwner("iot.test.owner"));
  EXPECT_FALSE(nameHasOwner("iot.test.nobody"));
  EXPECT_EQ(startServiceByName("iot.test.nobody", 4), -1);
  EXPECT_EQ(getPidByName("iot.test.owner"), -1);
}

TEST(BusControl, LeavesAnEngineAloneThatIsBackByItself) {
  test::FakePeer back("iot.test.engine");
  const test::CapturedLog log;
  handleEngineDead("iot.test.engine");
  EXPECT_TRUE(log.has("MethodCall iot.test.engine NameHasOwner get reply : 1\n"));
  EXPECT_FALSE(log.has("StartServiceByName"));
}

TEST(Version, IsWhatTheFileInTheParentFolderSaysWithoutSpaceAround) {
  const auto before = std::filesystem::current_path();
  const test::TempFolder parent;
  std::filesystem::create_directory(parent / "work");
  std::filesystem::current_path(parent / "work");
  EXPECT_EQ(getVersion(), "");
  for (const auto& [content, version] : {std::pair{" \t1.2.3\r\n\n", "1.2.3"},
                                         std::pair{"1.2 beta", "1.2 beta"}, std::pair{" \n", ""}}) {
    writeFile(parent / "VERSION", content);
    EXPECT_EQ(getVersion(), version);
  }
  std::filesystem::current_path(before);
}

TEST(GroupConfig, IsRefusedWhateverItSays) {
  for (const auto& [payload, size] :
       {std::pair{"", 0}, {"eyJjb2RlIjowfQ==", 10}, {"not base64 !", 9}, {"short", 0}}) {
    const test::CapturedLog log;
    EXPECT_EQ(deployConfig("Exec", payload), 0) << payload;
    EXPECT_TRUE(log.has("size = " + std::to_string(size) + "\n")) << payload;
    EXPECT_TRUE(log.has("payloadeployConfig parse Error\n")) << payload;
  }
}

}  // namespace
