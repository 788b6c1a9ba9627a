#include "executor_api/registry.h"

#include <dbus_process_call.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <iterator>
#include <thread>

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

std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

// A good registration of `name` with one part of it replaced.
std::string spoiled(const char* name, const std::string& part, const std::string& by) {
  std::string text = registration(name, "iot.test.refused", R"(["refused"])");
  return text.replace(text.find(part), part.size(), by);
}

TEST(Registry, refuses_a_bad_registration_but_has_stored_what_it_could_read) {
  const std::string unreadable = "registerExecutor params parse json error";
  const std::string watch = R"(["refused"])";
  struct Case {
    const char* name;
    std::string payload;
    std::string error;
    bool isParser;
    bool isStored;
  };
  const Case cases[] = {
      {"r", "no JSON", unreadable, false, false},
      {"../r", spoiled("../r", watch, watch), "registerExecutor executorName error", false, false},
      {"r_path", spoiled("r_path", R"("/iot/test/refused")", R"("iot/test")"),
       "registerExecutor executorAddr error", false, true},
      {"r_types", spoiled("r_types", watch, R"("refused")"), "registerExecutor *Type param error",
       false, true},
      {"r_one", spoiled("r_one", watch, R"(["refused",{}])"), unreadable, false, true},
      {"p", spoiled("p", R"("p")", "[]"), "Invalid payload", true, false},
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

TEST(Registry, keeps_the_proxy_of_the_same_address_and_leaves_nothing_of_replaced_ones) {
  const std::string here = registration("moving", "iot.test.here", R"(["m"])");
  addExecutor(here);
  const std::weak_ptr<quillon::DProxy> first = getExecutor("moving")->proxy;
  addExecutor(here);
  EXPECT_EQ(getExecutor("moving")->proxy, first.lock());
  const auto threads = entriesOf("/proc/self/task");
  for (int i = 0; i < 30; ++i) {
    addExecutor(registration("moving", "iot.test.there", R"(["m"])"));
    addExecutor(here);
  }
  EXPECT_TRUE(first.expired());
  EXPECT_TRUE(eventually([&] { return entriesOf("/proc/self/task") <= threads; }));
}

TEST(Registry, restores_unchecked_what_was_stored_and_always_has_the_built_in_executors) {
  setConfig(kExecutors, R"({"old":{"executorName":"old","executorAddr":{"path":"no/slash"},)"
                        R"("watchType":["old1"]},"broken":{"executorName":{}},"IFTTTEngine":)" +
                            registration("IFTTTEngine", "iot.test.impostor", "[]", R"(["x"])") +
                            R"(,"Rillmark":)" +
                            registration("Rillmark", "iot.edge.Rillmark", "[]", R"(["kept"])") +
                            "}");
  setConfig(kParsers, R"({"oldParser":)" + registration("oldParser", "iot.test.p", R"(["old1"])") +
                          R"(,"badParser":{"executorName":"badParser"}})");
  initAllExecutors();
  EXPECT_EQ(getExecutor("old")->path, "no/slash");
  EXPECT_TRUE(getExecutorsByWatchType("old1").empty());
  EXPECT_FALSE(getExecutor("broken"));
  EXPECT_THAT(getParsersByWatchType("old1"), ElementsAre("oldParser"));
  EXPECT_FALSE(getParser("badParser"));

  setConfig(kExecutors, "no JSON");
  setConfig(kParsers, "");
  initAllExecutors();
  EXPECT_EQ(getExecutor("IFTTTEngine")->name, "iot.runtime.js");
  EXPECT_EQ(getExecutor("Rillmark")->storeType, Texts{"kept"});
  EXPECT_THAT(getExecutorsByWatchType("driver"),
              IsSupersetOf(Texts{"CorvexConfig", "driver_manager"}));
}

TEST(Registry, lets_registrations_that_come_in_during_the_restoring_win) {
  constexpr int kServices = 20;
  const auto nameOf = [](int i) { return "race" + std::to_string(i); };
  Json::Value old(Json::objectValue);
  old["resting"] = parsed(registration("resting", "iot.test.resting", "[]"));
  for (int i = 0; i < kServices; ++i) {
    old[nameOf(i)] = parsed(registration(nameOf(i), "iot.test.before", "[]"));
  }
  setConfig(kExecutors, old.toStyledString());
  std::thread restoring(initAllExecutors);
  for (int i = 0; i < kServices; ++i) {
    addExecutor(registration(nameOf(i), "iot.test.live", R"(["race"])"));
  }
  restoring.join();
  EXPECT_EQ(getExecutor("resting")->name, "iot.test.resting");
  EXPECT_TRUE(stored(kExecutors, "resting").isObject());
  for (int i = 0; i < kServices; ++i) {
    EXPECT_EQ(stored(kExecutors, nameOf(i))["executorAddr"]["name"], "iot.test.live");
  }
  // However late the old ones are read.
  setConfig(kExecutors, old.toStyledString());
  initAllExecutors();
  for (int i = 0; i < kServices; ++i) EXPECT_EQ(getExecutor(nameOf(i))->name, "iot.test.live");
}

}  // namespace
}  // namespace jobm
