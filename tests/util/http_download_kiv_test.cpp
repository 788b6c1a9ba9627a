#include <CapturedLog.h>
#include <TempFolder.h>
#include <WebServer.h>
#include <aes/job_aes.h>
#include <file_text.h>
#include <gtest/gtest.h>
#include <http_download_kiv.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using test::Fault;
using test::Page;

constexpr std::size_t kLarge = 3 * 1024 * 1024 + 17;
const std::string kEncrypted = "yYn9S5Twas8InQvvVVZCGA==";

class Download : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(jobm::curl_init(), 0); }
  Download() {
    jobm::setDeviceSecretReader([] { return std::string("0123456789abcdef0123456789ABCDEF"); });
  }

  std::string fileText() const {
    std::string text;
    jobm::readFile(file, text);
    return text;
  }

  const test::TempFolder folder;
  const std::string file = folder / "file";
  test::WebServer server;
};

TEST_F(Download, ReportsHowATransferEndedAndKeepsWhatCame) {
  const std::string large = test::patternBody(kLarge);
  struct Case {
    const char* path;
    Page page;
    int expected;
    std::string kept;
  };
  const std::vector<Case> cases = {
      {"/small", {.body = "content"}, 0, "content"},
      {"/no-length", {.body = large, .fault = Fault::noLength}, 0, large},
      {"/slow", {.body = large, .fault = Fault::slow}, 0, large},
      {"/not-found", {.status = 404, .body = "no such page"}, 404, "no such page"},
      {"/moved", {.status = 302, .body = "there", .headers = "Location: /small\r\n"}, 302, "there"},
      {"/cut", {.body = large, .fault = Fault::cutShort}, 18, large.substr(0, kLarge / 2)},
      {"/nothing", {.fault = Fault::noAnswer}, 52, ""},
      {"/garbage", {.fault = Fault::garbage}, 1, ""},
  };
  for (const Case& c : cases) {
    ASSERT_TRUE(jobm::writeFile(file, "what a former download left, and longer than most"));
    server.serve(c.path, {c.page});
    EXPECT_EQ(jobm::http_download(server.url(c.path), file), c.expected) << c.path;
    EXPECT_TRUE(fileText() == c.kept) << c.path;
    EXPECT_EQ(server.requests(c.path), 1U);
  }
}

TEST_F(Download, FailsWhenTheFileCanNotBeMadeOrTheDiskIsFull) {
  server.serve("/page", {{.body = "x"}, {.body = test::patternBody(kLarge)}});
  EXPECT_EQ(jobm::http_download(server.url("/page"), "/dev/full"), 23) << "seen at closing";
  EXPECT_EQ(jobm::http_download(server.url("/page"), "/dev/full"), 23) << "seen at writing";
  EXPECT_EQ(jobm::http_download(server.url("/page"), folder / "no/such/file"), -1);
  EXPECT_EQ(server.requests("/page"), 2U);
}

TEST_F(Download, PackageIsStoredDecryptedWhenItIsMarkedAndLooksEncrypted) {
  struct Case {
    std::string content;
    bool encrypted;
    std::string expected;
  };
  const Case cases[] = {
      {kEncrypted, false, kEncrypted},
      {kEncrypted, true, "hello"},
      {kEncrypted + "\n", true, kEncrypted + "\n"},
      {"{\"a\":1}", true, "{\"a\":1}"},
      {"Zm9\x80", true, "Zm9\x80"},
      {"", true, ""},
  };
  for (const Case& c : cases) {
    server.serve("/package", {{.body = c.content}});
    EXPECT_EQ(jobm::downloadJob(server.url("/package"), "kiv", file, c.encrypted), 0);
    EXPECT_EQ(fileText(), c.expected);
    ASSERT_TRUE(jobm::writeFile(file, "what a former job left, and longer than most of them"));
    EXPECT_EQ(jobm::downloadJob(c.content, "inline", file, c.encrypted), 0);
    EXPECT_EQ(fileText(), c.expected);
  }
}

TEST_F(Download, PackageThatCanNotBeFetchedOrDecryptedIsAFailureUnlikeOneThatCanNotBeStored) {
  server.serve("/package", {{.status = 503, .body = "later"}, {.body = kEncrypted}});
  EXPECT_EQ(jobm::downloadJob(server.url("/package"), "kiv", file, true), 503);
  jobm::setDeviceSecretReader([] { return std::string(); });
  EXPECT_EQ(jobm::downloadJob(server.url("/package"), "kiv", file, true), -1);
  EXPECT_EQ(fileText(), kEncrypted) << "stays as it came";
  EXPECT_EQ(jobm::downloadJob(kEncrypted, "inline", file, true), -1);
  EXPECT_EQ(fileText(), "");
  const test::CapturedLog log;
  const std::string path = folder / "no/such/file";
  EXPECT_EQ(jobm::downloadJob("content", "inline", path, false), 0);
  EXPECT_TRUE(log.has("INFO downloadJob: " + path + " open Exception = No such file or directory"));
}

}  // namespace
