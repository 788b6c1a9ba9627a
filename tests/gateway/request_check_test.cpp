#include <request_check.h>

#include <map>

#include <parsed.h>

namespace {

// A good request of each kind.
const std::map<std::string, std::string> kGood = {
    {"registerRunner",
     R"([{"type":0,"cpu":4,"memory":1000000000,"tenant":"TV_RN","runnerGroup":"tarnvale.runner.group",)"
     R"("address":"pk_dn","addressType":1,"heartRate":10000,"linkType":0,"executor":"[ConfigManager]",)"
     R"("sdkVersion":"1.1","tags":["{\"version\":\"1.0.0\"}"]}])"},
    {"heartbeat", R"([7,{"cpuUsage":1.0,"memUsage":1.0,"diskUsage":1.0}])"},
    {"syncStatusPassive", R"([12,3,"{\"code\":0,\"detail\":\"d\"}"])"},
    {"syncStatusActive",
     R"([7,"e",[{"jobId":1,"jobStatus":3,"result":"{\"code\":3,\"detail\":\"d\"}"}]])"}};

std::string faultOf(const std::string& kind, const std::string& find, const std::string& replace) {
  std::string text =
      R"({"id":1700000000000000,"reply":false,"attrs":)" + kGood.find(kind)->second + "}";
  const std::size_t at = text.find(find);
  EXPECT_NE(at, std::string::npos) << find;
  text.replace(at, find.size(), replace);
  return gateway::requestFault("/scheduler/publish/" + kind, test::parsed(text), "pk_dn", 7);
}

TEST(RequestFault, IsFoundForEachMistakeInARequestOfEachKind) {
  const struct {
    const char *kind, *find, *replace;
  } mistakes[] = {
      {"heartbeat", "1700000000000000", "1700000000"},
      {"heartbeat", R"("reply":false)", R"("reply":true)"},
      {"heartbeat", R"("reply":false,)", ""},
      {"heartbeat", "7,", "8,"},
      {"heartbeat", R"("memUsage":1.0)", R"("memUsage":1)"},
      {"registerRunner", "pk_dn", "pk-dn"},
      {"registerRunner", R"("cpu":4)", R"("cpu":"4")"},
      {"registerRunner", R"("type":0)", R"("type":0,"more":1)"},
      {"registerRunner", "1.0.0", ""},
      {"syncStatusPassive", "12", "-1"},
      {"syncStatusPassive", R"({\"code\":0,\"detail\":\"d\"})", "deployed"},
      {"syncStatusPassive", R"(\"code\":0)", R"(\"code\":-1)"},
      {"syncStatusActive", "[{", "[{},{"},
      {"syncStatusActive", R"("jobId":1)", R"("jobId":-1)"},
  };
  for (const auto& [kind, text] : kGood) EXPECT_EQ(faultOf(kind, "", ""), "");
  for (const auto& m : mistakes) EXPECT_NE(faultOf(m.kind, m.find, m.replace), "") << m.find;
}

}  // namespace
