#include "util/http_download_kiv.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "lib/file_text.h"
#include "support/CapturedLog.h"
#include "support/WebServer.h"
#include "util/aes/job_aes.h"

namespace {

// How a transfer may end is tested with whole deployments.
TEST(DownloadJob, stores_a_package_decrypted_when_it_is_marked_and_looks_encrypted) {
  ASSERT_EQ(jobm::curl_init(), 0);
  const std::string file = "/tmp/var/file";
  const auto kept = [&] {
    std::string text;
    return jobm::readFile(file, text) ? text : "(none)";
  };
  test::WebServer server;
  jobm::setDeviceSecretReader([] { return std::string("0123456789abcdef0123456789ABCDEF"); });
  const std::string cipher = "yYn9S5Twas8InQvvVVZCGA==";
  const std::tuple<std::string, bool, std::string> cases[] = {{cipher, false, cipher},
                                                              {cipher, true, "hello"},
                                                              {cipher + "\n", true, cipher + "\n"},
                                                              {"", true, ""}};
  for (const auto& [content, encrypted, expected] : cases) {
    const std::string url = server.serve({.body = content});
    EXPECT_EQ(jobm::downloadJob(url, "kiv", file, encrypted), 0);
    EXPECT_EQ(kept(), expected);
    ASSERT_TRUE(jobm::writeFile(file, "what a former job left, and longer than most of them"));
    EXPECT_EQ(jobm::downloadJob(content, "inline", file, encrypted), 0);
    EXPECT_EQ(kept(), expected);
  }
  // A decryption that fails is a failure, unlike a package that can't be stored.
  const std::string url = server.serve({.body = cipher});
  jobm::setDeviceSecretReader([] { return std::string(); });
  EXPECT_EQ(jobm::downloadJob(url, "kiv", file, true), -1);
  EXPECT_EQ(kept(), cipher) << "stays as it came";
  EXPECT_EQ(jobm::downloadJob(cipher, "inline", file, true), -1);
  EXPECT_EQ(kept(), "");
  const test::CapturedLog log;
  const std::string path = file + "/no/such/file";
  EXPECT_EQ(jobm::downloadJob(url, "kiv", path, false), -1) << "not even fetched";
  EXPECT_EQ(jobm::downloadJob("content", "inline", path, false), 0);
  EXPECT_TRUE(log.has("INFO downloadJob: " + path + " open Exception = Not a directory"));
}

}  // namespace
