#include "executor_api/method_calls.h"

#include <gtest/gtest.h>

#include "neighbourhood.h"

using namespace test;

namespace jobm {
namespace {

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
  // Comes after a second call to the parser, if there is one.
  callMethod("last", *getParser("driver_manager"), "", {});
  ASSERT_TRUE(parser.await("last"));
  EXPECT_EQ(parser.count(kFinish), 1U);
  EXPECT_EQ(one.count(kFinish), 0U);
}

}  // namespace
}  // namespace jobm
