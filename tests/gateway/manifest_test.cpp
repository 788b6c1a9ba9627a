#include <TempFolder.h>
#include <file_text.h>
#include <gtest/gtest.h>
#include <manifest.h>

namespace {

TEST(Package, IsNotBuiltFromAManifestThatMakesNoRequest) {
  const test::TempFolder folder;
  const gateway::PackageSettings settings{
      .folder = folder.path(), .webRoot = folder / "web", .webUrl = ""};
  for (const char* manifest :
       {"", "[]", R"({"resources": 1})", R"({"resources": [1]})", R"({"resources": [{"id": "a"}]})",
        R"({"resources": [{"id": {}, "type": "t"}]})",
        R"({"resources": [{"id": "a", "type": "t", "config": "absent"}]})"}) {
    gateway::Package package;
    EXPECT_TRUE(jobm::writeFile(folder / "manifest.json", manifest));
    EXPECT_NE(gateway::buildPackage(settings, package), "") << manifest;
  }
}

}  // namespace
