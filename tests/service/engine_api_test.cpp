#include <TempFolder.h>
#include <file_text.h>
#include <unistd.h>

#include <filesystem>

#include "engine_api/bus_control.h"
#include "engine_api/group_config.h"
#include "scheduler_side.h"

namespace {

using namespace jobm;

constexpr const char* kServices = "/tmp/var/run/mbusd/services";

// A service that the daemon can start: each start adds a line to a file, and fails.
class StartedService {
 public:
  StartedService() {
    writeFile(unit, "[D-BUS Service]\nName=iot.test.engine\nExec=/bin/sh -c \"echo start >> " +
                        (folder / "starts") + "; exit 1\"\n");
    reload();
  }
  ~StartedService() {
    std::filesystem::remove(unit);
    reload();
  }
  StartedService(const StartedService&) = delete;
  StartedService& operator=(const StartedService&) = delete;

  std::string starts() const {
    std::string lines;
    readFile(folder / "starts", lines);
    return lines;
  }

 private:
  static void reload() {
    test::busCall("org.freedesktop.DBus", "/org/freedesktop/DBus", "ReloadConfig", {});
  }

  const test::TempFolder folder;
  const std::string unit = std::string(kServices) + "/iot.test.engine.service";
};

TEST(BusControl, KnowsWhoOwnsAName) {
  test::FakePeer owner("iot.test.owner");
  EXPECT_TRUE(nameHasOwner("iot.test.owner"));
  EXPECT_FALSE(nameHasOwner("iot.test.nobody"));
  EXPECT_FALSE(nameHasOwner("not a name"));
  EXPECT_EQ(startServiceByName("iot.test.nobody", 4), -1);
  EXPECT_EQ(getPidByName("iot.test.owner"), -1);
}

TEST(BusControl, HasADeadEngineStartedOnceUnlessItIsBack) {
  StartedService engine;
  handleEngineDead("iot.test.engine");
  EXPECT_EQ(engine.starts(), "start\n");
  test::FakePeer back("iot.test.engine");
  handleEngineDead("iot.test.engine");
  EXPECT_EQ(engine.starts(), "start\n");
  EXPECT_EQ(startServiceByName("iot.test.engine", 4), 2) << "runs already";
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
  for (const char* payload : {"", "eyJjb2RlIjowfQ==", "abc", "not base64 !", "===="}) {
    const test::CapturedLog log;
    EXPECT_EQ(deployConfig("Exec", payload), 0) << payload;
    EXPECT_TRUE(log.has("payloadeployConfig parse Error\n")) << payload;
  }
}

}  // namespace
