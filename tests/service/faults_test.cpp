// What goes wrong around the service, by who does it wrong. Each case says what the cloud is told,
// what is logged and what is kept, and after each of them an ordinary job succeeds.

#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <fstream>
#include <future>

#include "executor_api/job_calls.h"
#include "executor_api/registry.h"
#include "executor_api/reset.h"
#include "executor_api/stored_jobs.h"
#include "scene.h"
#include "sync_job_status/journal.h"
#include "sync_job_status/sync_job_status.h"
#include "util/task_unzip.h"
#include "wire/codes.h"

using namespace test;

namespace jobm {
namespace {

constexpr const char* kNoPath = "获取或者创建任务路径为空";
const Answer kSilence = std::monostate();

Json::Value outcome(bool success, const Json::Value& code, const Json::Value& message) {
  Json::Value value;
  value["success"] = success;
  value["code"] = code;
  value["message"] = message;
  return value;
}

const Json::Value kIgnored = outcome(true, "0", "No one registered, ignored.");

// A file system of its own.
class Mount {
 public:
  Mount(const fs::path& at, const char* options) : path(at) {
    fs::create_directories(path);
    isThere = mount("tmpfs", path.c_str(), "tmpfs", 0, options) == 0;
  }
  ~Mount() {
    if (isThere) umount2(path.c_str(), MNT_DETACH);
  }
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;

  bool isThere = false;  // as far as this machine permits it

 private:
  const fs::path path;
};

class Faults : public Scene {
 protected:
  struct Case {
    Json::Value resource;
    Json::Value expected;  // what is reported of it
    std::string logged = "Error occurred while downloading resource ";
    std::function<bool()> begin = [] { return true; };  // false if it can't be had here
  };

  // Deploys the resource beside another one and a deletion while the fault lasts; returns the
  // report's details.
  Json::Value show(const Case& c) {
    SCOPED_TRACE(c.logged);
    Json::Value details;
    std::error_code ignored;
    if (const CapturedLog log; c.begin()) {
      fs::create_directories(kTree / "gone", ignored);
      const std::string deployId = "faulty " + std::to_string(++jobs);
      deploy(deployId, {c.resource, text("good", "good"), resourceOf("gone", "good", 1)});
      details = detailsOf(deployId, 1, 20);
      EXPECT_EQ(outcomeOf(details), c.expected);
      EXPECT_TRUE(log.has(c.logged));
      EXPECT_FALSE(fs::exists(kTree.parent_path() / "out") || fs::exists(kTree / "faulty/out"));
      EXPECT_FALSE(fs::exists(kTree / "gone"));
      const std::string message = c.expected["message"].asString();
      const bool hadNoRoom = message.ends_with("_23") || message.ends_with(" =6");
      EXPECT_FALSE(hadNoRoom && fs::exists(kTree / "faulty/faulty.config"));
    }
    other.reset();
    if (std::getenv("GATEWAY_CONFIG_DB") != nullptr) ordinaryJob();  // with the store as it was
    disk.reset();
    closeStore();
    for (const fs::path& path : {elsewhere, fs::path("/tarnvale/run")}) fs::remove_all(path);
    ordinaryJob();
    return details;
  }

  // A job with all that takes part in one: download, store, parser and executor.
  void ordinaryJob() {
    const std::string deployId = "ordinary " + std::to_string(++jobs);
    FakePeer peer("iot.test.worker");
    addParser(registration("worker", "iot.test.worker", R"(["ordinary"])"));
    addExecutor(registration("worker", "iot.test.worker", R"(["ordinary"])"));
    deploy(deployId, {text("ordinary", "ordinary", deployId)});
    EXPECT_EQ(outcomeOf(detailsOf(deployId)), outcome(true, {}, {}));
    EXPECT_EQ(peer.count("deployConfig"), 1U);
    EXPECT_EQ(parsed(getConfig("worker")), parsed(peer.received("deployJob").at(0).text()));
    EXPECT_EQ(getConfig("ordinary"), deployId);
    EXPECT_EQ(resultsOf(deployId).size(), 1U);
  }

