#include <gmock/gmock.h>
#include <sys/resource.h>

#include "executor_api/job_calls.h"
#include "executor_api/method_calls.h"
#include "executor_api/registry.h"
#include "executor_api/stored_jobs.h"
#include "neighbourhood.h"

using namespace test;
using testing::ElementsAre;
using testing::IsSupersetOf;

namespace jobm {
namespace {

constexpr const char* kExecutors = "gw_jobm_executors";
constexpr const char* kParsers = "gw_jobm_parsers";
using Texts = std::vector<std::string>;

Json::Value stored(const char* key, const std::string& name) {
  return parsed(getConfig(key))[name];
}

// A good registration of `name` with one part of it replaced.
std::string spoiled(const char* name, const std::string& part, const std::string& by) {
  std::string text = registration(name, "iot.test.refused", R"(["refused"])");
  return text.replace(text.find(part), part.size(), by);
}

TEST(Registry, refuses_a_bad_registration_but_has_stored_what_it_could_read) {
  const std::string watch = R"(["refused"])";
  struct Case {
    const char* name;
    std::string payload;
    std::string error;
    bool isParser;
    bool isStored;
  };
  const Case cases[] = {
      {"../r", spoiled("../r", watch, watch), "registerExecutor executorName error", false, false},
      {"gw_jobm_r", spoiled("gw_jobm_r", watch, watch), "registerExecutor executorName error",
       false, false},
      {"r_path", spoiled("r_path", R"("/iot/test/refused")", R"("iot/test")"),
       "registerExecutor executorAddr error", false, true},
      {"r_types", spoiled("r_types", watch, R"("refused")"), "registerExecutor *Type param error",
       false, true},
      {"r_one", spoiled("r_one", watch, R"(["refused",{}])"),
       "registerExecutor params parse json error", false, true},
      {"a/b", spoiled("a/b", watch, watch), "registerParser executorName error", true, false},
      {"p_types", spoiled("p_types", watch, R"("refused")"),
       "Parser should contain JSON ARRAY MEMBER storeType or watchType", true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.payload);
    const auto take = c.isParser ? registerParser : registerExecutor;
    EXPECT_EQ(onLoop([&] { return take(c.payload); }), c.error);
    EXPECT_EQ(stored(c.isParser ? kParsers : kExecutors, c.name).isObject(), c.isStored);
    EXPECT_FALSE(c.isParser ? getParser(c.name) : getExecutor(c.name));
  }
  EXPECT_TRUE(getExecutorsByWatchType("refused").empty());
  // What could not be read back is not stored, lest it take the others along.
  const std::string deep = std::string(999, '[') + std::string(999, ']');
  addExecutor(spoiled("deep", R"("linkType":1)", R"("deep":)" + deep));
  EXPECT_TRUE(stored(kExecutors, "deep").isNull() && stored(kExecutors, "r_path").isObject());
}

TEST(Registry, refuses_and_forgets_who_cannot_be_connected_to) {
  const std::string moved = registration("known", "iot.test.moved", R"(["known"])");
  const auto areRefused = [&](const std::string& error) {
    for (const auto take : {registerExecutor, registerParser}) {
      const std::string fresh = registration("fresh", "iot.test.fresh", R"(["fresh"])");
      EXPECT_EQ(onLoop([&] { return take(fresh); }), error);
      EXPECT_EQ(onLoop([&] { return take(moved); }), error);
    }
    for (const char* key : {kExecutors, kParsers}) {
      EXPECT_TRUE(stored(key, "fresh").isNull());
      EXPECT_EQ(stored(key, "known")["executorAddr"]["name"], "iot.test.known");
    }
    EXPECT_FALSE(getExecutor("fresh") || getParser("fresh"));
    EXPECT_TRUE(getExecutor("known")->proxy->isConnected());
  };
  addExecutor(registration("known", "iot.test.known", R"(["known"])"));
  addParser(registration("known", "iot.test.known", R"(["known"])"));

  const auto descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), {});
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit tight{static_cast<rlim_t>(descriptors) + 60, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &tight);
  areRefused("too few file descriptors left for another service");
  setrlimit(RLIMIT_NOFILE, &before);

