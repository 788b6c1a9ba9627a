#include "executor_api/reset.h"

#include <filesystem>
#include <functional>
#include <memory>

#include "executor_api/registry.h"
#include "scene.h"

using namespace test;

namespace jobm {
namespace {

namespace fs = std::filesystem;

const fs::path kRoot = "/tarnvale/run/downloaded-job";
constexpr const char* kOutcome = "resetEJobs actual result";
constexpr const char* kSuccess = R"({"code":0,"message":"","data":null})";
const Answer kSilence = std::monostate();

std::string outcome(int code, const std::string& detail, int last) {
  return std::string(kOutcome) + " : {\n   \"code\" : " + std::to_string(code) +
         ",\n   \"detail\" : \"" + detail + "\"\n}\n code : " + std::to_string(last) + "\n";
}

// The three executors that store anything on a standard gateway. Their answers wait until the reset
// order itself is done, and leave a file behind for each.
class BuiltInPeers {
 public:
  BuiltInPeers() { initAllExecutors(); }

  // Orders a reset that is answered so, and returns its immediate code.
  int reset(
      const Answer& corvex, const Answer& engine, const Answer& rillmark,
      const std::function<void()>& meanwhile = [] {}) {
    const auto gate = std::make_shared<Gate>();
    answer(corvexConfig, "corvexconfig", gate, corvex);
    answer(scriptEngine, "iftttengine", gate, engine);
    answer(rillmarkEngine, "rillmark", gate, rillmark);
    const Json::Value started = onLoop(resetEJobs);
    EXPECT_FALSE(fs::exists(kRoot));
    meanwhile();
    gate->open();
    return started["code"].asInt();
  }

  std::size_t called() const {
    return corvexConfig.count("resetJobs") + scriptEngine.count("resetJobs") +
           rillmarkEngine.count("resetJobs");
  }

 private:
  static void answer(FakePeer& peer, const char* directory, const std::shared_ptr<Gate>& gate,
                     const Answer& answer) {
    peer.on("resetJobs", [directory, gate, answer](const Received& call) {
      EXPECT_TRUE(call.arguments.empty());
      gate->wait();
      const bool answers = !std::holds_alternative<std::monostate>(answer);
      if (answers) fs::create_directories(kRoot / directory / "job");
      return answer;
    });
  }

  FakePeer corvexConfig{"iot.gateway.cvbase"};
  FakePeer scriptEngine{"iot.runtime.js"};
  FakePeer rillmarkEngine{"iot.edge.Rillmark"};
};

TEST(Reset, is_a_success_only_when_all_three_executors_say_so) {
  struct Case {
    Answer answer;  // of the middle one
    std::string logged;
    bool isRemoved;  // its directory
  };
  const Case cases[] = {
      {kSuccess, outcome(0, "reset success", 0), true},
      {R"({"code":5,"message":"busy"})", outcome(101204, "busy", 4), false},
      {R"({"code":{}})", outcome(101204, "JOBM_ERROR_ExecutorReplyFormatError", 4), false},
  };
  for (const Case& c : cases) {
    const CapturedLog log;
    setConfig("IFTTTEngine", R"([{"resourceId":"r"}])");
    fs::create_directories(kRoot / "old" / "job");
    BuiltInPeers peers;
    EXPECT_EQ(peers.reset(kSuccess, c.answer, kSuccess), 0);
    ASSERT_TRUE(eventually([&] { return log.has(c.logged); })) << c.logged;
    EXPECT_EQ(getConfig("IFTTTEngine"), "[]\n");
    EXPECT_EQ(fs::exists(kRoot / "iftttengine"), !c.isRemoved);
    fs::remove_all(kRoot);
  }
}

TEST(Reset, counts_to_three_answers_across_orders) {
  const CapturedLog log;
  const auto answers = [&] { return log.count("resetEJobs sendMessageWithReply res"); };
  {
    BuiltInPeers peers;
    peers.reset(kSuccess, kSilence, kSuccess);
    ASSERT_TRUE(eventually([&] { return answers() == 2 && peers.called() == 3; }));
    EXPECT_FALSE(log.has(kOutcome));
    peers.reset(kSilence, kSuccess, kSilence);
    EXPECT_TRUE(eventually([&] { return log.has(outcome(0, "reset success", 0)); }));
    ASSERT_TRUE(eventually([&] { return peers.called() == 6; }));
  }
  // What the bus says of the three that left without an answer counts as one of each.
  EXPECT_TRUE(eventually([&] { return log.count(kOutcome) == 2; }));
}

TEST(Reset, ends_at_the_first_job_list_that_can_not_be_emptied) {
  for (const char* name : {"gw_system_r", "later"}) {
    addExecutor(registration(name, "iot.test.later", "[]", R"(["file"])"));
  }
  setConfig("later", "kept");
  const CapturedLog log;
  BuiltInPeers peers;
  EXPECT_EQ(peers.reset(kSuccess, kSuccess, kSuccess), 101203);
  EXPECT_TRUE(eventually([&] { return log.has(outcome(0, "reset success", 0)); }));
  EXPECT_EQ(getConfig("later"), "kept");
  for (const char* name : {"gw_system_r", "later"}) {
    addExecutor(registration(name, "iot.test.later", R"(["reset"])"));
  }
}

using DuringAReset = Scene;

TEST_F(DuringAReset, a_deployment_is_carried_out_and_keeps_what_it_brought) {
  const CapturedLog log;
  FakePeer worker("iot.test.during");
  addExecutor(registration("busy", "iot.test.during", R"(["during"])"));
  BuiltInPeers peers;
  peers.reset(kSuccess, kSuccess, kSuccess, [&] {
    deploy("during", {with(resourceOf("d", "during"), "content", "raw", {.body = "new"})});
    EXPECT_EQ(detailsOf("during")[0]["success"], true);
  });
  EXPECT_TRUE(eventually([&] { return log.has(outcome(0, "reset success", 0)); }));
  EXPECT_TRUE(fs::exists(kTree / "d/_downloaded.raw"));
  EXPECT_EQ(parsed(getConfig("busy"))[0]["resourceId"], "d");
}

}  // namespace
}  // namespace jobm
