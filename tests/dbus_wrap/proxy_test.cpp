#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "dbus_wrap/DProxy.h"
#include "support/FakePeer.h"
#include "support/LoopThread.h"

namespace {

using quillon::DMessage;
using quillon::DProxy;
using test::eventually;
using Message = std::shared_ptr<DMessage>;

constexpr const char* kService = "iot.test.service";
constexpr const char* kPath = "/iot/test/service";
constexpr const char* kSocket = "/tmp/var/run/mbusd/mbusd_socket";

std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

Message callOf(const DProxy& proxy, const char* member, const std::string& text = "") {
  Message call = proxy.makeMethodCall(member);
  call->writeString(text);
  return call;
}

std::string textOf(const Message& reply) {
  return reply ? reply->getErrorName() + reply->readString() : "none";
}

void send(DProxy& proxy, const char* member, const std::string& text,
          const std::function<void(const Message&)>& callback) {
  EXPECT_TRUE(proxy.sendMessageWithReply(
      callOf(proxy, member, text), [=](const Message& reply, void*) { callback(reply); }, nullptr));
}

std::string call(DProxy& proxy, const char* member, const std::string& text = "") {
  return textOf(proxy.sendMessageWithReplyBlocking(callOf(proxy, member, text)));
}

class Proxy : public testing::Test {
 protected:
  Proxy() {
    service.on("echo", [](const test::Received& call) { return call.text(); });
    service.answer("refuse", test::Error{"iot.test.Refused", ": not today"});
    service.answer("silent", std::monostate{});
  }

  test::FakePeer service{kService, {"type='signal',path='/iot/test/service'"}};
  test::LoopThread loop;
  DProxy proxy{kService, kPath, kService};  // on another thread than the loop's, which runs
};

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

// The one test that waits for real time to pass: 30 s.
TEST_F(Proxy, gives_up_on_a_reply_after_half_a_minute_and_drops_it_when_it_still_comes) {
  std::promise<void> goOn;
  service.on("wait", [go = goOn.get_future().share()](const test::Received&) {
    go.wait();
    return "too late";
  });
  std::string got;
  const auto take = [&](const Message& reply) { got += textOf(reply); };
  const auto hasGot = [&](const char* text) { return loop.run([&] { return got == text; }); };
  send(proxy, "echo", "one, ", take);
  send(proxy, "wait", "", take);
  EXPECT_EQ(call(proxy, "silent"), "none");
  EXPECT_TRUE(hasGot("one, ")) << "a blocking call gives up earlier, after 25 s";
  EXPECT_TRUE(eventually([&] { return hasGot("one, none"); }));
  goOn.set_value();
  send(proxy, "echo", ", two", take);
  EXPECT_TRUE(eventually([&] { return hasGot("one, none, two"); }));
}

// In a process of its own, for there is no way back. Status 0 when all went well.
void loseTheDaemon() {
  test::LoopThread loop;
  const auto threads = entriesOf("/proc/self/task");
  const auto descriptors = entriesOf("/proc/self/fd");
  auto other = std::make_unique<DProxy>(kService, kPath, kService);
  const int next = dup(STDERR_FILENO);  // and so will be the first of the next proxy
  close(next);
  auto lost = std::make_unique<DProxy>(kService, kPath, kService);
  for (int file = next; file < next + 16; ++file) shutdown(file, SHUT_RDWR);
  const bool ended = eventually([&] { return entriesOf("/proc/self/task") == threads; });
  const bool lives = call(*lost, "hello") == "none" && call(*other, "hello") != "none";
  other.reset();
  lost.reset();
  // But for the one that all workers wait on.
  const bool closed = eventually([&] { return entriesOf("/proc/self/fd") == descriptors + 1; });
  _exit(ended && lives && closed ? 0 : 3);
}

TEST(ProxyDeathTest, ends_the_workers_of_all_proxies_but_not_the_process_when_the_daemon_is_lost) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(loseTheDaemon(), testing::ExitedWithCode(0),
              "DProxy connection to dbus-daemon disconnected, quit.");
}

}  // namespace
