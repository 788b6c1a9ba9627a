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

TEST(MethodCalls, tell_a_services_own_answer_from_that_of_one_which_is_absent_or_dies) {
  const std::string missing = outcome(101207, "Service not exist");
  addExecutor(registration("called", kName, R"(["method"])"));
  Executor executor = *getExecutor("called");
  EXPECT_EQ(start(executor).get(), missing);
  auto peer = std::make_unique<FakePeer>(kName);
  peer->answer("doIt", R"({"code":0,"message":"fine","data":{"a":1}})");
  EXPECT_EQ(start(executor).get(), outcome(0, "fine", "{\n   \"a\" : 1\n}\n"));
  const Received call = peer->received("doIt").front();
  EXPECT_EQ(call.path + " " + call.interface, "/iot/test/method iot.test.method");
  EXPECT_TRUE(call.arguments.empty());
  peer->answer("doIt", std::monostate());
  std::future<std::string> answer = start(executor);
  ASSERT_TRUE(peer->await("doIt", 2));
  peer.reset();
  EXPECT_EQ(answer.get(), outcome(101205, "timeout without reply"));
  EXPECT_EQ(start(executor, nullptr).get(), outcome(100000, "params error"));
  executor.proxy = std::make_shared<quillon::DProxy>(kName, "no/slash", kName);
  EXPECT_EQ(start(executor).get(), missing);
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
