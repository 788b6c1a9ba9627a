// What goes wrong around the service, by who does it wrong. Each case says what the cloud is told,
// what is logged and what is kept, and after each of them an ordinary job succeeds.

#include <CapturedLog.h>
#include <dbus_process_call.h>
#include <sqlite3.h>
#include <sys/mount.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <memory>

#include "executor_api/job_calls.h"
#include "executor_api/registry.h"
#include "executor_api/reset.h"
#include "runner_api/identity.h"
#include "scene.h"

using namespace test;

namespace jobm {
namespace {

namespace fs = std::filesystem;

const Answer kSilence = std::monostate();

class Faults : public Scene {
 protected:
  // A job with all that takes part in one: download, store, parser and executor.
  void ordinaryJob() {
    const std::string deployId = "ordinary " + std::to_string(++jobs);
    FakePeer peer("iot.test.worker");
    addParser(registration("worker", "iot.test.worker", R"(["ordinary"])"));
    addExecutor(registration("worker", "iot.test.worker", R"(["ordinary"])"));
    deploy(deployId, {text("ordinary", "ordinary", deployId)});
    EXPECT_EQ(detailsOf(deployId), parsed(R"([{"snapshotId":"s-ordinary","success":true,
        "code":null,"message":null}])"));
    EXPECT_EQ(peer.count("deployConfig"), 1U);
    EXPECT_EQ(parsed(getConfig("worker")), parsed(peer.received("deployJob").at(0).text()));
    EXPECT_EQ(getConfig("ordinary"), deployId);
    EXPECT_EQ(resultsOf(deployId).size(), 1U);
  }

  // What is reported of the one resource of `deployId`.
  static Json::Value outcomeOf(const std::string& deployId) {
    const Json::Value details = detailsOf(deployId);
    Json::Value outcome;
    for (const char* key : {"success", "code", "message"}) outcome[key] = details[0][key];
    return outcome;
  }

 private:
  inline static int jobs = 0;  // of all tests: their names tell them apart
};

TEST_F(Faults, of_a_resource_fail_it_before_anything_is_stored_or_called) {
  FakePeer executor("iot.test.never");
  addExecutor(registration("never", "iot.test.never", R"(["never"])"));
  setConfig("gw_system_productkey", "kept");
  setConfig("never", "kept");
  const Json::Value fine = text("faulty", "never");
  const auto changed = [&](const char* key, const Json::Value& value) {
    Json::Value resource = fine;
    resource[key] = value;
    return resource;
  };
  const auto page = [&](const Page& answer) {
    return with(resourceOf("faulty", "never"), "config", "text", answer);
  };
  const auto archive = [&](const std::vector<ZipEntry>& entries) {
    return zip("faulty", "never", zipOf(entries));
  };
  const std::string stored = zipOf({{"config.json", "aaaa", 0, 0}});
  std::string damaged = stored;
  damaged[damaged.find("aaaa")] = 'b';
  const std::string noKeys = "Keys in resource from cloud is not enough.";
  struct Case {
    Json::Value resource;
    int code;
    std::string message;
  };
  const Case cases[] = {
      {changed("configKivAddress", "http://127.0.0.1:1/"), 101208, "ERROR_DOWNLOADFail_7"},
      {page({.status = 404}), 101208, "ERROR_DOWNLOADFail_404"},
      {page({.status = 500}), 101208, "ERROR_DOWNLOADFail_500"},
      {page({.status = 302, .headers = "Location: /1\r\n"}), 101208, "ERROR_DOWNLOADFail_302"},
      {page({.body = "cut", .fault = Fault::cutShort}), 101208, "ERROR_DOWNLOADFail_18"},
      {changed("configMd5", md5Of("[]")), 101209, "ERROR_CheckMd5sumFail"},
      {zip("faulty", "never", stored.substr(0, 40)), 101208, "ERROR_DOWNLOADFail, unzip res =1"},
      {zip("faulty", "never", damaged), 101208, "ERROR_DOWNLOADFail, unzip res =6"},
      {archive({{"../../../out", "x"}}), 101208, "ERROR_DOWNLOADFail, unzip res =5"},
      {archive({{"link", "..", kLink}, {"link/out", "x"}}), 101208,
       "ERROR_DOWNLOADFail, unzip res =5"},
      {changed("configFormat", "../../text"), 101208,
       "Type of one of Keys is illegal: configKivAddress or configFormat or configMd5"},
      {"a text", 101201, noKeys},
      {changed("resourceId", Json::Value()), 101201, noKeys},
      {changed("resourceId", "../configmanager"), 101202, "获取或者创建任务路径为空"},
      {archive({{"other.json", "{}"}}), 101203, "SetConfigManager_Fail_OpenDownloadedFile"},
      {text("faulty", "gw_system_productkey", "ours"), 101203, "SetConfigManager_Fail_-1"},
  };
  std::size_t n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(n) + " " + c.message);
    deploy("faulty", {text("good", "good", std::to_string(n)), c.resource});
    const Json::Value details = detailsOf("faulty", ++n);
    ASSERT_EQ(details.size(), 2U);
    EXPECT_EQ(details[1]["code"], c.code);
    EXPECT_EQ(details[1]["message"], c.message);
    // The good one is told about in full.
    EXPECT_EQ(details[0]["success"], true);
    EXPECT_TRUE(details[0]["data"]["config"].isString());
    EXPECT_EQ(getConfig("good") == std::to_string(n - 1), c.code == 101203);
    EXPECT_FALSE(fs::exists(kTree / "faulty/faulty.config/_downloaded.zip"));
    for (const auto& entry : fs::recursive_directory_iterator(kTree.parent_path())) {
      EXPECT_NE(entry.path().filename(), "out") << entry.path();
    }
    ordinaryJob();
  }
  for (const char* key : {"gw_system_productkey", "never"}) EXPECT_EQ(getConfig(key), "kept");
  EXPECT_EQ(executor.count("deployJob"), 0U);
}

