#include <CapturedLog.h>
#include <TempFolder.h>
#include <WebServer.h>
#include <aes/job_aes.h>
#include <file_text.h>
#include <gtest/gtest.h>
#include <http_download_kiv.h>

#include <string>
#include <tuple>

namespace {

const std::string kEncrypted = "yYn9S5Twas8InQvvVVZCGA==";

class Download : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(jobm::curl_init(), 0); }
  Download() {
    jobm::setDeviceSecretReader([] { return std::string("0123456789abcdef0123456789ABCDEF"); });
  }

  std::string kept() const {
    std::string text;
    return jobm::readFile(file, text) ? text : "(none)";
  }

  const test::TempFolder folder;
  const std::string file = folder / "file";
  test::WebServer server;
};

// How else a transfer may end, whole deployments show.
TEST_F(Download, NeedsNoLengthButRoomForWhatComes) {
  std::string large;  // in which a piece that is lost, doubled or moved is seen
  for (int i = 0; i < 400000; ++i) large += std::to_string(i) + " ";
  const std::string url = server.serve({.body = large, .fault = test::Fault::noLength});
  EXPECT_EQ(jobm::http_download(url, file), 0);
  EXPECT_TRUE(kept() == large);
  EXPECT_EQ(jobm::http_download(url, "/dev/full"), 23);
  EXPECT_EQ(jobm::http_download(url, folder / "no/such/file"), -1);
}

TEST_F(Download, PackageIsStoredDecryptedWhenItIsMarkedAndLooksEncrypted) {
  const std::tuple<std::string, bool, std::string> cases[] = {
      {kEncrypted, false, kEncrypted},
      {kEncrypted, true, "hello"},
      {kEncrypted + "\n", true, kEncrypted + "\n"},
      {"", true, ""}};
  for (const auto& [content, encrypted, expected] : cases) {
    const std::string url = server.serve({.body = content});
    EXPECT_EQ(jobm::downloadJob(url, "kiv", file, encrypted), 0);
    EXPECT_EQ(kept(), expected);
    ASSERT_TRUE(jobm::writeFile(file, "what a former job left, and longer than most of them"));
    EXPECT_EQ(jobm::downloadJob(content, "inline", file, encrypted), 0);
    EXPECT_EQ(kept(), expected);
  }
}

TEST_F(Download, PackageThatCanNotBeDecryptedIsAFailureUnlikeOneThatCanNotBeStored) {
  const std::string url = server.serve({.body = kEncrypted});
  jobm::setDeviceSecretReader([] { return std::string(); });
  EXPECT_EQ(jobm::downloadJob(url, "kiv", file, true), -1);
  EXPECT_EQ(kept(), kEncrypted) << "stays as it came";
  EXPECT_EQ(jobm::downloadJob(kEncrypted, "inline", file, true), -1);
  EXPECT_EQ(kept(), "");
  const test::CapturedLog log;
  const std::string path = folder / "no/such/file";
  EXPECT_EQ(jobm::downloadJob("content", "inline", path, false), 0);
  EXPECT_TRUE(log.has("INFO downloadJob: " + path + " open Exception = No such file or directory"));
}

}  // namespace