  // What the report says of the first resource.
  static Json::Value outcomeOf(const Json::Value& details) {
    const Json::Value& first = details[0];
    return outcome(first["success"].asBool(), first["code"], first["message"]);
  }

  static void closeStore() {
    unsetenv("GATEWAY_CONFIG_DB");
    getConfig("");
  }

  const fs::path elsewhere = "/tmp/var/elsewhere";
  std::unique_ptr<Mount> disk;
  std::unique_ptr<sqlite3, decltype(&sqlite3_close)> other{nullptr, sqlite3_close};

 private:
  inline static int jobs = 0;  // of all tests: their names tell them apart
};

TEST_F(Faults, of_a_resource_cost_it_alone_before_anything_is_stored_or_called) {
  const auto changed = [&](const char* key, const Json::Value& value) {
    Json::Value resource = text("faulty", "never");
    resource[key] = value;
    return resource;
  };
  const auto page = [&](const Page& answer) {
    return with(resourceOf("faulty", "never"), "config", "text", answer);
  };
  const auto notFetched = [](const std::string& why) {
    return outcome(false, 101208, "ERROR_DOWNLOADFail" + why);
  };
  FakePeer executor("iot.test.never");
  addExecutor(registration("never", "iot.test.never", R"(["never"])"));
  for (const char* key : {"gw_system_productkey", "never"}) setConfig(key, "kept");
  const Json::Value noKeys = outcome(false, 101201, "Keys in resource from cloud is not enough.");
  const Case cases[] = {
      {changed("configKivAddress", "http://127.0.0.1:1/"), notFetched("_7"), "http_code = 0\n"},
      {page({.status = 302, .header = "Location: /0\r\n"}), notFetched("_302"),
       " finish ret = 302\n"},
      {page({.missing = 1, .then = Then::end}), notFetched("_18"), "_perform ret = 18 "},
      {zip("faulty", "never", "no archive"), notFetched(", unzip res =1"),
       " unzOpen value NULL \n"},
      {changed("configFormat", "/../../../out"), notFetched("_-1"), "no name for a file: "},
      {"a text", noKeys},
      {changed("resourceId", {}), noKeys},
      {changed("resourceId", "../configmanager"), outcome(false, 101202, kNoPath)},
      {zip("faulty", "never", zipOf({{"other.json", "{}"}})),
       outcome(false, 101203, "SetConfigManager_Fail_OpenDownloadedFile"),
       "All resources are downloaded, "},
      {text("faulty", "gw_system_productkey", "ours"),
       outcome(false, 101203, "SetConfigManager_Fail_-1"), "is this service's own"},
  };
  // The other one is told about in full.
  const std::string config = kTree / "good/good.config/config.json";
  for (const Case& c : cases) {
    const Json::Value details = show(c);
    EXPECT_EQ(details[1]["data"]["config"], config);
    EXPECT_EQ(details[2]["message"], "Resource has been successfully deleted.");
  }
  for (const char* key : {"gw_system_productkey", "never"}) EXPECT_EQ(getConfig(key), "kept");
  EXPECT_EQ(executor.count("deployJob"), 0U);
}

TEST_F(Faults, of_an_answer_are_told_apart_for_parsers_and_only_counted_for_executors) {
  // Deploys a resource of a service that answers so; silence is that of one which dies in the call.
  const auto deployTo = [&](const char* method, const std::string& type, const Answer& answer) {
    auto peer = std::make_unique<FakePeer>("iot.test.faulty");
    addParser(registration("faulty", "iot.test.faulty", R"(["deployConfig"])"));
    addExecutor(registration("faulty", "iot.test.faulty", R"(["deployJob"])"));
    peer->answer(method, answer);
    deploy(type, {text("faulty", method, type)});
    EXPECT_TRUE(peer->await(method));
    if (std::holds_alternative<std::monostate>(answer)) peer.reset();
    EXPECT_EQ(getConfig(method), type);
    return outcomeOf(detailsOf(type));
  };
  const std::string missing = "The name was not provided by any .service files, says the bus";
  const std::string format = "JOBM_ERROR_ExecutorReplyFormatError";
  const std::string wrongTypes = "deployJob json error ! e = ";
  const std::string fine = "Last successfully processed by faulty";
  // The answer, the code and message that are reported for a parser, and what is logged.
  const std::tuple<Answer, int, std::string, std::string> cases[] = {
      {R"({"code":7,"message":"no"})", 7, "no", R"( error res = {"code":7,"message":"no"})"},
      {"ok", 101206, format, " parse failed res = ok\n[deployId="},
      {std::string(2000, '['), 101206, format, " parse failed res = [["},
      {"[]", 101206, format, wrongTypes},
      {R"({"code":0,"message":{}})", 101206, format, wrongTypes},
      {Error{"org.any.Error", missing}, 101207, "Service not exist", " error res = The name"},
      {Twice{R"({"code":4,"message":"twice"})"}, 4, "twice", R"( error res = {"code":4,)"},
      {"{}", 0, fine, " res = {}\n"},
      {kSilence, 101205, "timeout without reply", " error res = Message recipient"},
  };
  int n = 0;
  for (const auto& [answer, code, message, logged] : cases) {
    const std::string id = std::to_string(++n);
    SCOPED_TRACE(id);
    {
      const CapturedLog log;
      EXPECT_EQ(deployTo("deployConfig", "parsed " + id, answer),
                outcome(code == 0, std::to_string(code), message));
      EXPECT_EQ(deployTo("deployJob", "carried out " + id, answer), outcome(code == 0, {}, {}));
      EXPECT_GE(log.count(logged), 2U) << logged;
    }
    ordinaryJob();
  }
}

TEST_F(Faults, of_memory_are_reported_like_any_other) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer needs all the memory there is";
#endif
  Json::Value request = parsed(R"({"deployId":"too large","taskId":"task","deployType":0})");
  request["resources"][0] =
      zip("faulty", "unwatched", zipOf({{"config.json", std::string(std::size_t{64} << 20, ' ')}}));
  rlimit usual{};
  getrlimit(RLIMIT_AS, &usual);
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlimit scarce{pages * 4096 + (rlim_t{32} << 20), usual.rlim_max};
  setrlimit(RLIMIT_AS, &scarce);
  onLoop([&] { handle1Job(acceptJob(json::styled(request))); });
  setrlimit(RLIMIT_AS, &usual);
  EXPECT_EQ(outcomeOf(detailsOf("too large")), outcome(false, 101209, "std::bad_alloc"));
  ordinaryJob();
}

TEST_F(Faults, of_the_store_fail_the_resource_until_their_cause_is_gone) {
  const std::string database = elsewhere / "gateway.db";
  const auto lock = [&] {
    sqlite3* raw = nullptr;
    sqlite3_open(database.c_str(), &raw);
    other.reset(raw);
    return sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
  };
  const std::tuple<int, const char*, std::function<bool()>> causes[] = {
      {SQLITE_BUSY, "store: database is locked\n", lock},
      {SQLITE_FULL, "store: database or disk is full\n", [&] { return disk->isThere; }}};
  for (const auto& [result, logged, begin] : causes) {
    const std::size_t size = result == SQLITE_FULL ? 300000 : 1;
    show({text("faulty", "faulty", std::string(size, 'x')),
          outcome(false, 101203, "SetConfigManager_Fail_" + std::to_string(result)), logged,
          [&, &begin = begin] {
            disk = std::make_unique<Mount>(elsewhere, "size=256k");
            setenv("GATEWAY_CONFIG_DB", database.c_str(), 1);
            setConfig("kept", "value");
            return begin();
          }});
  }
}

TEST_F(Faults, of_reading_the_store_write_nothing_over) {
  fs::create_directories(elsewhere);
  ASSERT_TRUE(writeFile(elsewhere / "gateway.db", std::string(5000, 'x')));
  setenv("GATEWAY_CONFIG_DB", (elsewhere / "gateway.db").c_str(), 1);
  EXPECT_EQ(updateStoredJobs("kept", parsed("[]"), kAddJob), kStoreUnreadable);
  const std::string registered = registration("kept", "iot.test.kept", R"(["kept"])");
  const std::string unread = " configuration store can't be read";
  EXPECT_EQ(onLoop([&] { return registerExecutor(registered); }), "registerExecutor" + unread);
  EXPECT_EQ(onLoop([&] { return registerParser(registered); }), "registerParser" + unread);
  EXPECT_FALSE(initAllExecutors() || getExecutor("kept") || getParser("kept"));
}

TEST_F(Faults, of_the_tree_are_reported_where_they_keep_a_resource_from_being_stored) {
  const auto small = [&](const fs::path& at, const char* size = "size=4k") {
    return [=, this] { return (disk = std::make_unique<Mount>(at, size))->isThere; };
  };
  const Json::Value resource = text("faulty", "unwatched", std::string(20000, 'n'));
  // One of these would leave less than 2 % of 8 MiB free; the second is more than all of it.
  const std::string large(8'320'000, 'l');
  const auto archive = [&](int times) {
    return zip("faulty", "unwatched",
               zipOf({{"first", "x"}, {"large", large, 0, Z_DEFLATED, times}}));
  };
  // What would leave 50 MiB of 4 GiB free is begun, though it isn't all there.
  const Page huge{.missing = std::size_t{4046} << 20, .then = Then::end};
  std::vector<ZipEntry> tiny;  // a page each
  while (tiny.size() < 1980) tiny.push_back({std::to_string(tiny.size()), "x"});
  const Json::Value driver =
      text("faulty", "driver",
           R"({"driverName":"d","driverId":"","runtime":")" + std::string(7900, 'r') + "\"}");
  const std::string path = kTree / "faulty/faulty.config/config.json";
  const Case cases[] = {
      {resource, outcome(false, 101202, kNoPath),
       "mkdir Error path = " + (kTree / "faulty/faulty.config\n").string(),
       [] {
         fs::remove_all("/tarnvale/run");
         return writeFile("/tarnvale/run", "in the way");
       }},
      {resource, outcome(false, 101208, "ERROR_DOWNLOADFail_23"), "http_download finish ret = 23\n",
       small(kTree)},
      {text("faulty", "unwatched", large), outcome(false, 101208, "ERROR_DOWNLOADFail_23"),
       "http_download finish ret = 23\n", small(kTree, "size=8m")},
      {archive(1), outcome(false, 101208, "ERROR_DOWNLOADFail, unzip res =6"), "error -1\n",
       small(kTree, "size=8m")},
      {archive(2), outcome(false, 101208, "ERROR_DOWNLOADFail, unzip res =6"), "error -1\n",
       small(kTree, "size=8m")},
      {zip("faulty", "unwatched", zipOf(tiny)),
       outcome(false, 101208, "ERROR_DOWNLOADFail, unzip res =6"), "error -1\n",
       small(kTree, "size=8m")},
      {with(resourceOf("faulty", "unwatched"), "config", "text", huge),
       outcome(false, 101208, "ERROR_DOWNLOADFail_18"), "http_download finish ret = 18\n",
       small(kTree, "size=4g")},
      {driver, outcome(false, 101209, "driver configuration " + path + " can't be written"),
       "downloadResources catched error: driver configuration ", small(kTree, "size=8k")},
      {resource, kIgnored, "remove dir fail, destDir = " + (kTree / "faulty\n").string(),
       small(kTree / "faulty/stuck")},
  };
  // Where there was no room for the first resource, there is for the one behind it.
  for (const Case& c : cases) EXPECT_EQ(show(c)[1]["success"], c.expected["code"] != 101202);
  // Directories take room, too.
  const std::string folders = "/tmp/var/folders.zip";
  ASSERT_TRUE(writeFile(folders, zipOf({{"folder/", ""}})));
  if (!small(elsewhere, "size=8m")()) return;
  ASSERT_TRUE(writeFile(elsewhere / "large", large));
  EXPECT_EQ(unzipTask(folders, elsewhere), 6);
}