TEST_F(Faults, of_an_answer_are_told_apart_by_parsers_and_only_counted_of_executors) {
  const std::string gone = "Message recipient disconnected from message bus without replying";
  const std::string missing = "The name was not provided by any .service files, says the bus";
  const std::string format = "JOBM_ERROR_ExecutorReplyFormatError";
  const std::string wrongTypes = "deployJob json error ! e = ";
  struct Case {
    Answer answer;  // silence is that of a service that dies in the call
    int code;
    std::string message, logged;
  };
  const Case cases[] = {
      {R"({"code":7,"message":"no"})", 7, "no", R"( error res = {"code":7,"message":"no"})"},
      {"ok", 101206, format, " parse failed res = ok\n"},
      {std::string(2000, '['), 101206, format, " parse failed res = [["},
      {"[]", 101206, format, wrongTypes},
      {"7", 101206, format, wrongTypes},
      {R"({"code":"zero","message":""})", 101206, format, wrongTypes},
      {R"({"code":0,"message":{}})", 101206, format, wrongTypes},
      {Error{"org.any.Error", gone}, 101205, "timeout without reply", " parse failed res = Mess"},
      {Error{"org.any.Error", gone + "."}, 101206, format, " parse failed res = Message"},
      {Error{"org.any.Error", missing}, 101207, "Service not exist", " parse failed res = The "},
      {Twice{R"({"code":4,"message":"twice"})"}, 4, "twice", R"( error res = {"code":4,)"},
      {Twice{R"({"code":0})"}, 0, "Last successfully processed by faulty", " res = {\"code\":0}\n"},
      {"{}", 0, "Last successfully processed by faulty", " res = {}\n"},
      {kSilence, 101205, "timeout without reply", " parse failed res = Message recipient"},
  };
  for (const Case& c : cases) {
    const std::string id = std::to_string(&c - cases);
    SCOPED_TRACE(id);
    {
      const CapturedLog log;
      for (const auto& [type, method] :
           {std::pair{"p_faulty", "deployConfig"}, std::pair{"x_faulty", "deployJob"}}) {
        auto peer = std::make_unique<FakePeer>("iot.test.faulty");
        addParser(registration("faulty", "iot.test.faulty", R"(["p_faulty"])"));
        addExecutor(registration("faulty", "iot.test.faulty", R"(["x_faulty"])"));
        peer->answer(method, c.answer);
        deploy(type + id, {text("faulty", type, id)});
        ASSERT_TRUE(peer->await(method));
        if (std::holds_alternative<std::monostate>(c.answer)) peer.reset();
        Json::Value expected;
        expected["success"] = c.code == 0;
        expected["code"] = type[0] == 'p' ? Json::Value(std::to_string(c.code)) : Json::Value();
        expected["message"] = type[0] == 'p' ? Json::Value(c.message) : Json::Value();
        EXPECT_EQ(outcomeOf(type + id), expected);
        EXPECT_EQ(getConfig(type), id);
      }
      EXPECT_EQ(log.count(c.logged), 2U) << c.logged;
      EXPECT_EQ(parsed(getConfig("faulty"))[0]["resourceId"], "faulty");
    }
    ordinaryJob();
  }
}

