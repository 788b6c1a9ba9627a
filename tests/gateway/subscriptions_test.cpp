#include <file_text.h>
#include <gtest/gtest.h>
#include <subscriptions.h>
#include <unistd.h>

#include <cstdio>

namespace {

using gateway::Subscriptions;
using Names = std::set<std::string>;

TEST(Subscriptions, EverySubscriberOfAMatchingFilterIsNamedOnce) {
  Subscriptions subscriptions("");
  subscriptions.add("/sys/+/x", "iot.a", 1);
  subscriptions.add("/sys/#", "iot.a", 0);
  subscriptions.add("/sys/dn/x", "iot.b", 1);
  EXPECT_EQ(subscriptions.subscribersOf("/sys/dn/x"), (Names{"iot.a", "iot.b"}));
  EXPECT_EQ(subscriptions.subscribersOf("/sys/dn/y"), Names{"iot.a"});
  EXPECT_EQ(subscriptions.subscribersOf("/sysdn/x"), Names{});
}

TEST(Subscriptions, AFilterIsGivenUpOnlyWithItsLastSubscriber) {
  Subscriptions subscriptions("");
  subscriptions.add("t", "iot.a", 2);
  subscriptions.add("t", "iot.b", 1);
  EXPECT_EQ(subscriptions.qosOf("t"), 2);
  EXPECT_FALSE(subscriptions.remove("t", "iot.c"));
  EXPECT_FALSE(subscriptions.remove("t", "iot.a"));
  EXPECT_EQ(subscriptions.qosOf("t"), 1);
  EXPECT_TRUE(subscriptions.remove("t", "iot.b"));
  EXPECT_TRUE(subscriptions.filters().empty());
  EXPECT_FALSE(subscriptions.remove("t", "iot.b"));
}

TEST(Subscriptions, TheStateFileOutlivesTheBridgeAndADamagedOneIsNoSubscription) {
  const std::string file = testing::TempDir() + "subscriptions" + std::to_string(getpid());
  Subscriptions(file).add("t", "iot.a", 1);
  Subscriptions restored(file);
  EXPECT_EQ(restored.subscribersOf("t"), Names{"iot.a"});
  EXPECT_EQ(restored.qosOf("t"), 1);
  for (const char* damaged : {"{", "[]", R"({"t": 1})", R"({"t": {"iot.a": "x"}})"}) {
    ASSERT_TRUE(jobm::writeFile(file, damaged));
    EXPECT_EQ(Subscriptions(file).subscribersOf("t"), Names{}) << damaged;
  }
  std::remove(file.c_str());
}

}  // namespace
