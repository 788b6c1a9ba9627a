#include "util/http_download_kiv.h"

#include "support/WebServer.h"
#include "support/test.h"
#include "util/aes/job_aes.h"

using namespace test;

namespace {

const std::string kFile = "/tmp/var/file";

std::string kept() {
  std::string text;
  return jobm::readFile(kFile, text) ? text : "(none)";
}

// Whatever a server does with a connection that it has kept, only the number of connections tells.
TEST(HttpDownload, uses_a_connection_again_and_gets_the_same_over_a_spoilt_one) {
  ASSERT_EQ(jobm::curl_init(), 0);
  constexpr int kFiles = 20;
  const std::string file = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfile";
  const std::pair<Page, int> cases[] = {
      {{}, 1},
      {{.header = "Connection: close\r\n", .then = Then::end}, kFiles},
      {{.then = Then::end}, kFiles},
      {{.then = Then::reset}, kFiles},
      {{.lastWord = "HTTP/1.1 2"}, kFiles},
      {{.lastWord = "HTTP/1.1 408 Request Timeout\r\nContent-Length: 5\r\n\r\nsorry"}, kFiles},
      {{.lastWord = "what was behind the last file\r\n" + file}, kFiles},
  };
  for (const auto& [page, connections] : cases) {
    SCOPED_TRACE(&page - &cases[0].first);
    jobm::releaseConnections();
    WebServer server;
    const std::string url = server.serve(page);
    for (int i = 0; i < kFiles; ++i) {
      ASSERT_EQ(jobm::http_download(url, kFile), 0);
      ASSERT_EQ(kept(), "file");
    }
    EXPECT_EQ(server.connections, connections);
  }
  WebServer another;  // of which nothing was kept
  EXPECT_EQ(jobm::http_download(another.serve({.status = 404}), kFile), 404);
  EXPECT_EQ(another.connections, 1);
  EXPECT_EQ(jobm::http_download(another.serve({}), kFile), 0);
  EXPECT_EQ(jobm::http_download(another.serve({.status = 404}), kFile), 404);
  EXPECT_EQ(another.connections, 2) << "an answer is an answer, over a kept connection, too";
}

TEST(HttpDownload, tells_of_a_server_that_fails_after_it_was_reached_what_it_tells_of_a_new_one) {
  ASSERT_EQ(jobm::curl_init(), 0);
  const std::string half = "HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\nhalf";
  const std::tuple<Page, int, std::string> cases[] = {
      {{}, 0, "file"},
      {{.status = 404, .body = "none"}, 404, "none"},
      {{.body = "half", .missing = 4, .then = Then::end}, 18, "half"},
      {{.lastWord = half}, 0, "file"},
  };
  auto server = std::make_unique<WebServer>();
  const int port = server->port();
  std::string url;
  for (const auto& [page, result, text] : cases) {
    server = nullptr;
    server = std::make_unique<WebServer>(port);
    url = server->serve(page);
    EXPECT_EQ(jobm::http_download(url, kFile), result);
    EXPECT_EQ(kept(), text);
  }
  EXPECT_EQ(jobm::http_download(url, kFile), 0) << "the second answer of the connection is half";
  server = nullptr;
  EXPECT_EQ(jobm::http_download(url, kFile), 7);
}

TEST(HttpDownload, fetches_over_http_only) {
  ASSERT_EQ(jobm::curl_init(), 0);
  ASSERT_TRUE(jobm::writeFile("/tmp/var/local", "local"));
  for (const char* url : {"file:///tmp/var/local", "ftp://127.0.0.1:1/", "gopher://127.0.0.1:1/"}) {
    EXPECT_EQ(jobm::http_download(url, kFile), 1) << url;
    EXPECT_EQ(kept(), "");
  }
}

// How a transfer may end, whole deployments show.
TEST(DownloadJob, stores_a_package_decrypted_when_it_is_marked_and_looks_encrypted) {
  ASSERT_EQ(jobm::curl_init(), 0);
  WebServer server;
  jobm::setDeviceSecretReader([] { return std::string("0123456789abcdef0123456789ABCDEF"); });
  const std::string cipher = "yYn9S5Twas8InQvvVVZCGA==";
  const std::tuple<std::string, bool, std::string> cases[] = {{cipher, false, cipher},
                                                              {cipher, true, "hello"},
                                                              {cipher + "\n", true, cipher + "\n"},
                                                              {"", true, ""}};
  for (const auto& [content, encrypted, expected] : cases) {
    const std::string url = server.serve({.body = content});
    EXPECT_EQ(jobm::downloadJob(url, "kiv", kFile, encrypted), 0);
    EXPECT_EQ(kept(), expected);
    ASSERT_TRUE(jobm::writeFile(kFile, "what a former job left, and longer than most of them"));
    EXPECT_EQ(jobm::downloadJob(content, "inline", kFile, encrypted), 0);
    EXPECT_EQ(kept(), expected);
  }
  // A decryption that fails is a failure, unlike a package that can't be stored.
  const std::string url = server.serve({.body = cipher});
  jobm::setDeviceSecretReader([] { return std::string(); });
  EXPECT_EQ(jobm::downloadJob(url, "kiv", kFile, true), -1);
  EXPECT_EQ(kept(), cipher) << "stays as it came";
  EXPECT_EQ(jobm::downloadJob(cipher, "inline", kFile, true), -1);
  EXPECT_EQ(kept(), "");
  const CapturedLog log;
  const std::string path = kFile + "/no/such/file";
  EXPECT_EQ(jobm::downloadJob(url, "kiv", path, false), -1) << "not even fetched";
  EXPECT_EQ(jobm::downloadJob("content", "inline", path, false), 0);
  EXPECT_TRUE(log.has("INFO downloadJob: " + path + " open Exception = Not a directory"));
}

}  // namespace
