#include <LoopTasks.h>
#include <LoopThread.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using quillon::postToLoop;
using quillon::runOnLoop;

TEST(LoopTasks, RunAtOnceWhileNoThreadRunsTheLoop) {
  std::thread::id ranOn;
  runOnLoop([&] { ranOn = std::this_thread::get_id(); });
  EXPECT_EQ(ranOn, std::this_thread::get_id());

  bool ran = false;
  postToLoop([&] { ran = true; });
  EXPECT_FALSE(ran);
  test::LoopThread loop;  // what was posted before it runs is the first that it does
  EXPECT_TRUE(loop.run([&] { return ran; }));
}

TEST(LoopTasks, RunOnTheLoopsThreadInTheOrderOfTheCallsAndMayThrow) {
  test::LoopThread loop;
  std::vector<int> order;  // of the loop's thread
  bool elsewhere = false;
  runOnLoop([] { throw std::runtime_error("a task's own trouble"); });
  for (int n = 0; n < 1000; ++n) {
    (n % 2 == 0 ? runOnLoop : postToLoop)([&, n] {
      order.push_back(n);
      elsewhere |= std::this_thread::get_id() != loop.id();
    });
  }
  loop.run([&] {
    EXPECT_EQ(order.size(), 1000U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_FALSE(elsewhere);
    postToLoop([&] { order.push_back(3); });
    runOnLoop([&] { order = {1}; });
    order.push_back(2);
  });
  EXPECT_EQ(loop.run([&] { return order; }), (std::vector{1, 2, 3})) << "nested";
}

}  // namespace