  std::vector<quillon::ConnectionPtr> crowd;
  do {
    crowd.push_back(quillon::DConnection::getDbusConnection());
  } while (dbus_bus_get_unique_name(crowd.back().get()) != nullptr);
  areRefused("the bus refuses the connections for another service");
  const std::string fresh = registration("fresh", "iot.test.fresh", R"(["fresh"])");
  for (const char* key : {kExecutors, kParsers}) setConfig(key, R"({"fresh":)" + fresh + "}");
  const CapturedLog log;
  EXPECT_TRUE(initAllExecutors());
  EXPECT_EQ(log.count(" fresh is skipped: the bus refuses"), 2U);
  EXPECT_FALSE(getExecutor("fresh") || getParser("fresh"));
  crowd.clear();
  addExecutor(moved);
}

TEST(Registry, replaces_the_record_of_a_name_while_its_watch_sets_only_grow) {
  addExecutor(registration("grow", "iot.test.grow", R"(["g1","g1"])", R"(["file"])"));
  addExecutor(registration("other", "iot.test.other", R"(["g1"])"));
  const std::string second = registration("grow", "iot.test.grow2", R"(["g2"])");
  addExecutor(second);
  const Executor record = *getExecutor("grow");
  EXPECT_EQ(record.watchType, Texts{"g2"});
  EXPECT_EQ(record.name, "iot.test.grow2");
  EXPECT_THAT(getExecutorsByWatchType("g1"), ElementsAre("grow", "other"));
  EXPECT_THAT(getExecutorsByWatchType("g2"), ElementsAre("grow"));
  EXPECT_EQ(stored(kExecutors, "grow"), parsed(second));
}

TEST(Registry, restores_unchecked_what_was_stored_and_always_has_the_built_in_executors) {
  setConfig(kExecutors,
            R"({"broken":{"executorName":{}},"gw_jobm_r":)" +
                registration("gw_jobm_r", "iot.test.r", "[]", R"(["x"])") + R"(,"IFTTTEngine":)" +
                registration("IFTTTEngine", "iot.test.impostor", "[]", R"(["x"])") +
                R"(,"Rillmark":)" +
                registration("Rillmark", "iot.edge.Rillmark", R"(["old2"])", R"(["kept"])") + "}");
  setConfig(kParsers, R"({"oldParser":)" + registration("oldParser", "iot.test.p", R"(["old1"])") +
                          R"(,"badParser":{"executorName":"badParser"}})");
  EXPECT_TRUE(initAllExecutors());
  EXPECT_THAT(getParsersByWatchType("old1"), ElementsAre("oldParser"));
  // Unlike a parser's, an executor's types are not served before it registers anew.
  EXPECT_TRUE(getExecutorsByWatchType("old2").empty());
  EXPECT_FALSE(getExecutor("broken") || getExecutor("gw_jobm_r") || getParser("badParser"));

  setConfig(kExecutors, "no JSON");
  EXPECT_TRUE(initAllExecutors());
  EXPECT_EQ(getExecutor("IFTTTEngine")->name, "iot.runtime.js");
  EXPECT_EQ(getExecutor("Rillmark")->storeType, Texts{"kept"});
  EXPECT_THAT(getExecutorsByWatchType("driver"),
              IsSupersetOf(Texts{"CorvexConfig", "driver_manager"}));
}

