/// Deployments through the whole scene: their resources, what a web server has of them, and what
/// becomes of them.
#pragma once

#include <sqlite3.h>

#include "communicate_scene/request.h"
#include "digest/digest.h"
#include "neighbourhood.h"
#include "support/Archive.h"
#include "support/WebServer.h"

namespace test {

inline const std::filesystem::path kTree = "/tarnvale/run/downloaded-job/configmanager";

inline Json::Value arrayOf(const std::vector<Json::Value>& values) {
  Json::Value array(Json::arrayValue);
  for (const Json::Value& value : values) array.append(value);
  return array;
}

/// A resource to be added: its name is "n-" + id, its snapshotId "s-" + id.
inline Json::Value resourceOf(const std::string& id, const std::string& type, int operate = 0) {
  Json::Value resource;
  resource["snapshotId"] = "s-" + id;
  resource["resourceId"] = id;
  resource["resourceName"] = "n-" + id;
  resource["resourceType"] = type;
  resource["operate"] = operate;
  return resource;
}

inline void deploy(const std::string& deployId, const std::vector<Json::Value>& resources) {
  Json::Value request;
  request["deployId"] = deployId;
  request["taskId"] = "task";
  request["deployType"] = 0;
  request["resources"] = arrayOf(resources);
  onLoop([&] { jobm::handle1Job(jobm::json::styled(request)); });
}

/// The results of the deployment `deployId` so far; the details of the `n`-th, null when it doesn't
/// come in time.
inline std::vector<Json::Value> resultsOf(const std::string& deployId) {
  std::vector<Json::Value> results = published("/edge/deploy/post");
  std::erase_if(results, [&](const auto& result) { return result["deployId"] != deployId; });
  return results;
}
inline Json::Value detailsOf(const std::string& deployId, std::size_t n = 1, double seconds = 60) {
  const bool came = eventually([&] { return resultsOf(deployId).size() >= n; }, seconds);
  return came ? resultsOf(deployId)[n - 1]["details"] : Json::Value();
}

/// As long as it lives, the store refuses to write one key.
class RefusedKey {
 public:
  explicit RefusedKey(const std::string& key) {
    run("CREATE TRIGGER refused BEFORE INSERT ON config WHEN NEW.key = '" + key +
        "' BEGIN SELECT RAISE(ABORT, 'refused'); END");
  }
  ~RefusedKey() { run("DROP TRIGGER refused"); }
  RefusedKey(const RefusedKey&) = delete;
  RefusedKey& operator=(const RefusedKey&) = delete;

 private:
  static void run(const std::string& statement) {
    sqlite3* raw = nullptr;
    sqlite3_open("/tarnvale/config/gateway.db", &raw);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> store(raw, sqlite3_close);
    EXPECT_EQ(sqlite3_exec(raw, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  }
};

class Scene : public testing::Test {
 protected:
  /// `resource` with one of its files, "config" or "content", which the web server then has.
  Json::Value with(Json::Value resource, const std::string& prefix, const std::string& format,
                   const Page& page) {
    resource[prefix + "KivAddress"] = web.serve(page);
    resource[prefix + "Format"] = format;
    resource[prefix + "Md5"] = gateway::md5Of(page.body);
    return resource;
  }
  /// A resource that is one text, and one that is what an archive contains.
  Json::Value text(const std::string& id, const std::string& type, const std::string& body = "{}") {
    return with(resourceOf(id, type), "config", "text", {.body = body});
  }
  Json::Value zip(const std::string& id, const std::string& type, const std::string& archive) {
    return with(resourceOf(id, type), "config", "zip", {.body = archive});
  }

  WebServer web;
};

}  // namespace test