TEST_F(Faults, of_an_address_cost_the_resources_of_its_owner_and_no_reset) {
  const Json::Value noService = outcome(false, "101207", "Service not exist");
  const std::pair<std::string, const char*> faults[] = {
      {R"("name":"iot)", R"("name":"iot.)"},
      {R"("interface":"iot)", "\"interface\":\"\xE9"},
      {R"("path":"/iot)", R"("path":"//iot)"},
  };
  for (const auto& [right, wrong] : faults) {
    const auto payload = [&from = right, &to = wrong](const std::string& type) {
      std::string text = registration("misnamed", "iot.fine", "[\"" + type + "\"]", R"(["file"])");
      return text.replace(text.find(from), from.size(), to);
    };
    // Unchecked, as everything that comes back from the store.
    show({text("faulty", "restored"), noService, "make new method call message for '", [&] {
            setConfig("gw_jobm_parsers", R"({"old":)" + payload("restored") + "}");
            setConfig("gw_jobm_executors", R"({"old":)" + payload("") + "}");
            EXPECT_TRUE(initAllExecutors());
            return onLoop(resetEJobs)["code"] == 0;
          }});
  }
}

TEST_F(Faults, of_a_text_are_mended_on_the_bus_and_kept_in_the_store) {
  FakePeer parser("iot.test.texts");
  addParser(registration("texts", "iot.test.texts", R"(["texts"])"));
  std::string resource = json::compact(text("latin", "texts", "caf\xE9"));
  resource.replace(resource.find("s-latin"), 7, R"(\udc00)");
  setDeviceInfo("key", "d\xE9vice");
  onLoop(
      [&] { handle1Job(R"({"deployId":"texts","deployType":0,"resources":[)" + resource + "]}"); });
  EXPECT_TRUE(eventually([&] {
    const std::vector<Received> published = bridge().received("publish");
    if (published.empty()) return false;
    const Received& last = published.back();
    return last.text() == "/sys/key/d\uFFFDvice/edge/deploy/post" &&
           parsed(last.text(1))["details"][0]["snapshotId"] == "\uFFFD";
  }));
  setDeviceInfo("key", "device");
  EXPECT_EQ(parsed(parser.received("deployConfig").at(0).text())["value"], "caf\uFFFD");
  EXPECT_EQ(getConfig("texts"), "caf\xE9");

  // More than the bus takes in one message never reaches the parser.
  deploy("large", {text("large", "texts", std::string(33 << 20, 'x'))});
  EXPECT_EQ(outcomeOf(detailsOf("large")),
            outcome(false, "101206", "JOBM_ERROR_ExecutorReplyFormatError"));
  EXPECT_EQ(parser.count("deployConfig"), 1U);

  // Nor an executor.
  addExecutor(registration("long", "iot.test.texts", R"(["long"])"));
  Json::Value tooLong = text("long", "long");
  tooLong["more"] = std::string(33 << 20, 'x');
  deploy("long", {tooLong});
  EXPECT_EQ(outcomeOf(detailsOf("long")),
            outcome(false, "101206", "JOBM_ERROR_ExecutorReplyFormatError"));
  EXPECT_EQ(getConfig("long").find("s-long"), std::string::npos) << "in the executor's job list";
  EXPECT_EQ(parser.count("deployJob"), 0U);
  ordinaryJob();
}

