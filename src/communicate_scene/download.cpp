#include "communicate_scene/download.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "deployment.h"
#include "lib/comm_path.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "util/http_download_kiv.h"
#include "util/task_unzip.h"
#include "wire/codes.h"

namespace jobm {
namespace {

// The three keys of one file of a resource.
struct FileKeys {
  std::string address;
  std::string format;
  std::string md5;

  explicit FileKeys(const std::string& prefix)
      : address(prefix + "KivAddress"), format(prefix + "Format"), md5(prefix + "Md5") {}

  std::string joined() const { return address + " or " + format + " or " + md5; }

  bool areMembers(const Json::Value& resource) const {
    return resource.isMember(address) && resource.isMember(format) && resource.isMember(md5);
  }

  bool areTexts(const Json::Value& resource) const {
    return resource[address].isString() && resource[format].isString() && resource[md5].isString();
  }
};

void fail(Json::Value& item, const Json::Value& code, const Json::Value& message) {
  item["code"] = code;
  item["message"] = message;
  item["success"] = false;
}

bool hasIdentity(const Json::Value& resource) {
  if (!resource.isObject() || !resource["operate"].isIntegral()) return false;
  return resource["resourceType"].isString() && resource["resourceId"].isString() &&
         resource["snapshotId"].isString();
}

// A resource that doesn't fit leaves the room to others. All there is of it lies in `directory`:
// its configuration comes first and into a directory of its own, its content into the one above.
void makeRoom(const std::string& directory) {
  LOGE("no room for what is fetched into %s, which is removed\n", directory.c_str());
  rmDir(directory);
}

// Fetches one of the resource's files. False when its item now says what went wrong.
bool fetch(const std::string& prefix, const Json::Value& resource, const std::string& directory,
           Json::Value& result, Json::Value& item) {
  try {
    downloadResource(prefix, resource, directory, result);
  } catch (const std::runtime_error& e) {
    LOGE("downloadResource e =%s\n", e.what());
    fail(item, static_cast<int>(kDownloadFail), e.what());
    return false;
  }
  if (!result.isMember("code")) return true;
  fail(item, std::as_const(result)["code"], std::as_const(result)["message"]);
  return false;
}

bool fetchConfig(const Json::Value& resource, const std::string& directory, Json::Value& item) {
  if (!FileKeys("config").areTexts(resource)) return true;
  Json::Value result(Json::objectValue);
  if (!fetch("config", resource, directory, result, item)) return false;
  item["data"]["config"] = directory + "/config.json";
  item["data"]["configOrigin"] = resource["configKivAddress"];
  item["configMd5"] = resource["configMd5"];
  return true;
}

bool fetchContent(const Json::Value& resource, const std::string& directory, Json::Value& item) {
  if (!FileKeys("content").areTexts(resource)) return true;
  Json::Value result(Json::objectValue);
  if (!fetch("content", resource, directory, result, item)) return false;
  result["origin"] = resource["contentKivAddress"];
  Json::Value& data = item["data"];
  data["content"] = result;
  data["contentOrigin"] = resource["contentKivAddress"];
  item["contentMd5"] = resource["contentMd5"];
  item["config"] = std::as_const(data)["config"];
  item["content"] = std::as_const(data)["content"];
  return true;
}

// What reads functions reads drivers, too, but looks for a function's names of these members.
void completeDriver(const std::string& path, const std::string& directory) {
  std::string text;
  Json::Value config;
  if (!readFile(path, text) || !json::parse(text, config) || !config.isObject()) return;
  const Json::Value& read = config;
  if (!read.isMember("driverName") || !read.isMember("driverId") || !read.isMember("runtime")) {
    return;
  }
  config["serviceName"] = read["driverName"];
  config["functionName"] = read["driverName"];
  config["functionId"] = read["driverId"];
  config["cvRuntime"] = read["runtime"];
  if (!writeFile(path, json::compact(config))) {
    makeRoom(directory);
    throw std::runtime_error("driver configuration " + path + " can't be written");
  }
}

void moveFileList(const std::string& resourceDirectory, const std::string& configDirectory) {
  const std::string list = configDirectory + "/fileList";
  std::error_code failed;
  if (!std::filesystem::is_directory(list, failed)) return;
  LOGI("prepare move %s ", list.c_str());
  LOGI("begin move %s ", list.c_str());
  jobm_move_dir(resourceDirectory, list);
}

void addResource(const Json::Value& resource, Json::Value& item) {
  const std::string resourceId = resource["resourceId"].asString();
  const std::string directory = jobPath(kConfigManager, resourceId);
  rmDir(directory);
  const std::string configDirectory = generatePath(directory + "/" + resourceId + ".config");
  if (configDirectory.empty()) {
    fail(item, static_cast<int>(kNoDirectory), "获取或者创建任务路径为空");
    return;
  }
  if (!fetchConfig(resource, configDirectory, item)) return;
  if (resource["resourceType"].asString() == "driver") {
    completeDriver(json::textOf(std::as_const(item)["data"], "config"), configDirectory);
  }
  moveFileList(directory, configDirectory);
  if (!fetchContent(resource, directory, item)) return;
  item["success"] = true;
}

void processResource(const Json::Value& resource, Json::Value& item) {
  item["success"] = false;
  item["snapshotId"] = resource.isObject() ? resource["snapshotId"] : Json::Value();
  if (!hasIdentity(resource)) {
    fail(item, static_cast<int>(kKeysMissing), "Keys in resource from cloud is not enough.");
    return;
  }
  const bool isAdded = hasOperate(resource, kOnAdd);
  if (isAdded) {
    for (const char* key : {"resourceType", "resourceId", "resourceName"}) {
      item[key] = resource[key];
    }
    item["name"] = resource["resourceName"];
  }
  // Whatever is to be done with it: such an id never becomes a path.
  if (jobPath(kConfigManager, resource["resourceId"].asString()).empty()) {
    fail(item, static_cast<int>(kNoDirectory), "获取或者创建任务路径为空");
    return;
  }
  if (!isAdded) {
    item["success"] = true;
    item["code"] = 0;
    item["message"] = "Not a deploy job, don't need to download.";
    return;
  }
  addResource(resource, item);
}

// Fetches into `directory` under `name`. -1, as for every path that can't be made, when the name
// would lead elsewhere.
int fetchInto(const std::string& directory, const std::string& name, const std::string& address) {
  if (!isPathComponent(name)) {
    LOGE("no name for a file: %s\n", name.c_str());
    return -1;
  }
  const int fetched = downloadJob(address, "kiv", directory + "/" + name, false);
  if (fetched == kNoRoom) makeRoom(directory);
  return fetched;
}

void fetchFile(const std::string& address, const std::string& directory, const std::string& name,
               const std::string& md5, Json::Value& result) {
  const int fetched = fetchInto(directory, name, address);
  if (fetched != 0) {
    result["code"] = static_cast<int>(kDownloadFail);
    result["message"] = "ERROR_DOWNLOADFail_" + std::to_string(fetched);
    return;
  }
  if (checkFileMd5sum(directory + "/" + name, md5) == 0) {
    result["code"] = static_cast<int>(kChecksumFail);
    result["message"] = "ERROR_CheckMd5sumFail";
  }
}

// One attempt: what is wrong with an archive is still wrong at the second.
void unpack(const std::string& archive, const std::string& directory) {
  bool writeFailed = false;
  const int unpacked = unzipTask(archive, directory, &writeFailed);
  const int removed = std::remove(archive.c_str());
  LOGI("unzip ret = %d filePath =%s remove ret = %d \n", unpacked, archive.c_str(), removed);
  if (writeFailed) makeRoom(directory);
  if (unpacked != 0) {
    throw std::runtime_error("ERROR_DOWNLOADFail, unzip res =" + std::to_string(unpacked));
  }
}

}  // namespace

Json::Value downloadResources(const Json::Value& resources) {
  LOGI("Entered downloadResources.");
  LOGI("downloadResources begin, config size = %d", static_cast<int>(resources.size()));
  if (!resources.isArray()) return {};
  Json::Value items(Json::arrayValue);
  for (const Json::Value& resource : resources) {
    Json::Value& item = items.append(Json::Value(Json::objectValue));
    const std::string snapshotId = json::textOf(resource, "snapshotId");
    const gateway::LogScope scope(gateway::LogSubject::kResource, snapshotId);
    try {
      processResource(resource, item);
    } catch (const std::exception& e) {
      LOGE("downloadResources catched error: %s\n", e.what());
      fail(item, static_cast<int>(kChecksumFail), e.what());
    }
  }
  return items;
}

void downloadResource(const std::string& prefix, const Json::Value& resource,
                      const std::string& directory, Json::Value& result) {
  LOGI("Entered downloadResource, downloadPrefix = %s", prefix.c_str());
  const FileKeys keys(prefix);
  if (!keys.areMembers(resource)) {
    throw std::runtime_error("Resource didn't contain Key: " + keys.joined());
  }
  if (!keys.areTexts(resource)) {
    throw std::runtime_error("Type of one of Keys is illegal: " + keys.joined());
  }
  const std::string format = resource[keys.format].asString();
  const std::string name = "_downloaded." + format;
  fetchFile(resource[keys.address].asString(), directory, name, resource[keys.md5].asString(),
            result);
  if (result.isMember("code")) return;
  const std::string path = directory + "/" + name;
  if (format == "text") {
    result["file"] = path;
    const std::string finalName = directory + "/config.json";
    std::rename(path.c_str(), finalName.c_str());
    result["file"] = finalName;
  } else if (format == "zip") {
    result["file"] = directory;
    unpack(path, directory);
  }
}

}  // namespace jobm
