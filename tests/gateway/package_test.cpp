#include <aes/job_aes.h>
#include <digest.h>
#include <file_text.h>
#include <gtest/gtest.h>
#include <json_helper.h>
#include <manifest.h>
#include <sys/stat.h>
#include <task_unzip.h>
#include <zip_folder.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using gateway::Package;

class PackageTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder / "page/fileList/css");
    fs::create_directories(folder / "page/empty");
    jobm::writeFile(folder / "page/config.json", "{}");
    jobm::writeFile(folder / "page/fileList/css/a.css", std::string(100000, 'a'));
    jobm::writeFile(folder / "run", "#!/bin/sh\n");
    fs::permissions(folder / "run", fs::perms::owner_exec, fs::perm_options::add);
    jobm::writeFile(folder / "rule.json", "abc");
  }
  void TearDown() override { fs::remove_all(folder); }

  std::string build(const std::string& manifest, Package& package, bool deletes = false) {
    jobm::writeFile(folder / "manifest.json", manifest);
    return gateway::buildPackage({.folder = folder.string(),
                                  .webRoot = (folder / "web").string(),
                                  .webUrl = "http://host",
                                  .deletes = deletes},
                                 package);
  }

  // The file that a resource's address points to.
  std::string published(const Json::Value& resource, const char* key) const {
    return (folder / "web").string() +
           resource[key].asString().substr(std::string("http://host").size());
  }

  const fs::path folder = fs::path(testing::TempDir()) / ("package" + std::to_string(getpid()));
};

TEST_F(PackageTest, AFileIsServedAsTextAndAFolderAsAnArchiveWithTheSumsOfWhatIsServed) {
  Package package;
  ASSERT_EQ(build(R"({"name": "n", "resources": [
      {"id": "r", "type": "rule", "name": "R", "config": "rule.json", "content": "page"}]})",
                  package),
            "");
  EXPECT_EQ(package.name, "n");
  EXPECT_EQ(package.request["deployType"], 0);
  const Json::Value& resource = package.request["resources"][0];
  EXPECT_EQ(resource["operate"], 0);
  EXPECT_EQ(resource["resourceName"], "R");
  EXPECT_EQ(resource["configFormat"], "text");
  EXPECT_EQ(resource["configMd5"], "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(resource["contentFormat"], "zip");
  EXPECT_EQ(resource["contentMd5"], gateway::md5OfFile(published(resource, "contentKivAddress")));
  std::string text;
  ASSERT_TRUE(jobm::readFile(published(resource, "configKivAddress"), text));
  EXPECT_EQ(text, "abc");
}

TEST_F(PackageTest, BrokenResourcesAreMissingOrHaveAnotherSum) {
  Package package;
  ASSERT_EQ(build(R"({"resources": [
      {"id": "a", "type": "t", "config": "rule.json", "broken": "missing"},
      {"id": "b", "type": "t", "config": "rule.json", "broken": "checksum"}]})",
                  package),
            "");
  const Json::Value& resources = package.request["resources"];
  EXPECT_FALSE(fs::exists(published(resources[0], "configKivAddress")));
  const std::string served = published(resources[1], "configKivAddress");
  EXPECT_TRUE(fs::exists(served));
  EXPECT_NE(resources[1]["configMd5"].asString(), gateway::md5OfFile(served));
}

TEST_F(PackageTest, DeletedResourcesCarryNoFiles) {
  Package package;
  const char* manifest = R"({"resources": [{"id": "a", "type": "t", "config": "rule.json"}]})";
  ASSERT_EQ(build(manifest, package, true), "");
  EXPECT_EQ(package.request["resources"][0]["operate"], 1);
  EXPECT_FALSE(package.request["resources"][0].isMember("configKivAddress"));
}

TEST_F(PackageTest, ManifestsThatMakeNoRequestAreRefused) {
  for (const char* manifest :
       {"", "[]", R"({"resources": 1})", R"({"resources": [1]})", R"({"resources": [{"id": "a"}]})",
        R"({"resources": [{"id": {}, "type": "t"}]})",
        R"({"resources": [{"id": "a", "type": "t", "config": "absent"}]})"}) {
    Package package;
    EXPECT_NE(build(manifest, package), "") << manifest;
  }
}

TEST_F(PackageTest, TheServiceUnpacksTheArchiveOfAFolderWithItsAccessRights) {
  fs::copy(folder / "run", folder / "page/run");
  const std::string archive = folder / "a.zip";
  ASSERT_EQ(gateway::zipFolder(folder / "page", archive), "");
  const fs::path target = folder / "unpacked";
  fs::create_directories(target);
  ASSERT_EQ(jobm::unzipTask(archive, target), 0);
  EXPECT_TRUE(fs::is_directory(target / "empty"));
  EXPECT_EQ(access((target / "run").c_str(), X_OK), 0);
  EXPECT_EQ(gateway::md5OfFile(target / "fileList/css/a.css"),
            gateway::md5OfFile(folder / "page/fileList/css/a.css"));
}

TEST(Seal, TheServiceOpensWhatIsSealedWithTheDeviceSecret) {
  static std::string secret;
  jobm::setDeviceSecretReader([] { return secret; });
  // A secret that is too short and one that is too long; texts around the ends of blocks.
  for (const char* given : {"short", "0123456789abcdef0123456789abcdefgh"}) {
    secret = given;
    for (const std::size_t length : {1U, 15U, 16U, 17U, 47U, 48U, 100000U}) {
      const std::string text(length, 'x');
      std::string opened;
      EXPECT_EQ(jobm::aesJobDecrypt(gateway::seal(text, secret), opened), 0);
      EXPECT_EQ(opened, text) << length;
    }
  }
}

}  // namespace
