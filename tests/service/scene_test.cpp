#include "scene.h"

#include <openssl/evp.h>

#include "communicate_scene/download.h"
#include "deployment.h"
#include "executor_api/registry.h"

using namespace test;

namespace jobm {
namespace {

// Cases that no run of the whole gateway has.
TEST_F(Scene, brings_single_and_unknown_files_to_where_the_old_ones_were) {
  FakePeer executor("iot.test.scene");
  addExecutor(registration("scene", "iot.test.scene", R"(["label","page"])"));
  fs::create_directories(kTree / "l/left over");
  const Json::Value label =
      with(text("l", "label", "the label"), "content", "text", {.body = "label content"});
  Json::Value page =
      with(zip("p", "page", zipOf({{"config.json", "the page"}, {"fileList/a", "A"}})), "content",
           "raw", {.body = "as it is"});
  page["contentMd5"] = "72CAE6B648B8AE68264929842FB01C74";
  deploy("rare kinds", {page, label});
  for (const Json::Value& detail : detailsOf("rare kinds")) EXPECT_EQ(detail["success"], true);
  // Executors get the request's resources, each those of its types, in the request's order.
  EXPECT_EQ(parsed(executor.received("deployJob").at(0).text()), arrayOf({page, label}));
  const std::pair<const char*, std::string> onDisk[] = {
      {"l/config.json", "label content"}, {"p/a", "A"}, {"p/_downloaded.raw", "as it is"}};
  for (const auto& [path, content] : onDisk) {
    std::string text;
    EXPECT_TRUE(readFile(kTree / path, text)) << path;
    EXPECT_EQ(text, content);
  }
  EXPECT_FALSE(fs::exists(kTree / "l/left over"));
}

TEST_F(Scene, checks_sums_where_openssl_is_told_to_offer_only_what_fips_permits) {
  ASSERT_TRUE(writeFile("/tmp/var/summed", "the label"));
  const std::string sum = gateway::md5Of("the label");
  ASSERT_EQ(EVP_default_properties_enable_fips(nullptr, 1), 1);
  EXPECT_EQ(gateway::md5Of("the label"), "") << "the fault isn't there";
  EXPECT_EQ(checkFileMd5sum("/tmp/var/summed", sum), 1);
  EXPECT_EQ(checkFileMd5sum("/tmp/var/summed", std::string(32, '0')), 0);
  EVP_default_properties_enable_fips(nullptr, 0);
}

TEST(MoveDir, leaves_what_would_have_a_longer_path_than_it_takes) {
  const CapturedLog log;
  const std::string part(200, 'p');
  const fs::path source = fs::path("/tmp/var") / part / part / "source";
  const fs::path destination = fs::path("/tmp/var") / part / part / "longer destination";
  const std::string shorter(80, 's');
  const std::string longer(90, 'l');
  fs::create_directories(destination);
  for (const std::string& name : {shorter, longer}) fs::create_directories(source / name);
  EXPECT_EQ(jobm_move_dir(destination, source), 0);
  EXPECT_TRUE(fs::exists(source / longer) && fs::exists(destination / shorter));
  EXPECT_EQ(std::distance(fs::directory_iterator(destination), {}), 1);
  EXPECT_EQ(log.count("path too long, not moved: " + source.string()), 1U);
}

TEST_F(Scene, removes_what_is_deleted_and_reports_it_by_the_answers_of_executors_alone) {
  FakePeer executor("iot.test.both");
  addExecutor(registration("doer", "iot.test.both", R"(["both","and more"])"));
  fs::create_directories(kTree / "gone" / "sub");
  Json::Value added = text("added", "both");
  const Json::Value gone = resourceOf("gone", "both", 1);
  setConfig("doer", json::styled(arrayOf({gone, resourceOf("kept", "both")})));
  added["data"] = "not for executors";
  deploy("both", {gone, added, resourceOf("unwatched", "nobody's", 1)});
  EXPECT_EQ(detailsOf("both"), parsed(R"([
      {"snapshotId":"s-added","success":true,"code":null,"message":null},
      {"snapshotId":"s-gone","success":true,"code":null,"message":null}])"));
  EXPECT_FALSE(fs::exists(kTree / "gone"));
  added.removeMember("data");
  EXPECT_EQ(executor.received("deployJob").at(0).text(), json::styled(arrayOf({added})));
  EXPECT_EQ(executor.received("deleteJob").at(0).text(), json::styled(arrayOf({gone})));
  EXPECT_EQ(parsed(getConfig("doer")), arrayOf({resourceOf("kept", "both"), added}));
  EXPECT_TRUE(executor.await("onWatchTypesFinish"));
}

TEST_F(Scene, takes_the_word_of_CorvexConfig_for_each_resource) {
  EXPECT_TRUE(initAllExecutors());
  FakePeer peer("iot.gateway.cvbase");
  // The answer, and what is reported for R1 and r2.
  const std::pair<const char*, const char*> cases[] = {
      {R"({"code":0,"data":[{"resourceId":"r1","code":3,"message":"bad"},
                            {"resourceId":"R2","code":0,"message":"fine"},
                            {"resourceId":"R1","code":4,"message":"second"}]})",
       "[[false,\"3\",\"bad\"],[true,\"0\",\"fine\"]]"},
      {R"({"code":1,"data":[{"resourceId":"R1","code":-1}]})",
       "[[false,\"-1\",\"\"],[true,\"\",\"\"]]"},
      {"garbage", "[[true,\"\",\"\"],[true,\"\",\"\"]]"},
  };
  std::size_t n = 0;
  for (const auto& [answer, reported] : cases) {
    peer.answer("deployJob", answer);
    deploy("corvex", {text("r2", "function"), text("R1", "function")});
    Json::Value shown;
    for (const Json::Value& detail : detailsOf("corvex", ++n)) {
      shown.append(arrayOf({detail["success"], detail["code"], detail["message"]}));
    }
    EXPECT_EQ(shown, parsed(reported)) << answer;
  }
}

