// The log's way into the journal, with a socket of the test's in the journal's place.

#define LOG_FUNCTION "f"
#include <gateway/log_context.h>
#include <gateway/log_macros.h>
#include <gateway/signal_context.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>

#include "support/test.h"

using namespace test;

namespace {

constexpr const char* kRun = "/run";

class Journal : public testing::Test {
 protected:
  // In the sandbox's own mount namespace.
  Journal() : isThere(mount("tmpfs", kRun, "tmpfs", 0, nullptr) == 0) {
    if (!isThere) return;
    std::filesystem::create_directories("/run/systemd/journal");
    constexpr sockaddr_un kAddress{AF_UNIX, "/run/systemd/journal/socket"};
    EXPECT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress), 0);
  }
  ~Journal() override {
    unsetenv("JOURNAL_STREAM");
    log_init("platform_test", 1, 1, 2);
    close(socket);
    if (isThere) umount2(kRun, MNT_DETACH);
  }
  void SetUp() override {
    if (!isThere) GTEST_SKIP() << "nothing can be mounted here";
  }

  // Opens the log with standard error as the journal's stream, or as another one.
  static void open(bool isStream) {
    struct stat info {};
    fstat(STDERR_FILENO, &info);
    const std::string stream =
        std::to_string(info.st_dev) + ':' + std::to_string(info.st_ino + (isStream ? 0 : 1));
    setenv("JOURNAL_STREAM", stream.c_str(), 1);
    log_init("program", 1, 1, 2);
  }

  // The next entry; "" when there is none.
  std::string entry() const {
    std::array<char, 8192> buffer{};
    const ssize_t got = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    return {buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0};
  }

  const bool isThere;
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

TEST_F(Journal, gets_one_entry_a_record_with_priority_and_origin) {
  const CapturedLog log;
  open(true);
  const int line = __LINE__ + 1;
  LOGE("two\nlines\x1b %d\n", 7);
  const std::string got = entry();
  // A value of several lines goes with its length, eight bytes from the lowest.
  std::string message = "MESSAGE\n";
  const std::string text = "f: two\n  | lines\\x1b 7";
  message += static_cast<char>(text.size());
  message.append(7, '\0').append(text);
  for (const std::string& field :
       {message, std::string("PRIORITY=3"), std::string("CODE_FUNC=f"),
        std::string("CODE_FILE=tests/platform/journal_test.cpp"),
        "CODE_LINE=" + std::to_string(line), std::string("SYSLOG_IDENTIFIER=program")}) {
    EXPECT_NE(('\n' + got).find('\n' + field + '\n'), got.npos) << field << " in " << got;
  }
  EXPECT_EQ(got.find("GATEWAY_"), got.npos);
  const std::string id = "17";
  const gateway::LogScope scope(gateway::LogSubject::kJob, id);
  LOGE("with its subject");
  const std::string named = entry();
  EXPECT_NE(named.find("GATEWAY_JOB_ID=17\n"), named.npos) << named;
  EXPECT_NE(named.find("MESSAGE=f: with its subject\n"), named.npos) << named;
  LOGR("report");
  EXPECT_NE(entry().find("PRIORITY=5\n"), std::string::npos);
  EXPECT_EQ(log.text(), "");
}

TEST_F(Journal, gets_nothing_from_a_signal_handler_nor_when_it_is_not_the_reader) {
  const CapturedLog log;
  open(true);
  signal(SIGUSR2, [](int) {
    const gateway::SignalContext inHandler;
    LOGI("in a handler");
  });
  raise(SIGUSR2);
  EXPECT_TRUE(log.has("Z INFO f: in a handler\n"));
  open(false);
  LOGI("of another stream");
  EXPECT_TRUE(log.has("Z INFO f: of another stream\n"));
  EXPECT_EQ(entry(), "");
  open(true);
  LOGI("an entry again");
  EXPECT_NE(entry().find("MESSAGE=f: an entry again\n"), std::string::npos);
  shutdown(socket, SHUT_RDWR);
  LOGI("not taken");
  EXPECT_TRUE(log.has("Z INFO f: not taken\n"));
}

}  // namespace