// A file system of its own, where this machine permits it.
class Mount {
 public:
  Mount(const fs::path& at, const char* options) : path(at) {
    fs::create_directories(path);
    mounted = mount("tmpfs", path.c_str(), "tmpfs", 0, options) == 0;
  }
  ~Mount() {
    if (mounted) umount2(path.c_str(), MNT_DETACH);
  }
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;

  bool isThere() const { return mounted; }
  bool makeReadOnly() const {
    return mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
  }
  // Leaves not one byte.
  void fill() const {
    std::ofstream file(path / "filler");
    while (file << 'x' << std::flush) {
    }
  }

 private:
  const fs::path path;
  bool mounted = false;
};

// The configuration store in a file elsewhere, with one value in it.
void useStore(const std::string& path) {
  setenv("GATEWAY_CONFIG_DB", path.c_str(), 1);
  setConfig("kept", "value");
}

// Has it closed.
void leaveStore() {
  unsetenv("GATEWAY_CONFIG_DB");
  getConfig("");
}

TEST_F(Faults, of_the_store_and_the_disk_are_over_when_their_cause_is) {
  const fs::path elsewhere = "/tmp/var/elsewhere";
  const std::string database = elsewhere / "gateway.db";
  const std::string body(20000, 'n');
  std::unique_ptr<Mount> disk;
  std::unique_ptr<sqlite3, decltype(&sqlite3_close)> other(nullptr, sqlite3_close);
  const auto storeFails = [](int result) {
    return R"({"success":false,"code":101203,"message":"SetConfigManager_Fail_)" +
           std::to_string(result) + "\"}";
  };
  struct Case {
    const char* what;
    std::function<bool()> begin;  // false where it isn't permitted
    std::function<void()> end;
    std::string outcome, logged;
  };
  const Case cases[] = {
      {"store locked",
       [&] {
         useStore(database);
         sqlite3* raw = nullptr;
         sqlite3_open(database.c_str(), &raw);
         other.reset(raw);
         return sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
       },
       [&] { other.reset(); }, storeFails(SQLITE_BUSY), "store: database is locked\n"},
      {"store without a place to write",
       [&] {
         disk = std::make_unique<Mount>(elsewhere, "size=256k");
         useStore(database);
         if (disk->isThere()) disk->fill();
         return disk->isThere();
       },
       [&] { fs::remove(elsewhere / "filler"); }, storeFails(SQLITE_FULL),
       "store: database or disk is full\n"},
      {"store read-only",
       [&] {
         disk = std::make_unique<Mount>(elsewhere, "size=256k");
         useStore(database);
         leaveStore();
         setenv("GATEWAY_CONFIG_DB", database.c_str(), 1);
         return disk->isThere() && disk->makeReadOnly();
       },
       [&] { disk.reset(); }, storeFails(SQLITE_CANTOPEN), "can't be opened: "},
      {"store no database",
       [&] {
         setenv("GATEWAY_CONFIG_DB", database.c_str(), 1);
         return writeFile(database, body);
       },
       [&] { fs::remove(database); }, storeFails(SQLITE_NOTADB), "file is not a database\n"},
      {"store damaged",
       [&] {
         useStore(database);
         leaveStore();
         setenv("GATEWAY_CONFIG_DB", database.c_str(), 1);
         std::fstream(database, std::ios::in | std::ios::out).seekp(4096) << body;
         return true;
       },
       [&] { fs::remove(database); }, storeFails(SQLITE_CORRUPT), "image is malformed\n"},
      {"tree not to be made",
       [&] {
         fs::remove_all("/tarnvale/run");
         return writeFile("/tarnvale/run", "in the way");
       },
       [&] { fs::remove("/tarnvale/run"); },
       R"({"success":false,"code":101202,"message":"获取或者创建任务路径为空"})",
       "mkdir Error path = " + (kTree / "faulty/faulty.config\n").string()},
      {"tree without space",
       [&] {
         disk = std::make_unique<Mount>(kTree, "size=4k");
         return disk->isThere();
       },
       [&] { disk.reset(); },
       R"({"success":false,"code":101208,"message":"ERROR_DOWNLOADFail_23"})",
       "http_download finish ret = 23\n"},
      {"tree not to be removed",
       [&] {
         disk = std::make_unique<Mount>(kTree / "faulty/stuck", "size=4k");
         return disk->isThere();
       },
       [&] { disk.reset(); },
       R"({"success":true,"code":"0","message":"No one registered, ignored."})",
       "remove dir fail, destDir = " + (kTree / "faulty\n").string()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    fs::create_directories(elsewhere);
    if (const CapturedLog log; c.begin()) {
      deploy(c.what, {text("faulty", "unwatched", body)});
      EXPECT_TRUE(awaitResult(c.what, 1, 20).isObject());
      EXPECT_EQ(outcomeOf(c.what), parsed(c.outcome));
      EXPECT_TRUE(log.has(c.logged));
    }
    c.end();
    ordinaryJob();
    leaveStore();
    disk.reset();
    fs::remove_all(elsewhere);
    fs::remove_all(kTree);
  }
}

