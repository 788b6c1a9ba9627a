#include <DProxy.h>
#include <DServer.h>
#include <FakePeer.h>
#include <LoopThread.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using test::busCall;
using test::eventually;
using Message = std::shared_ptr<quillon::DMessage>;

constexpr const char* kName = "iot.test.server";
constexpr const char* kPath = "/iot/test/server";
constexpr const char* kRule = "type='signal',path='/iot/test/neighbour'";

// Answers every call with its own text; notes what came in, and on which thread.
class EchoServer : public quillon::DServer {
 public:
  using DServer::DServer;

  bool onMethodCall(const char* member, const Message& request, const Message& reply) override {
    note(member + std::string("(") + request->readString() + ")");
    if (std::strcmp(member, "fail") == 0) throw std::runtime_error("a handler's trouble");
    reply->writeString(member);
    send(reply);
    return false;
  }
  bool onSignalReceived(const char* member, const Message& signal) override {
    if (std::strcmp(member, "NameAcquired") != 0)
      note(member + std::string("!") + signal->readString());
    return false;
  }

  std::vector<std::string> noted() const {
    const std::lock_guard guard(lock);
    return notes;
  }
  std::atomic<std::thread::id> thread;

 private:
  void note(const std::string& what) {
    const std::lock_guard guard(lock);
    notes.push_back(what);
    thread = std::this_thread::get_id();
  }

  mutable std::mutex lock;
  std::vector<std::string> notes;
};

class Server : public testing::Test {
 protected:
  Server() {
    EXPECT_EQ(server->prepare(), 0);
    server->addMatchRule(kRule);
    server->addMatchRule(nullptr);
    loop.run([this] { server->start(); });
  }
  ~Server() override {
    loop.run([this] { server.reset(); });
  }

  test::LoopThread loop;
  std::unique_ptr<EchoServer> server = std::make_unique<EchoServer>(kName, kPath);
  test::FakePeer neighbour{"", {"type='signal',path='/iot/test/server'"}};
};

TEST_F(Server, HandsOutCallsAndSignalsInOrderAndOutlivesAHandlersException) {
  const auto news = [&](const std::string& path, const std::string& text, const char* receiver) {
    neighbour.emit(path, "iot.test.any", "news", {text}, receiver);
  };
  EXPECT_EQ(busCall(kName, kPath, "one", {"text"}), "one");
  news("/iot/test/elsewhere", "unmatched", "");
  news("/iot/test/neighbour", "matched", "");
  news("/iot/test/elsewhere", "addressed", kName);
  ASSERT_TRUE(eventually([&] { return server->noted().size() == 3; }));
  loop.run([&] { server->removeMatchRule(std::string(kRule)); });
  news("/iot/test/neighbour", "no longer matched", "");
  EXPECT_EQ(busCall(kName, kPath, "fail", {}, 0.2), std::nullopt);
  EXPECT_EQ(busCall(kName, kPath, "two", {}), "two");
  EXPECT_EQ(server->noted(), (std::vector<std::string>{"one(text)", "news!matched",
                                                       "news!addressed", "fail()", "two()"}));
  EXPECT_EQ(server->thread.load(), loop.id());
}

TEST_F(Server, EmitsSignalsFromItsOwnPathAndFeedsTheWatchdog) {
  test::FakePeer watchdog("iot.gateway.watchdog");
  loop.run([&] {
    EXPECT_TRUE(server->sendSignal("bare", ""));
    EXPECT_FALSE(server->sendSignal("not a member", "text") || server->sendSignal(Message{}));
    server->feedWatchDog("iot.test.fed", 19);
  });
  const auto bare = neighbour.await("bare");
  const auto fed = watchdog.await("feedDog");
  ASSERT_TRUE(bare && fed);
  EXPECT_TRUE(bare->arguments.empty());
  EXPECT_EQ(bare->path + " " + bare->interface, std::string(kPath) + " " + kName);
  EXPECT_EQ(fed->arguments, (std::vector<test::Argument>{kName, "iot.test.fed", std::int32_t{19}}));
}

TEST(ServerAlone, GetsNoNameThatIsTakenAndDoesNotInheritItLater) {
  auto first = std::make_unique<EchoServer>(kName, kPath);
  EchoServer second(kName, kPath);
  ASSERT_EQ(first->prepare(), 0);
  EXPECT_EQ(second.prepare(), -1);
  first.reset();
  test::FakePeer heir(kName);  // aborts unless the name is free
}

}  // namespace
