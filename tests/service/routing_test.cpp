#include "runner_api/routing.h"

#include <set>
#include <stdexcept>
#include <thread>

#include "scheduler_side.h"

namespace {

using namespace jobm;

class Routing : public test::SchedulerSide {
 protected:
  int dispatch(const std::string& payload) {
    return loop.run([&] { return dispatchMasterResponse("/any/topic", payload); });
  }
  static std::string answerTo(std::int64_t id) {
    return R"({"attrs":[{"code":200,"data":9}],"reply":true,"id":)" + std::to_string(id) + "}";
  }
};

TEST_F(Routing, CallsAHandlerOnceWithTheWholeReplyAndForgetsIt) {
  const std::size_t before = outstandingRequests();
  Json::Value got;
  std::int64_t nested = 0;
  const std::int64_t id = fileRequest([&](const Json::Value& reply) {
    got = reply;
    nested = fileRequest({});
    EXPECT_EQ(outstandingRequests(), before + 2) << "forgotten only after the call";
    return false;
  });
  EXPECT_EQ(dispatch(answerTo(id)), 1);
  EXPECT_EQ(got, test::parsed(answerTo(id)));
  EXPECT_EQ(outstandingRequests(), before + 1);

  const test::CapturedLog log;
  EXPECT_EQ(dispatch(answerTo(id)), 1);
  EXPECT_TRUE(log.has("dispatchMasterResponse id " + std::to_string(id) + " no exist\n"));
  EXPECT_EQ(dispatch(answerTo(nested)), 1);
  EXPECT_TRUE(log.has("dispatchMasterResponse func is null"));
  EXPECT_EQ(outstandingRequests(), before);
}

TEST_F(Routing, KeepsTheEntryOfAReplyThatItCanNotRoute) {
  bool called = false;
  const std::int64_t id = fileRequest([&](const Json::Value&) { return called = true; });
  const std::string idMember = R"("id":)" + std::to_string(id);
  for (const std::string& payload : {std::string("not json"), std::string(5000, '[')}) {
    EXPECT_EQ(dispatch(payload), 0);
  }
  EXPECT_THROW(dispatch(R"({"attrs":[{"code":"x"}],)" + idMember + "}"), std::exception);
  EXPECT_FALSE(called);
  EXPECT_EQ(dispatch("{" + idMember + "}"), 1) << "neither attrs nor code are needed";
  EXPECT_TRUE(called);
}

TEST_F(Routing, GivesRequestsOfAllThreadsIdsOfTheirOwn) {
  std::vector<std::vector<std::int64_t>> ids(4);
  std::vector<std::thread> threads;
  threads.reserve(ids.size());
  for (auto& own : ids) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) own.push_back(fileRequest({}));
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<std::int64_t> all;
  for (const auto& own : ids) all.insert(own.begin(), own.end());
  EXPECT_EQ(all.size(), 4000U);
  for (const std::int64_t id : all) dispatch(answerTo(id));
}

}  // namespace