TEST(Registry, lets_registrations_that_come_in_during_the_restoring_win) {
  Texts names;
  Json::Value old(Json::objectValue);
  for (int i = 0; i < 20; ++i) {
    names.push_back("race" + std::to_string(i));
    old[names.back()] = parsed(registration(names.back(), "iot.test.before", "[]"));
  }
  setConfig(kExecutors, old.toStyledString());
  std::thread restoring(initAllExecutors);
  for (const std::string& name : names) {
    addExecutor(registration(name, "iot.test.live", R"(["race"])"));
  }
  restoring.join();
  for (const std::string& name : names) {
    EXPECT_EQ(stored(kExecutors, name)["executorAddr"]["name"], "iot.test.live");
  }
  // However late the old ones are read.
  names.push_back("IFTTTEngine");
  addExecutor(registration("IFTTTEngine", "iot.test.live", R"(["race"])"));
  addParser(registration("race0", "iot.test.live", R"(["race"])"));
  old["race0"]["watchType"].append("race");
  for (const char* key : {kExecutors, kParsers}) setConfig(key, old.toStyledString());
  EXPECT_TRUE(initAllExecutors());
  for (const std::string& name : names) EXPECT_EQ(getExecutor(name)->name, "iot.test.live");
  EXPECT_EQ(getParser("race0")->name, "iot.test.live");
}

// "a1 b2" is the job "a", which is numbered 1, and then "b", numbered 2.
Json::Value jobsOf(const std::string& text) {
  Json::Value jobs(Json::arrayValue);
  for (std::size_t i = 0; i < text.size(); i += 3) {
    Json::Value job;
    job["resourceId"] = text.substr(i, 1);
    job["n"] = text.substr(i + 1, 1);
    jobs.append(job);
  }
  return jobs;
}

TEST(StoredJobs, are_replaced_appended_and_removed_by_their_ids_with_repeated_ones_too) {
  const std::tuple<const char*, int, const char*, const char*> cases[] = {
      {"a1 b1 a2", 10201, "a3", "b1 a2 a3"},
      {"a1 b1", 10201, "a2 a3", "b1 a3"},
      {"a1 b1 a2 c1", 10204, "a3", "b1 c1"},
      {"a1 A1", 10211, "A2", "a1"},
      {"a1 b1 c1 d1", 10204, "a2 d2 a3 d3", "c1"},
      {"a1 b1", 10219, "b1", ""},
      {"a1", 10202, "b1 a1", "a1"},
  };
  for (const auto& [before, ackCode, items, after] : cases) {
    setConfig("listed", jobsOf(before).toStyledString());
    EXPECT_EQ(updateStoredJobs("listed", jobsOf(items), ackCode), 0);
    EXPECT_EQ(getConfig("listed"), json::styled(jobsOf(after))) << before << " " << ackCode;
  }
  setConfig("listed", "no list");
  EXPECT_EQ(updateStoredJobs("listed", jobsOf("a"), kDeleteJob), 0);
  EXPECT_EQ(getConfig("listed"), "null\n");
}

TEST(MethodCalls, tell_the_driver_manager_of_a_finished_batch_once_as_executor_or_as_parser) {
  FakePeer executor("iot.test.manager");
  FakePeer parser("iot.test.driver");
  addParser(registration("driver_manager", "iot.test.driver", R"(["w1"])"));
  addExecutor(registration("driver_manager", "iot.test.manager", R"(["w1"])"));
  onLoop(callOnWatchTypesFinish);
  ASSERT_TRUE(parser.await("onWatchTypesFinish"));
  addExecutor(registration("driver_manager", "iot.test.manager", R"(["w1","w2"])"));
  onLoop(callOnWatchTypesFinish);
  ASSERT_TRUE(executor.await("onWatchTypesFinish"));
  // This call comes behind a second onWatchTypesFinish, if there was one. Its text is JSON and
  // comes as JSON.
  deployParserJob("k", R"({"a": 1})", *getParser("driver_manager"), {});
  ASSERT_TRUE(parser.await("deployJob"));
  EXPECT_EQ(parser.received("deployJob")[0].text(), "{\"key\":\"k\",\"value\":{\"a\":1}}\n");
  EXPECT_EQ(parser.count("onWatchTypesFinish"), 1U);
}

}  // namespace
}  // namespace jobm
