#include "executor_api/method_calls.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>

#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

constexpr const char* kName = "iot.test.method";

// What a callback is told, in one text.
std::string outcome(int code, const std::string& message, const std::string& data = "") {
  return std::to_string(code) + " '" + message + "' '" + data + "'";
}

const std::string kFormatError = outcome(101206, "JOBM_ERROR_ExecutorReplyFormatError");
const std::string kTimeout = outcome(101205, "timeout without reply");
const std::string kMissing = outcome(101207, "Service not exist");

// Makes a call, whose callback must run on the loop's thread and after the call has returned.
std::future<std::string> start(const Executor& executor, const char* method = "doIt") {
  const auto promise = std::make_shared<std::promise<std::string>>();
  onLoop([&] {
    const auto returned = std::make_shared<bool>(method == nullptr);
    callMethod(method, executor, "",
               [=](int code, const std::string& message, const std::string& data) {
                 EXPECT_EQ(std::this_thread::get_id(), loopThread().id());
                 EXPECT_TRUE(*returned);
                 promise->set_value(outcome(code, message, data));
               });
    *returned = true;
  });
  return promise->get_future();
}

Executor called() {
  addExecutor(registration("called", kName, R"(["method"])"));
  return *getExecutor("called");
}

TEST(MethodCalls, turn_every_kind_of_reply_into_a_code) {
  const std::string gone = "Message recipient disconnected from message bus without replying";
  const std::string missing = "The name was not provided by any .service files, says the bus";
  const auto error = [](const std::string& text) { return Error{"org.any.Error", text}; };
  const std::pair<Answer, std::string> cases[] = {
      {R"({"code":0,"message":"fine","data":{"a":1}})", outcome(0, "fine", "{\n   \"a\" : 1\n}\n")},
      {"ok", kFormatError},
      {std::string(2000, '['), kFormatError},
      {R"({"code":"zero","message":""})", kFormatError},
      {R"({"code":0,"message":{}})", kFormatError},
      {error(gone), kTimeout},
      {error(gone + "."), kFormatError},
      {error(missing), kMissing},
  };
  FakePeer peer(kName);
  const Executor executor = called();
  for (const auto& [answer, expected] : cases) {
    peer.answer("doIt", answer);
    EXPECT_EQ(start(executor).get(), expected);
  }
  const Received call = peer.received("doIt").front();
  EXPECT_EQ(call.path + " " + call.interface, "/iot/test/method iot.test.method");
  EXPECT_TRUE(call.arguments.empty());
}

TEST(MethodCalls, tell_services_that_are_absent_or_die_from_those_that_can_not_be_called) {
  Executor executor = called();
  EXPECT_EQ(start(executor).get(), kMissing);
  auto dying = std::make_unique<FakePeer>(kName);
  dying->answer("doIt", std::monostate());
  std::future<std::string> answer = start(executor);
  ASSERT_TRUE(dying->await("doIt"));
  dying.reset();
  EXPECT_EQ(answer.get(), kTimeout);
  EXPECT_EQ(start(executor, nullptr).get(), outcome(100000, "params error"));
  executor.proxy = std::make_shared<quillon::DProxy>(kName, "no/slash", kName);
  EXPECT_EQ(start(executor).get(), kMissing);
}

TEST(MethodCalls, tell_watchers_of_several_types_and_the_driver_manager_of_a_finished_batch) {
  constexpr const char* kFinish = "onWatchTypesFinish";
  FakePeer two("iot.test.watches2");
  FakePeer one("iot.test.watches1");
  FakePeer parser("iot.test.driver.parser");
  FakePeer driver("iot.test.driver.executor");
  addExecutor(registration("watchesTwo", "iot.test.watches2", R"(["w1","w2"])"));
  addExecutor(registration("watchesOne", "iot.test.watches1", R"(["w1"])"));
  addExecutor(registration("driver_manager", "iot.test.driver.executor", R"(["w1"])"));
  addParser(registration("driver_manager", "iot.test.driver.parser", R"(["w1"])"));
  onLoop(callOnWatchTypesFinish);
  ASSERT_TRUE(two.await(kFinish) && parser.await(kFinish));

  addExecutor(registration("driver_manager", "iot.test.driver.executor", R"(["w1","w2"])"));
  onLoop(callOnWatchTypesFinish);
  ASSERT_TRUE(two.await(kFinish, 2) && driver.await(kFinish));
  // Would come after a second call to the parser.
  start(*getParser("driver_manager"), "last").get();
  EXPECT_EQ(parser.count(kFinish), 1U);
  EXPECT_EQ(one.count(kFinish), 0U);
}

}  // namespace
}  // namespace jobm