TEST_F(Faults, of_an_address_cost_the_resources_of_its_owner_and_no_reset) {
  const std::array<const char*, 3> addresses[] = {
      {"nodot", "iot.fine", "/fine"},         {"iot..fine", "iot.fine", "/fine"},
      {"iot.l\xE9ger", "iot.fine", "/fine"},  {"iot.fine", "fine", "/fine"},
      {"iot.fine", "iot.fine", "/two//fine"}, {"iot.fine", "iot.fine", "/fine/"},
      {"iot.fine", "iot.fine", "/l\xE9ger"},
  };
  int n = 0;
  for (const auto& [name, interface, path] : addresses) {
    for (const bool restored : {false, true}) {
      const std::string id = "misnamed" + std::to_string(++n);
      SCOPED_TRACE(id);
      const auto payload = [&, &name = name, &interface = interface, &path = path](char role) {
        return R"({"executorName":")" + id + R"(","executorAddr":{"name":")" + name +
               R"(","interface":")" + interface + R"(","path":")" + path +
               R"("},"storeType":["file"],"watchType":[")" + role + id + R"("]})";
      };
      if (restored) {
        setConfig("gw_jobm_executors", "{\"" + id + "\":" + payload('x') + "}");
        setConfig("gw_jobm_parsers", "{\"" + id + "\":" + payload('p') + "}");
        initAllExecutors();
      } else {
        addExecutor(payload('x'));
        addParser(payload('p'));
      }
      const Json::Value noService =
          parsed(R"({"success":false,"code":"101207","message":"Service not exist"})");
      deploy("p" + id, {text("faulty", "p" + id)});
      EXPECT_EQ(outcomeOf("p" + id), noService);
      // What is restored isn't watching.
      deploy("x" + id, {text("faulty", "x" + id)});
      EXPECT_EQ(outcomeOf("x" + id) == noService, !restored);
      EXPECT_EQ(onLoop(resetEJobs)["code"], 0);
      // Nobody resets it again.
      setConfig("gw_jobm_executors", "");
    }
    ordinaryJob();
  }
}

TEST_F(Faults, of_a_text_are_mended_on_the_bus_and_kept_in_the_store) {
  const CapturedLog log;
  FakePeer parser("iot.test.texts");
  addParser(registration("texts", "iot.test.texts", R"(["texts"])"));
  std::string resource = json::compact(text("latin", "texts", "caf\xE9"));
  resource.replace(resource.find("s-latin"), 7, R"(\udc00)");
  const std::string request =
      R"({"deployId":"texts","deployType":0,"resources":[)" + resource + "]}";
  setDeviceInfo("key", "d\xE9vice");
  onLoop([&] { handle1Job(request); });
  ASSERT_TRUE(
      eventually([] { return !published("/sys/key/d\uFFFDvice/edge/deploy/post").empty(); }));
  setDeviceInfo("key", "device");
  EXPECT_EQ(published("/sys/key/d\uFFFDvice/edge/deploy/post")[0]["details"][0]["snapshotId"],
            "\uFFFD");
  EXPECT_EQ(parsed(parser.received("deployConfig").at(0).text())["value"], "caf\uFFFD");
  EXPECT_EQ(getConfig("texts"), "caf\xE9");

  // More than the bus takes in one message never reaches the parser, which counts as silence.
  deploy("large", {text("large", "texts", std::string(33 << 20, 'x'))});
  EXPECT_TRUE(eventually([&] { return log.has("large is given up without a report."); }));
  EXPECT_EQ(parser.count("deployConfig"), 1U);
  EXPECT_EQ(getConfig("texts").size(), 33U << 20);
  ordinaryJob();
}

