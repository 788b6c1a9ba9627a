#include <CapturedLog.h>
#include <TempFolder.h>
#include <WebServer.h>
#include <aes/job_aes.h>
#include <file_text.h>
#include <gtest/gtest.h>
#include <http_download_kiv.h>

#include <string>

namespace {

const std::string kLarge(3 * 1024 * 1024 + 17, 'x');
const std::string kEncrypted = "yYn9S5Twas8InQvvVVZCGA==";
const std::string kFormer = "what a former download left, and longer than most of them";

class Download : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(jobm::curl_init(), 0); }
  Download() {
    jobm::setDeviceSecretReader([] { return std::string("0123456789abcdef0123456789ABCDEF"); });
    EXPECT_TRUE(jobm::writeFile(file, kFormer));
  }

  std::string kept() const {
    std::string text;
    jobm::readFile(file, text);
    return text;
  }

  const test::TempFolder folder;
  const std::string file = folder / "file";
  test::WebServer server;
};

// How else a transfer may end, whole deployments show.
TEST_F(Download, KeepsWhatCameWithoutALengthAndBesidesAFailure) {
  server.serve("/page", {{.body = kLarge, .fault = test::Fault::noLength},
                         {.status = 404, .body = "no such page"}});
  EXPECT_EQ(jobm::http_download(server.url("/page"), file), 0);
  EXPECT_TRUE(kept() == kLarge);
  EXPECT_EQ(jobm::http_download(server.url("/page"), file), 404);
  EXPECT_EQ(kept(), "no such page");
}

TEST_F(Download, FailsWhenTheFileCanNotBeMadeOrTheDiskIsFull) {
  server.serve("/page", {{.body = "x"}, {.body = kLarge}});
  EXPECT_EQ(jobm::http_download(server.url("/page"), "/dev/full"), 23) << "seen at closing";
  EXPECT_EQ(jobm::http_download(server.url("/page"), "/dev/full"), 23) << "seen at writing";
  EXPECT_EQ(jobm::http_download(server.url("/page"), folder / "no/such/file"), -1);
  EXPECT_EQ(server.requests("/page"), 2U);
}

TEST_F(Download, PackageIsStoredDecryptedWhenItIsMarkedAndLooksEncrypted) {
  const struct {
    std::string content;
    bool encrypted;
    std::string expected;
  } cases[] = {{kEncrypted, false, kEncrypted},
               {kEncrypted, true, "hello"},
               {kEncrypted + "\n", true, kEncrypted + "\n"},
               {"", true, ""}};
  for (const auto& c : cases) {
    server.serve("/package", {{.body = c.content}});
    EXPECT_EQ(jobm::downloadJob(server.url("/package"), "kiv", file, c.encrypted), 0);
    EXPECT_EQ(kept(), c.expected);
    ASSERT_TRUE(jobm::writeFile(file, kFormer));
    EXPECT_EQ(jobm::downloadJob(c.content, "inline", file, c.encrypted), 0);
    EXPECT_EQ(kept(), c.expected);
  }
}

TEST_F(Download, PackageThatCanNotBeFetchedOrDecryptedIsAFailureUnlikeOneThatCanNotBeStored) {
  server.serve("/package", {{.status = 503, .body = "later"}, {.body = kEncrypted}});
  EXPECT_EQ(jobm::downloadJob(server.url("/package"), "kiv", file, true), 503);
  jobm::setDeviceSecretReader([] { return std::string(); });
  EXPECT_EQ(jobm::downloadJob(server.url("/package"), "kiv", file, true), -1);
  EXPECT_EQ(kept(), kEncrypted) << "stays as it came";
  EXPECT_EQ(jobm::downloadJob(kEncrypted, "inline", file, true), -1);
  EXPECT_EQ(kept(), "");
  const test::CapturedLog log;
  const std::string path = folder / "no/such/file";
  EXPECT_EQ(jobm::downloadJob("content", "inline", path, false), 0);
  EXPECT_TRUE(log.has("INFO downloadJob: " + path + " open Exception = No such file or directory"));
}

}  // namespace
