// What could go wrong where a wait ends by an event and not by the clock.

#include <sys/resource.h>
#include <sys/socket.h>

#include "ProxyWorker.h"
#include "dbus_wrap/DServer.h"
#include "proxies.h"

using namespace test;

namespace {

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";

struct DeafServer : quillon::DServer {
  using DServer::DServer;
  bool onMethodCall(const char*, const Message&, const Message&) override { return true; }
  bool onSignalReceived(const char*, const Message&) override { return true; }
};

// To this process the daemon has hung up on all its sockets.
void loseTheDaemon() {
  for (int file = 0; file < 256; ++file) shutdown(file, SHUT_RDWR);
}

// How often a thread of the process has gone to sleep.
long sleeps() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_nvcsw;
}

bool isQuiet() {
#ifdef __SANITIZE_THREAD__
  constexpr long kOthers = 30;  // the sanitizer has a thread of its own that polls
#else
  constexpr long kOthers = 0;
#endif
  const long before = sleeps();
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  return sleeps() - before - 1 <= kOthers;
}

void restUntilTheDaemonIsLost() {
  DeafServer server("iot.test.resting", kPath);
  server.setRunLoop(true);
  if (server.prepare() != 0) _exit(2);
  std::vector<std::unique_ptr<DProxy>> proxies;
  std::atomic<int> answers = 0;
  for (int i = 0; i < 20; ++i) {
    proxies.push_back(std::make_unique<DProxy>(kDaemon, kDaemonPath, kDaemon));
    send(*proxies.back(), "GetId", "", [&](const Message&) { ++answers; });
  }
  std::jthread serving([&] { server.start(); });
  if (!eventually([&] { return answers == 20; }) || !eventually(isQuiet)) _exit(3);
  loseTheDaemon();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  _exit(4);  // too late
}

// Answers keep coming, each lets a call go out, and both find the daemon gone.
void loseTheDaemonAfter(int answers) {
  LoopThread loop;
  const auto threads = entriesOf("/proc/self/task");
  DProxy proxy(kDaemon, kDaemonPath, kDaemon);
  std::atomic<int> seen = 0;
  for (int i = 0; i < 2000; ++i) {
    send(proxy, "GetId", "", [&](const Message&) {
      if (++seen == answers) loseTheDaemon();
    });
  }
  const bool ended = eventually([&] { return entriesOf("/proc/self/task") == threads; });
  _exit(ended && seen < 2000 ? 0 : 3);
}

TEST(WaitingDeathTest, a_process_at_rest_is_quiet_and_ends_at_once_when_the_daemon_goes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(restUntilTheDaemonIsLost(), testing::ExitedWithCode(1),
              "DServer connection to dbus-daemon disconnected, quit DServer.");
}

TEST(WaitingDeathTest, answers_and_waiting_calls_may_meet_a_daemon_that_goes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const int answers : {1, 100, 101, 1500}) {
    EXPECT_EXIT(loseTheDaemonAfter(answers), testing::ExitedWithCode(0), "disconnected, quit.")
        << answers;
  }
}

TEST(Waiting, an_answer_that_libdbus_has_read_already_is_not_waited_for) {
  LoopThread loop;
  quillon::ConnectionPtr connection = quillon::DConnection::getDbusConnection();
  DBusConnection* raw = connection.get();
  // The signal that tells the connection its name is the last message that comes by itself.
  DBusMessage* nameAcquired = nullptr;
  while ((nameAcquired = dbus_connection_pop_message(raw)) == nullptr) {
    dbus_connection_read_write(raw, -1);
  }
  dbus_message_unref(nameAcquired);
  const auto worker = std::make_shared<quillon::ProxyWorker>(std::move(connection));
  std::promise<std::string> answer;
  const auto take = [&](const Message& reply, void*) { answer.set_value(textOf(reply)); };
  EXPECT_TRUE(worker->sendMessageWithReply(
      DMessage::makeNewMethodCallMessage(kDaemon, kDaemonPath, kDaemon, "GetId"), take, nullptr));
  while (dbus_connection_get_dispatch_status(raw) != DBUS_DISPATCH_DATA_REMAINS) {
    dbus_connection_read_write(raw, -1);
  }
  EXPECT_TRUE(worker->startWorkers());
  EXPECT_EQ(answer.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
  worker->release();
}

TEST_F(Proxy, lets_calls_wait_for_their_turn_beyond_a_hundred_and_then_sends_them_in_order) {
  std::atomic<int> next = 0;
  send(proxy, "wait", "", [](const Message&) {});
  for (int i = 0; i < 10000; ++i) {
    send(proxy, "echo", std::to_string(i),
         [&, i](const Message& reply) { EXPECT_EQ(textOf(reply), std::to_string(next++)) << i; });
  }
  const Message grown = callOf(proxy, "echo");
  std::atomic<bool> failed = false;
  EXPECT_TRUE(proxy.sendMessageWithReply(
      grown, [&](const Message& reply, void*) { failed = textOf(reply) == "none"; }, nullptr));
  grown->writeString(std::string(DMessage::kMaxBytes, 'x'));
  goOn.set_value();
  EXPECT_TRUE(eventually([&] { return next == 10000 && failed; }));
}

// Nothing answers a signal, so nothing but room in its socket can wake who sent it.
TEST_F(Proxy, and_server_send_the_rest_to_a_peer_that_did_not_read_and_hold_nobody_up) {
  constexpr int kParts = 32;
  FakePeer quick("iot.test.quick");
  DProxy other("iot.test.quick", "/", "iot.test.quick");
  DProxy sender(kService, kPath, kService);
  auto server = std::make_unique<DeafServer>("iot.test.server", kPath);
  ASSERT_EQ(server->prepare(), 0);
  loop.run([&] { server->start(); });
  send(proxy, "wait", "", [](const Message&) {});
  ASSERT_TRUE(service.await("wait"));
  const std::string part(DMessage::kMaxBytes / kParts, 'x');
  for (int i = 0; i < kParts; ++i) {
    const Message signal = sender.makeSignal("ofProxy");
    signal->writeString(std::to_string(i) + part);
    EXPECT_EQ(sender.sendSignal(signal), 0);
    EXPECT_TRUE(loop.run([&] { return server->sendSignal("ofServer", std::to_string(i) + part); }));
  }
  EXPECT_NE(call(other, "hello"), "none");
  goOn.set_value();
  for (const char* member : {"ofProxy", "ofServer"}) {
    EXPECT_TRUE(service.await(member, kParts)) << member;
    int i = 0;
    for (const Received& signal : service.received(member)) {
      EXPECT_EQ(signal.text().size(), std::to_string(i).size() + part.size());
      EXPECT_TRUE(signal.text().starts_with(std::to_string(i++) + "x"));
    }
  }
  loop.run([&] { server.reset(); });
}

TEST(LoopTasks, posted_from_inside_the_loop_run_later) {
  LoopThread loop;
  std::atomic<bool> ran = false;
  loop.run([&] {
    quillon::postToLoop([&] { ran = true; });
    EXPECT_FALSE(ran);
  });
  loop.run([] {});
  EXPECT_TRUE(ran);
}

}  // namespace
