#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "dbus_wrap/DServer.h"
#include "support/FakePeer.h"
#include "support/LoopThread.h"

namespace {

using test::busCall;
using Message = std::shared_ptr<quillon::DMessage>;

constexpr const char* kName = "iot.test.server";
constexpr const char* kPath = "/iot/test/server";
constexpr const char* kRule = "type='signal',path='/iot/test/neighbour'";

// Answers every call with its own text, and keeps what came in for the loop's thread.
class EchoServer : public quillon::DServer {
 public:
  using DServer::DServer;

  bool onMethodCall(const char* member, const Message& request, const Message& reply) override {
    notes.push_back(request->readString());
    if (notes.back() == "fail") throw std::runtime_error("a handler's trouble");
    reply->writeString(member);
    send(reply);
    return false;
  }
  bool onSignalReceived(const char* member, const Message& signal) override {
    if (member == std::string("news")) notes.push_back(signal->readString());
    return false;
  }

  std::vector<std::string> notes;
};

TEST(Server,
     hands_out_calls_and_signals_in_order_outlives_a_handlers_exception_and_keeps_its_name) {
  test::LoopThread loop;
  auto server = std::make_unique<EchoServer>(kName, kPath);
  ASSERT_EQ(server->prepare(), 0);
  server->addMatchRule(kRule);
  loop.run([&] { server->start(); });
  test::FakePeer neighbour("");
  const auto news = [&](const std::string& path, const std::string& text, const char* receiver) {
    neighbour.emit(path, "iot.test.any", "news", {text}, receiver);
  };
  const auto notes = [&] { return loop.run([&] { return server->notes; }); };

  EXPECT_EQ(busCall(kName, kPath, "one", {"call"}), "one");
  news("/iot/test/elsewhere", "unmatched", "");
  news("/iot/test/neighbour", "matched", "");
  news("/iot/test/elsewhere", "addressed", kName);
  ASSERT_TRUE(test::eventually([&] { return notes().size() == 3; }));
  loop.run([&] { server->removeMatchRule(kRule); });
  news("/iot/test/neighbour", "no longer matched", "");
  EXPECT_EQ(busCall(kName, kPath, "two", {"fail"}, 0.2), std::nullopt);
  EXPECT_EQ(busCall(kName, kPath, "three", {"last"}), "three");
  EXPECT_EQ(notes(), (std::vector<std::string>{"call", "matched", "addressed", "fail", "last"}));

  EchoServer second(kName, kPath);
  EXPECT_EQ(second.prepare(), -1) << "the name is taken";
  loop.run([&] { server.reset(); });
  const test::FakePeer heir(kName);  // ends the test unless the name is free
}

}  // namespace