TEST_F(Scene, asks_every_parser_and_goes_on_to_the_executors_only_when_none_has_failed) {
  const CapturedLog log;
  FakePeer first("iot.test.first");
  FakePeer second("iot.test.second");
  FakePeer executor("iot.test.parsed");
  addParser(registration("first", "iot.test.first", R"(["parsed"])"));
  addParser(registration("second", "iot.test.second", R"(["parsed"])"));
  addExecutor(registration("parsed", "iot.test.parsed", R"(["parsed"])"));
  first.answer("deployConfig", R"({"code":3,"message":"no"})");
  second.on("deployConfig", [&](const auto&) {
    eventually([&] { return log.has("[0/2] Received response from parser."); });
    return R"({"code":0,"message":"yes"})";
  });
  // Behind others, so that each request is seen to be about its own resource.
  deploy("one failed", {resourceOf("gone", "parsed", 1), text("plain", "unparsed"),
                        text("p1", "parsed", "value")});
  EXPECT_EQ(detailsOf("one failed"), parsed(R"([
      {"snapshotId":"s-p1","success":false,"code":"3",
       "message":"Last successfully processed by second"},
      {"snapshotId":"s-plain","success":true,"code":"0",
       "message":"No one registered, ignored."}])"));
  EXPECT_EQ(parsed(first.received("deployConfig")[0].text()),
            parsed(R"({"key":"parsed","snapshotId":"s-p1","value":"value"})"));
  EXPECT_EQ(executor.count("deployJob"), 0U);
}

TEST_F(Scene, lets_a_request_wait_until_the_deployment_before_it_is_over) {
  const std::pair<std::string, Json::Value> cases[] = {
      {"deployConfig", "Last successfully processed by holding"}, {"deployJob", {}}};
  for (const auto& [phase, message] : cases) {
    const auto registerAt = [](const std::string& name) {
      addParser(registration("holding", name, R"(["deployConfig"])"));
      addExecutor(registration("holding", name, R"(["deployJob"])"));
    };
    std::latch gate(1);
    FakePeer peer("iot.test.holding");
    registerAt("iot.test.holding");
    peer.on(phase, [&](const auto&) {
      gate.wait();
      return "{}";
    });
    deploy("held by " + phase, {text("held", phase)});
    ASSERT_TRUE(peer.await(phase));
    onLoop([] { handle1Job("what can't be read"); });
    deploy("after " + phase, {text(phase, "unheld")});
    EXPECT_FALSE(fs::exists(kTree / phase));
    registerAt("iot.test.moved");  // the answer from the old address still counts
    gate.count_down();
    EXPECT_EQ(detailsOf("held by " + phase)[0]["message"], message);
    EXPECT_EQ(detailsOf("after " + phase)[0]["success"], true);
  }
}