TEST_F(Faults, do_not_come_of_the_size_of_an_archive_or_of_what_is_in_it) {
  const auto content = [&](const char* id, const std::string& archive) {
    return with(resourceOf(id, "unwatched"), "content", "zip", {.body = archive});
  };
  std::vector<ZipEntry> many(100000);
  for (ZipEntry& entry : many) entry = {"f" + std::to_string(&entry - many.data()), "x", 0, 0};
  deploy("many", {content("many", zipOf(many))});
  EXPECT_EQ(outcomeOf("many")["success"], true);
  EXPECT_EQ(std::distance(fs::directory_iterator(kTree / "many"), {}), 100000 + 1);
  if (fs::space(kTree).available > 4ULL << 30) {
    deploy("large",
           {content("zeros", zipOf({{"zeros", std::string(1 << 20, '\0'), 0, Z_DEFLATED, 2048}}))});
    EXPECT_EQ(fs::file_size(kTree / "zeros/zeros"), 2048ULL << 20);
  }
  fs::remove_all(kTree);
  ordinaryJob();
}

// The one test that waits for calls to be given up, all that there are at the same time.
TEST_F(Faults, of_who_is_silent_or_late_are_over_after_half_a_minute) {
  {
    const CapturedLog log;
    Gate gate;
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
    initAllExecutors();
    addExecutor(registration("late", "iot.test.late", R"(["late"])"));
    addExecutor(registration("silent", "iot.test.silent", R"(["late"])"));
    addParser(registration("silent", "iot.test.silent", R"(["silently parsed"])"));
    auto subscribed = std::async(std::launch::async, [] { return subscribe("t", "iot.test", 1); });
    onLoop([] {
      resetEJobs();
      G_ExecutorResultCounter = {0, 3};
      const auto results = std::make_shared<DeploymentResults>(nullptr);
      Json::Value added = parsed(R"([{"snapshotId":"s1"}])");
      deployEJob("late", "", added, "silent", results);
      deleteEJob("late", "", parsed(R"([{"snapshotId":"s2"}])"), "silent", results);
      added[0]["snapshotId"] = "s3";
      deployEJob("late", "", added, "late", results);
      handle1Job(R"({"deployId":"abandoned","deployType":0,"resources":[{"operate":0,
          "snapshotId":"s","resourceId":"silent","resourceType":"silently parsed"}]})");
      handle1Job(R"({"deployId":"after it","deployType":0,"resources":["unreadable"]})");
    });
    ASSERT_TRUE(eventually(
        [&] { return log.count("deployId late taskId  sendMessageWithReply reply NULL\n") == 3; },
        45));
    EXPECT_EQ(subscribed.get(), -1);
    EXPECT_EQ(late.count("deployJob"), 1U);
    gate.open();
    EXPECT_EQ(detailsOf("late"), parsed(R"([
        {"snapshotId":"s1","success":false,"code":null,"message":null},
        {"snapshotId":"s2","success":false,"code":null,"message":null},
        {"snapshotId":"s3","success":false,"code":null,"message":null}])"));
    // A deployment whose parser is silent ends without a report, and the next one has its turn.
    EXPECT_EQ(detailsOf("after it")[0]["code"], 101201);
    EXPECT_TRUE(log.has("deployment abandoned is given up without a report."));
    EXPECT_TRUE(resultsOf("abandoned").empty());
    // The next reset's three answers are its own.
    EXPECT_FALSE(log.has("resetEJobs actual result"));
    for (FakePeer* peer : {&corvex, &engine, &rillmark}) peer->answer("resetJobs", "{}");
    onLoop(resetEJobs);
    EXPECT_TRUE(eventually([&] { return log.has("\"reset success\"\n}\n code : 0\n"); }));
  }
  EXPECT_EQ(subscribe("t", "iot.test", 1), 0);
  bridge().on("subscribe", {});
  ordinaryJob();
  EXPECT_EQ(resultsOf("late").size(), 1U);
}

}  // namespace
}  // namespace jobm
