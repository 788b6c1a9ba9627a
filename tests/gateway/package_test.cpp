#include "lib/json_helper.h"
#include "package/manifest.h"
#include "support/test.h"

using namespace test;

namespace {

const fs::path kRoot = "/tmp/var/package";

// What becomes of a resource of this id, whose configuration is this file, relative to the folder
// of the manifest.
std::string built(const std::string& id, const std::string& config) {
  Json::Value manifest;
  manifest["resources"][0]["id"] = id;
  manifest["resources"][0]["type"] = "label";
  manifest["resources"][0]["config"] = config;
  EXPECT_TRUE(jobm::writeFile(kRoot / "parent/own/manifest.json", jobm::json::compact(manifest)));
  gateway::Package package;
  return gateway::buildPackage(
      {.folder = kRoot / "parent/own", .webRoot = kRoot / "web", .webUrl = "http://web"}, package);
}

TEST(Package, has_files_of_its_folder_and_those_beside_it_and_writes_into_its_own) {
  fs::remove_all(kRoot);
  for (const char* file : {"parent/own/x", "parent/other/x", "x"}) {
    fs::create_directories((kRoot / file).parent_path());
    ASSERT_TRUE(jobm::writeFile(kRoot / file, "text"));
  }
  fs::create_symlink("../../x", kRoot / "parent/own/link");
  for (const char* near : {"x", "../own/x", "../other/x", "../other", "./../other/../own/x"}) {
    EXPECT_EQ(built("..", near), "") << near;
  }
  const std::string absolute = kRoot / "x";
  for (const std::string& far : {absolute, std::string("../../x"), std::string(".."),
                                 std::string("link"), std::string("../../parent/../x")}) {
    EXPECT_NE(built("label-1", far).find("is not beside its manifest"), std::string::npos) << far;
  }
  for (const char* id : {"../../escaped", "/tmp/var/package/escaped", "a/b"}) {
    EXPECT_NE(built(id, "x").find("can't be part"), std::string::npos) << id;
  }
  EXPECT_FALSE(fs::exists(kRoot / "escaped.config"));
}

}  // namespace