TEST_F(Faults, do_not_come_of_the_size_of_what_is_in_an_archive) {
  if (fs::space("/tarnvale").available < 4ULL << 30) GTEST_SKIP() << "no room for it";
  const ZipEntry large{"zeros", std::string(1 << 20, '\0'), 0, Z_DEFLATED, 2048};
  const Page archive{.body = zipOf({large})};
  deploy("size", {with(resourceOf("large", "unwatched"), "content", "zip", archive)});
  EXPECT_EQ(outcomeOf(detailsOf("size")), kIgnored);
  EXPECT_EQ(fs::file_size(kTree / "large/zeros"), 2048ULL << 20);
  fs::remove_all(kTree);
}

// The one test that waits for calls to be given up, all that there are at the same time.
TEST_F(Faults, of_who_is_silent_or_late_are_over_after_half_a_minute) {
  {
    const CapturedLog log;
    std::latch gate(1);
    FakePeer late("iot.test.late");
    FakePeer silent("iot.test.silent");
    FakePeer corvex("iot.gateway.cvbase");
    FakePeer engine("iot.runtime.js");
    FakePeer rillmark("iot.edge.Rillmark");
    for (const char* method : {"deployJob", "deleteJob", "deployConfig", "resetJobs"}) {
      for (FakePeer* peer : {&silent, &corvex, &engine, &rillmark}) peer->answer(method, kSilence);
    }
    const auto waiting = [&](const auto&) {
      gate.wait();
      return R"({"code":0})";
    };
    late.on("deployJob", waiting);
    bridge().on("subscribe", waiting);
    EXPECT_TRUE(initAllExecutors());
    addExecutor(registration("late", "iot.test.late", R"(["late"])"));
    addExecutor(registration("silent", "iot.test.silent", R"(["late"])"));
    addParser(registration("silent", "iot.test.silent", R"(["silently parsed"])"));
    auto subscribed = std::async(std::launch::async, [] { return subscribe("t", "iot.test", 1); });
    EXPECT_TRUE(bridge().await("subscribe"));  // which answers nothing until it is done with this
    Json::Value summary;
    const auto onReply = [&](const RecordReply& record) { record(summary); };
    onLoop([&] {
      handle1Job(acceptJob(R"({"deployId":"untaken","deployType":0,"resources":[]})"));
      resetEJobs();
      Json::Value added = parsed(R"([{"snapshotId":"s1"}])");
      EXPECT_EQ(deployEJob("late", "", added, "silent", onReply)["code"], 0);
      const Json::Value deleted = parsed(R"([{"snapshotId":"s2"}])");
      EXPECT_EQ(deleteEJob("late", "", deleted, "silent", onReply)["code"], 0);
      added[0]["snapshotId"] = "s3";
      EXPECT_EQ(deployEJob("late", "", added, "late", onReply)["code"], 0);
      handle1Job(R"({"deployId":"abandoned","deployType":0,"resources":[
          {"operate":0,"snapshotId":"s","resourceId":"silent","resourceType":"silently parsed"},
          {"operate":0,"snapshotId":"u","resourceId":"unasked","resourceType":"late"}]})");
      handle1Job(R"({"deployId":"after it","deployType":0,"resources":["unreadable"]})");
    });
    // Goes on when it fails: what waits at the gate would never end otherwise.
    EXPECT_TRUE(eventually(
        [&] { return log.count("deployId late taskId  sendMessageWithReply reply NULL\n") == 3; },
        45));
    EXPECT_TRUE(eventually([&] { return log.has("the bridge did not take the report"); }));
    EXPECT_EQ(subscribed.get(), -1);
    EXPECT_EQ(late.count("deployJob"), 1U);
    gate.count_down();
    onLoop([&] {
      EXPECT_EQ(summary, parsed(R"({
          "s1":{"snapshotId":"s1","success":false,"resourceName":null},
          "s2":{"snapshotId":"s2","success":false,"resourceName":null},
          "s3":{"snapshotId":"s3","success":false,"resourceName":null}})"));
    });
    // The bridge has it after all, but nobody knows.
    EXPECT_TRUE(eventually([] { return resultsOf("untaken").size() == 1; }));
    onLoop(publishAgain);
    EXPECT_TRUE(eventually([] { return resultsOf("untaken").size() == 2; }));
    // A deployment whose parser is silent is reported by its end, calls no executor, and the next
    // one has its turn.
    EXPECT_EQ(detailsOf("after it")[0]["code"], 101201);
    EXPECT_EQ(detailsOf("abandoned"), parsed(R"([
        {"snapshotId":"s","success":false,"code":"101205","message":"timeout without reply"},
        {"snapshotId":"u","success":true,"code":"0","message":"No one registered, ignored."}])"));
    EXPECT_EQ(late.count("deployJob"), 1U);
    // The next reset's three answers are its own.
    EXPECT_FALSE(log.has("resetEJobs actual result"));
    for (FakePeer* peer : {&corvex, &engine, &rillmark}) peer->answer("resetJobs", "{}");
    onLoop(resetEJobs);
    EXPECT_TRUE(eventually([&] { return log.has("\"reset success\"\n}\n code : 0\n"); }));
    EXPECT_EQ(subscribe("t", "iot.test", 1), 0);
    bridge().on("subscribe", {});
  }
  ordinaryJob();
}

}  // namespace
}  // namespace jobm
