#include <CapturedLog.h>
#include <DProxy.h>
#include <FakePeer.h>
#include <LoopThread.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

using quillon::DMessage;
using quillon::DProxy;
using test::eventually;
using Message = std::shared_ptr<DMessage>;

constexpr const char* kService = "iot.test.service";
constexpr const char* kPath = "/iot/test/service";
constexpr const char* kSocket = "/tmp/var/run/mbusd/mbusd_socket";

std::size_t entriesOf(const char* directory) {
  const std::filesystem::directory_iterator entries(directory);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

Message callOf(const DProxy& proxy, const char* member, const std::string& text = "") {
  Message call = proxy.makeMethodCall(member);
  call->writeString(text);
  return call;
}

class Proxy : public testing::Test {
 protected:
  Proxy() {
    service.on("echo", [](const test::Received& call) { return call.text(); });
    service.answer("refuse", test::Error{"iot.test.Refused", "not today"});
    service.answer("silent", std::monostate{});
  }

  test::FakePeer service{kService, {"type='signal',path='/iot/test/service'"}};
  test::LoopThread loop;
  DProxy proxy{kService, kPath, kService};  // on another thread than the loop's, which runs
};

TEST_F(Proxy, TakesAnErrorForTheReplyOfABlockingCall) {
  const Message refusal = proxy.sendMessageWithReplyBlocking(callOf(proxy, "refuse"));
  ASSERT_TRUE(refusal && !refusal->isMethodReturn());
  EXPECT_EQ(refusal->getErrorName() + ": " + refusal->readString(), "iot.test.Refused: not today");
}

TEST_F(Proxy, GivesEachCallItsOwnReplyInOrderAndOnTheLoopsThread) {
  struct Caller {
    std::vector<std::string> sent, replies;
  };
  std::vector<Caller> callers(4);
  std::atomic<std::size_t> called = 0;
  const auto takeReply = [&](const Message& reply, void* caller) {
    static_cast<Caller*>(caller)->replies.push_back(reply ? reply->readString() : "none");
    EXPECT_EQ(std::this_thread::get_id(), loop.id());
    ++called;
  };
  std::vector<std::thread> senders;
  senders.reserve(callers.size());
  for (Caller& caller : callers) {
    senders.emplace_back([&] {
      for (int i = 0; i < 250; ++i) {
        caller.sent.push_back(std::to_string((&caller - callers.data()) * 1000 + i));
        const std::string& text = caller.sent.back();
        EXPECT_TRUE(proxy.sendMessageWithReply(callOf(proxy, "echo", text), takeReply, &caller));
        if (i % 50 != 0) continue;
        const Message reply = proxy.sendMessageWithReplyBlocking(callOf(proxy, "echo", text));
        EXPECT_EQ(reply ? reply->readString() : "none", text);
      }
    });
  }
  for (std::thread& sender : senders) sender.join();
  ASSERT_TRUE(eventually([&] { return called == 1000; }));
  for (const Caller& caller : callers) EXPECT_EQ(caller.replies, caller.sent);
}

TEST_F(Proxy, LetsACallbackThrowAndSendAndDropTheProxy) {
  auto own = std::make_shared<DProxy>(kService, kPath, kService);
  DProxy* raw = own.get();
  std::string result;
  std::atomic<bool> done = false;
  raw->sendMessageWithReply(
      callOf(*raw, "refuse"), [](const Message&, void*) { throw std::runtime_error("trouble"); },
      nullptr);
  raw->sendMessageWithReply(
      callOf(*raw, "echo", "outer"),
      [&](const Message& outer, void*) {
        result = outer->readString();
        result +=
            proxy.sendMessageWithReplyBlocking(callOf(proxy, "echo", " blocking"))->readString();
        raw->sendMessageWithReply(
            callOf(*raw, "echo", " inner"),
            [&](const Message& inner, void*) {
              own.reset();
              result += inner->readString();
              done = true;
            },
            nullptr);
        raw->sendMessageWithReply(
            callOf(*raw, "echo"), [&](const Message&, void*) { result += " and more"; }, nullptr);
      },
      nullptr);
  ASSERT_TRUE(eventually([&] { return done.load(); }));
  EXPECT_TRUE(service.await("echo", 4));
  loop.run([&] { EXPECT_EQ(result, "outer blocking inner"); });
}

TEST_F(Proxy, SendsNothingThatTheBusWouldNotTake) {
  EXPECT_FALSE(proxy.makeMethodCall("two words"));
  EXPECT_FALSE(proxy.makeSignal(""));
  const auto never = [](const Message&, void*) { ADD_FAILURE() << "called back"; };
  const std::string half(DMessage::kMaxBytes / 2, 'x');
  const Message large = callOf(proxy, "echo", half);
  EXPECT_TRUE(large->fitsBus());
  large->writeString(half);
  for (const Message& message : {Message{}, large}) {
    EXPECT_FALSE(proxy.sendMessageWithReply(message, never, nullptr));
    EXPECT_FALSE(proxy.sendMessageWithReplyBlocking(message));
    EXPECT_EQ(proxy.sendSignal(message), -1);
  }
}

TEST_F(Proxy, TakesNothingAlongAndLeavesNothingBehindWhenItGoes) {
  const std::size_t threads = entriesOf("/proc/self/task");
  const std::size_t descriptors = entriesOf("/proc/self/fd");
  std::atomic<int> called = 0;
  for (int i = 0; i < 200; ++i) {
    auto dropped = std::make_unique<DProxy>(kService, kPath, kService);
    dropped->sendMessageWithReply(
        callOf(*dropped, "silent"), [&](const Message&, void*) { ++called; }, nullptr);
    dropped->sendSignal(dropped->makeSignal("farewell"));
    if (i % 2 == 0) loop.run([&] { dropped.reset(); });
  }
  EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/task") <= threads; }));
  EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/fd") <= descriptors; }));
  EXPECT_TRUE(service.await("farewell", 200)) << "what was sent is still delivered";
  EXPECT_EQ(called, 0);
}

// The one test that waits for real time to pass: 30 s.
TEST_F(Proxy, GivesUpOnAReplyAfterHalfAMinuteAndDropsItWhenItStillComes) {
  test::FakePeer late("iot.test.late");
  std::promise<void> goOn;
  late.on("wait", [go = goOn.get_future().share()](const test::Received&) {
    go.wait();
    return "too late";
  });
  DProxy lateProxy("iot.test.late", kPath, "iot.test.late");
  const auto start = std::chrono::steady_clock::now();
  std::atomic<int> answered = 0;
  std::atomic<int> missing = 0;
  const auto count = [&](const Message& reply, void*) { ++(reply ? answered : missing); };
  lateProxy.sendMessageWithReply(callOf(lateProxy, "echo"), count, nullptr);
  lateProxy.sendMessageWithReply(callOf(lateProxy, "wait"), count, nullptr);
  EXPECT_FALSE(proxy.sendMessageWithReplyBlocking(callOf(proxy, "silent")));
  EXPECT_EQ(missing, 0) << "a blocking call gives up earlier";
  ASSERT_TRUE(eventually([&] { return missing == 1; }, 20));
  const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
  EXPECT_GT(waited.count(), 27);
  EXPECT_LT(waited.count(), 36);

  goOn.set_value();
  std::atomic<bool> over = false;
  lateProxy.sendMessageWithReply(
      callOf(lateProxy, "echo"), [&](const Message&, void*) { over = true; }, nullptr);
  ASSERT_TRUE(eventually([&] { return over.load(); }));
  EXPECT_EQ(answered + missing, 2);
}

TEST(ProxyAlone, FailsEverySendAtOnceWithoutADaemon) {
  const std::string away = std::string(kSocket) + ".away";
  std::filesystem::rename(kSocket, away);
  DProxy proxy(kService, kPath, kService);
  std::filesystem::rename(away, kSocket);
  const test::CapturedLog log;
  EXPECT_FALSE(proxy.isConnected());
  EXPECT_FALSE(proxy.sendMessageWithReply(callOf(proxy, "echo"), {}, nullptr));
  EXPECT_FALSE(proxy.sendMessageWithReplyBlocking(callOf(proxy, "echo")));
  EXPECT_EQ(proxy.sendSignal(proxy.makeSignal("tick")), -1);
  EXPECT_EQ(log.count("Connection to '/iot/test/service' is not established.\n"), 3U);
}

// In a process of its own, for there is no way back. Status 0 when all went well.
void endWorkersOfAll(bool byLosingTheDaemon) {
  test::FakePeer service(kService);
  test::LoopThread loop;
  const std::size_t threads = entriesOf("/proc/self/task");
  const std::size_t descriptors = entriesOf("/proc/self/fd");
  auto other = std::make_unique<DProxy>(kService, kPath, kService);
  const int next = dup(STDERR_FILENO);  // and so will be the first of the next proxy
  close(next);
  auto lost = std::make_unique<DProxy>(kService, kPath, kService);
  if (byLosingTheDaemon) {
    for (int file = next; file < next + 16; ++file) shutdown(file, SHUT_RDWR);
  } else {
    loop.run([&] { lost->stopWorkers(); });
  }
  const bool ended = eventually([&] { return entriesOf("/proc/self/task") == threads; });
  const bool lives = other->sendMessageWithReplyBlocking(callOf(*other, "hello")) != nullptr;
  const bool reached = lost->sendMessageWithReplyBlocking(callOf(*lost, "hello")) != nullptr;
  other.reset();
  lost.reset();
  const bool closed = eventually([&] { return entriesOf("/proc/self/fd") == descriptors; });
  _exit(ended && lives && reached != byLosingTheDaemon && closed ? 0 : 3);
}

TEST(ProxyDeathTest, EndsTheWorkersOfAllProxiesButNotTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(endWorkersOfAll(true), testing::ExitedWithCode(0),
              "DProxy connection to dbus-daemon disconnected, quit.");
  EXPECT_EXIT(endWorkersOfAll(false), testing::ExitedWithCode(0), "");
}

}  // namespace