TEST_F(Scene, leaves_on_disk_what_four_types_of_executors_read_themselves) {
  const std::vector<std::string> types = {"function", "driver", "stream", "rule", "label"};
  std::vector<Json::Value> resources;
  resources.reserve(types.size());
  for (const std::string& type : types) resources.push_back(text(type, type));
  deploy("on disk", resources);
  EXPECT_EQ(detailsOf("on disk").size(), types.size());
  for (const std::string& type : types) {
    EXPECT_EQ(fs::exists(kTree / type / (type + ".config/config.json")), type != "label") << type;
  }
}

TEST_F(Scene, neither_answers_nor_writes_down_what_is_no_deployment_and_no_reset) {
  news();
  for (const char* payload :
       {R"({"deployId":"d","resources":[]})", R"({"deployId":"d","resources":[],"deployType":2})",
        R"({"deployId":"d","resources":[],"deployType":"0"})",
        R"({"deployId":"d","deployType":0})"}) {
    JobRequest request = onLoop([&] { return acceptJob(payload); });
    EXPECT_EQ(request.ticket, kNoTicket) << payload;
    onLoop([&] { handle1Job(std::move(request)); });
    EXPECT_TRUE(news().empty()) << payload;
  }
}

TEST(Checksum, is_not_looked_at_beyond_twenty_mebibytes) {
  for (const auto& [size, result] : {std::pair{20971519, 0}, {20971520, 0}, {20971521, 1}}) {
    const std::string path = "/tmp/var/sized";
    ASSERT_TRUE(writeFile(path, ""));
    fs::resize_file(path, static_cast<std::uintmax_t>(size));
    EXPECT_EQ(checkFileMd5sum(path, "not its sum"), result) << size;
  }
}

TEST_F(Scene, fails_as_a_whole_when_a_step_throws_and_lets_the_next_have_its_turn) {
  onLoop([] {
    Deployment deployment;
    const Json::Value ids = parsed(R"(["s-a","s-b"])");
    deployment.identity = {acceptDeployment({"thrown", "task", 0, ids}), "thrown", "task"};
    deployment.resources = arrayOf({resourceOf("a", "nobody's"), resourceOf("b", "nobody's", 1)});
    const SharedDeployment begun = beginDeployment(std::move(deployment));
    runStep(*begun, [] { throw std::runtime_error("no memory"); });
    runStep(*begun, [] { ADD_FAILURE() << "a step after the one that threw"; });
  });
  deploy("next", {text("n", "nobody's")});
  EXPECT_EQ(detailsOf("thrown"), parsed(R"([
      {"snapshotId":"s-a","success":false,"code":101209,"message":"no memory"},
      {"snapshotId":"s-b","success":false,"code":101209,"message":"no memory"}])"));
  EXPECT_EQ(detailsOf("next")[0]["success"], true);
  EXPECT_EQ(resultsOf("thrown").size(), 1U);
}

TEST_F(Scene, reports_what_was_never_sent_and_waits_for_the_rest_only) {
  setConfig("made", "for there to be a store");
  const RefusedKey refused("unstorable");
  FakePeer own("iot.test.unstorable");
  addExecutor(registration("unstorable", "iot.test.unstorable", R"(["reserved"])"));
  deploy("never sent", {text("u", "reserved")});
  EXPECT_EQ(detailsOf("never sent"), parsed(R"([{"snapshotId":"s-u","success":false,
      "code":"101203","message":"SetConfigManager_Fail"}])"));
  // A deletion of the same executor is sent.
  deploy("half sent", {text("u", "reserved"), resourceOf("v", "reserved", 1)});
  EXPECT_EQ(detailsOf("half sent")[1]["success"], true);
  // And the answer of another executor is the last word.
  addExecutor(registration("other", "iot.test.unstorable", R"(["reserved"])"));
  deploy("sent to the other", {text("u", "reserved")});
  EXPECT_EQ(detailsOf("sent to the other")[0]["success"], true);
  EXPECT_EQ(own.count("deployJob"), 1U);
}

}  // namespace
}  // namespace jobm
