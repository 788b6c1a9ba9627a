#include <sys/socket.h>

#include <stdexcept>

#include "proxies.h"

using namespace test;

namespace {

constexpr const char* kSocket = "/tmp/var/run/mbusd/mbusd_socket";

TEST_F(Proxy, gives_each_call_its_own_reply_in_order_and_on_the_loops_thread) {
  std::atomic<int> next[] = {0, 1000, 2000, 3000};  // what each caller is answered next
  const auto takeReply = [&](const Message& reply, void* ofCaller) {
    EXPECT_EQ(std::this_thread::get_id(), loop.id());
    EXPECT_EQ(textOf(reply), std::to_string((*static_cast<std::atomic<int>*>(ofCaller))++));
  };
  const auto sendAll = [&](std::atomic<int>& ofCaller, int first) {
    for (int i = first; i < first + 250; ++i) {
      const std::string text = std::to_string(i);
      EXPECT_TRUE(proxy.sendMessageWithReply(callOf(proxy, "echo", text), takeReply, &ofCaller));
      EXPECT_EQ(i % 50 == 0 ? call(proxy, "echo", text) : text, text);
    }
  };
  std::vector<std::jthread> callers;
  for (auto& ofCaller : next) callers.emplace_back(sendAll, std::ref(ofCaller), ofCaller.load());
  callers.clear();
  ASSERT_TRUE(eventually([&] { return next[0] + next[1] + next[2] + next[3] == 7000; }));
}

TEST_F(Proxy, lets_a_callback_throw_and_send_and_drop_the_proxy) {
  auto own = std::make_shared<DProxy>(kService, kPath, kService);
  DProxy* raw = own.get();
  std::string result;
  quillon::runOnLoop([] { throw std::runtime_error("a task's trouble"); });
  send(*raw, "refuse", "", [](const Message&) { throw std::runtime_error("a callback's"); });
  send(*raw, "echo", "outer", [&](const Message& outer) {
    result = textOf(outer) + call(proxy, "refuse");
    send(*raw, "echo", ", inner", [&](const Message& inner) {
      own.reset();
      result += textOf(inner);
    });
    send(*raw, "echo", ", and more", [&](const Message& more) { result += textOf(more); });
  });
  ASSERT_TRUE(eventually([&] { return loop.run([&] { return own == nullptr; }); }));
  EXPECT_EQ(loop.run([&] { return result; }), "outeriot.test.Refused: not today, inner");
}

TEST_F(Proxy, sends_nothing_that_the_bus_would_not_take_and_nothing_without_a_daemon) {
  const std::string away = std::string(kSocket) + ".away";
  std::filesystem::rename(kSocket, away);
  DProxy alone(kService, kPath, kService);
  std::filesystem::rename(away, kSocket);
  EXPECT_FALSE(proxy.makeMethodCall("two words") || proxy.makeSignal(""));
  const std::string half(DMessage::kMaxBytes / 2, 'x');
  const Message large = callOf(proxy, "echo", half);
  large->writeString(half);
  const std::pair<DProxy&, Message> cases[] = {
      {proxy, Message{}}, {proxy, large}, {alone, callOf(alone, "echo")}};
  for (const auto& [sender, message] : cases) {
    const auto never = [](const Message&, void*) { ADD_FAILURE() << "called back"; };
    EXPECT_FALSE(sender.sendMessageWithReply(message, never, nullptr));
    EXPECT_FALSE(sender.sendMessageWithReplyBlocking(message));
    EXPECT_EQ(sender.sendSignal(message), -1);
  }
}

TEST_F(Proxy, takes_nothing_along_and_leaves_nothing_behind_when_it_goes) {
  const auto threads = entriesOf("/proc/self/task");
  const auto descriptors = entriesOf("/proc/self/fd");
  for (int i = 0; i < 200; ++i) {
    auto dropped = std::make_unique<DProxy>(kService, kPath, kService);
    send(*dropped, "silent", "", [](const Message&) { ADD_FAILURE() << "called back"; });
    dropped->sendSignal(dropped->makeSignal("farewell"));
    if (i % 2 == 0) loop.run([&] { dropped.reset(); });
  }
  EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/task") <= threads; }));
  EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/fd") <= descriptors; }));
  EXPECT_TRUE(service.await("farewell", 200)) << "what was sent is still delivered";
}

// Counts the calls that are given up.
void sendUnanswered(DProxy& proxy, std::atomic<int>& givenUp) {
  send(proxy, "silent", "", [&](const Message& reply) { givenUp += textOf(reply) == "none"; });
}

// One call of each of the proxies, sent about when its ageing stops: at the tick that finds nothing
// pending, 2 s after a call that was answered.
void sendWhenAgeingStops(std::vector<std::unique_ptr<DProxy>>& proxies, std::atomic<int>& givenUp) {
  for (int i = 0; i < 20; ++i) {
    proxies.push_back(std::make_unique<DProxy>(kService, kPath, kService));
    send(*proxies.back(), "echo", "", [](const Message&) {});
  }
  auto next = std::chrono::steady_clock::now() + std::chrono::milliseconds(1990);
  for (const auto& proxy : proxies) {
    std::this_thread::sleep_until(next += std::chrono::milliseconds(1));
    sendUnanswered(*proxy, givenUp);
  }
}

// The one test that waits for real time to pass: 32 s.
TEST_F(Proxy, gives_up_on_a_reply_after_half_a_minute_and_drops_it_when_it_still_comes) {
  DProxy crowded(kService, kPath, kService);
  DProxy blocked(kService, kPath, kService);
  std::vector<std::unique_ptr<DProxy>> rested;
  std::atomic<int> ofCrowd = 0;
  std::atomic<int> ofRested = 0;
  std::atomic<int> aroundTheTick = 0;
  service.on("late", [](const test::Received& call) {
    return test::Late{"", std::stoi(call.text())};
  });
  for (int ms = 29900; ms < 30150; ms += 5) {
    send(proxy, "late", std::to_string(ms), [&](const Message&) { ++aroundTheTick; });
  }
  for (int i = 0; i < 101; ++i) sendUnanswered(crowded, ofCrowd);
  sendWhenAgeingStops(rested, ofRested);
  std::atomic<bool> cameInTime = false;
  const auto sent = std::chrono::steady_clock::now();
  send(blocked, "late", "29000", [&](const Message& reply) { cameInTime = reply != nullptr; });
  EXPECT_EQ(call(proxy, "silent"), "none");
  EXPECT_EQ(ofCrowd + ofRested + aroundTheTick, 0) << "a blocking call gives up earlier";
  EXPECT_EQ(service.count("silent"), 121U) << "one of the crowd waits for its turn";
  std::this_thread::sleep_until(sent + std::chrono::milliseconds(28500));
  quillon::runOnLoop([] { std::this_thread::sleep_for(std::chrono::milliseconds(2000)); });
  EXPECT_TRUE(eventually([&] { return ofCrowd == 100 && ofRested == 20; }));
  EXPECT_TRUE(eventually([&] { return service.count("silent") == 122; }));
  EXPECT_TRUE(cameInTime) << "while the loop was busy";
  std::atomic<bool> goesOn = false;
  send(proxy, "echo", "", [&](const Message&) { goesOn = true; });
  EXPECT_TRUE(eventually([&] { return goesOn.load(); }));
  EXPECT_EQ(aroundTheTick, 50) << "each has one outcome";
}

// In a process of its own, because the end of the workers can't be undone. Status 0 for success.
void endTheWorkers(bool byLoss) {
  test::LoopThread loop;
  const auto threads = entriesOf("/proc/self/task");
  const auto descriptors = entriesOf("/proc/self/fd");
  auto other = std::make_unique<DProxy>(kService, kPath, kService);
  const int next = dup(STDERR_FILENO);  // and so will be the first of the next proxy
  close(next);
  auto ending = std::make_unique<DProxy>(kService, kPath, kService);
  std::atomic<int> outcomes = 0;
  send(byLoss ? *ending : *other, "silent", "", [&](const Message&) { ++outcomes; });
  for (int file = next; byLoss && file < next + 16; ++file) shutdown(file, SHUT_RDWR);
  if (!byLoss) ending->stopWorkers();
  const bool ended = eventually([&] { return entriesOf("/proc/self/task") == threads; }, 2);
  const bool lives =
      (call(*ending, "hello") == "none") == byLoss && call(*other, "hello") != "none";
  const bool aged = eventually([&] { return outcomes == 1; }, 40);
  other.reset();
  ending.reset();
  // One more: the event that all workers wait on.
  const bool closed = eventually([&] { return entriesOf("/proc/self/fd") == descriptors + 1; });
  _exit(ended && lives && aged && closed ? 0 : 3);
}

TEST(ProxyDeathTest, ends_the_workers_of_all_proxies_but_not_the_process) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(endTheWorkers(true), testing::ExitedWithCode(0),
              "DProxy connection to dbus-daemon disconnected, quit.");
}

TEST(ProxyDeathTest, stopped_leaves_the_others_their_outcomes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(endTheWorkers(false), testing::ExitedWithCode(0), "");
}

}  // namespace
