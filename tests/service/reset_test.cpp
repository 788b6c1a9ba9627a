#include "executor_api/reset.h"

#include "executor_api/registry.h"
#include "scene.h"

using namespace test;

namespace jobm {
namespace {

const fs::path kRoot = kTree.parent_path();
constexpr const char* kOutcome = "resetEJobs actual result";
constexpr const char* kSuccess = R"({"code":0,"message":"","data":null})";

std::string outcome(int code, const std::string& detail, int last) {
  return std::string(kOutcome) + " : {\n   \"code\" : " + std::to_string(code) +
         ",\n   \"detail\" : \"" + detail + "\"\n}\n code : " + std::to_string(last) + "\n";
}

// With the three executors that store anything on a standard gateway.
class Reset : public Scene {
 protected:
  Reset() { EXPECT_TRUE(initAllExecutors()); }

  // Orders a reset and returns its immediate code. The script engine answers so once the order
  // itself and `meanwhile` are done, and leaves a file behind.
  int reset(
      const Answer& answer, const std::function<void()>& meanwhile = [] {}) {
    const auto gate = std::make_shared<std::latch>(1);
    engine->on("resetJobs", [gate, answer](const Received& call) {
      EXPECT_TRUE(call.arguments.empty());
      gate->wait();
      const bool answers = !std::holds_alternative<std::monostate>(answer);
      if (answers) fs::create_directories(kRoot / "iftttengine" / "job");
      return answer;
    });
    const Json::Value started = onLoop(resetEJobs);
    EXPECT_FALSE(fs::exists(kRoot));
    meanwhile();
    gate->count_down();
    return started["code"].asInt();
  }

  // What is reported of a reset that comes as a deployment.
  static Json::Value reportOf(const std::string& deployId) {
    onLoop([&] {
      jobm::handle1Job(R"({"deployId":")" + deployId + R"(","taskId":"task","deployType":1})");
    });
    return detailsOf(deployId).isArray() ? resultsOf(deployId)[0] : Json::Value();
  }

  bool succeeds() const {
    return eventually([this] { return log.has(outcome(0, "reset success", 0)); });
  }

  FakePeer corvex{"iot.gateway.cvbase"};
  FakePeer rillmark{"iot.edge.Rillmark"};
  std::unique_ptr<FakePeer> engine = std::make_unique<FakePeer>("iot.runtime.js");
  const CapturedLog log;
};

TEST_F(Reset, is_a_success_only_when_all_three_executors_say_so) {
  // The engine's answer, what is logged, and whether the engine's directory is removed.
  const std::tuple<Answer, std::string, bool> cases[] = {
      {R"({"code":5,"message":"busy"})", outcome(101204, "busy", 4), false},
      {R"({"code":{}})", outcome(101204, "JOBM_ERROR_ExecutorReplyFormatError", 4), false},
      {kSuccess, outcome(0, "reset success", 0), true},
  };
  for (const auto& [answer, logged, isRemoved] : cases) {
    setConfig("IFTTTEngine", R"([{"resourceId":"r"}])");
    fs::create_directories(kRoot / "old" / "job");
    EXPECT_EQ(reset(answer), 0);
    ASSERT_TRUE(eventually([&, &text = logged] { return log.has(text); })) << logged;
    EXPECT_EQ(getConfig("IFTTTEngine"), "[]\n");
    EXPECT_EQ(fs::exists(kRoot / "iftttengine"), !isRemoved);
  }
}

TEST_F(Reset, counts_to_three_answers_across_orders) {
  reset(std::monostate());
  ASSERT_TRUE(eventually([&] {
    return log.count("resetEJobs sendMessageWithReply res") == 2 && engine->count("resetJobs") == 1;
  }));
  EXPECT_FALSE(log.has(kOutcome));
  reset(kSuccess);
  EXPECT_TRUE(succeeds());
  ASSERT_TRUE(engine->await("resetJobs", 2));
  // What the bus says of one that left without an answer counts as one.
  engine.reset();
  EXPECT_TRUE(eventually([&] { return log.count(kOutcome) == 2; }));
}

TEST_F(Reset, ends_at_the_first_job_list_that_can_not_be_emptied) {
  for (const char* name : {"earlier", "later"}) {
    addExecutor(registration(name, "iot.test.later", "[]", R"(["file"])"));
  }
  setConfig("later", "kept");
  {
    const RefusedKey refused("earlier");
    EXPECT_EQ(reset(kSuccess), 101203);
    EXPECT_EQ(reportOf("reset refused")["details"],
              parsed(R"([{"code":101203,"detail":"reset fail","success":false}])"));
  }
  EXPECT_TRUE(succeeds());
  EXPECT_EQ(getConfig("later"), "kept");
  for (const char* name : {"earlier", "later"}) {
    addExecutor(registration(name, "iot.test.later", R"(["reset"])"));
  }
}

TEST_F(Reset, is_reported_as_one) {
  EXPECT_EQ(reportOf("reset"), parsed(R"({
      "deployId":"reset","taskId":"task","deployType":1,"isLastReply":true,
      "details":[{"code":0,"detail":"reset success","success":true}]})"));
}

TEST_F(Reset, lets_a_deployment_that_comes_meanwhile_keep_what_it_brought) {
  FakePeer worker("iot.test.during");
  addExecutor(registration("busy", "iot.test.during", R"(["during"])"));
  reset(kSuccess, [&] {
    deploy("during", {with(resourceOf("d", "during"), "content", "raw", {.body = "new"})});
    EXPECT_EQ(detailsOf("during")[0]["success"], true);
  });
  EXPECT_TRUE(succeeds());
  EXPECT_TRUE(fs::exists(kTree / "d/_downloaded.raw"));
  EXPECT_EQ(parsed(getConfig("busy"))[0]["resourceId"], "d");
}

}  // namespace
}  // namespace jobm
