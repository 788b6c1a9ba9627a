#include "manifest.h"

#include <chrono>
#include <filesystem>
#include <random>

#include "digest/digest.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "zip_folder.h"

namespace gateway {
namespace {

namespace fs = std::filesystem;

constexpr int kAdd = 0;
constexpr int kDelete = 1;
constexpr int kReset = 1;
constexpr const char* kWrongMd5 = "00000000000000000000000000000000";

Json::Value emptyRequest(int deployType) {
  const std::string id = uniqueText();
  Json::Value request(Json::objectValue);
  request["deployId"] = "deploy-" + id;
  request["taskId"] = "task-" + id;
  request["deployType"] = deployType;
  return request;
}

// What somebody else has packed may name what came with it, or a folder beside it, and no other
// file of this machine.
bool isNear(const fs::path& source, const fs::path& folder) {
  std::error_code ignored;
  const fs::path parent = fs::weakly_canonical(folder / "..", ignored);
  const fs::path relative = fs::weakly_canonical(source, ignored).lexically_relative(parent);
  return !relative.empty() && relative != "." && *relative.begin() != "..";
}

// Publishes one file (as it is) or folder (as a ZIP archive) of a resource and adds the three keys
// of it that begin with `prefix`. `broken` makes a mistake on purpose: "missing" or "checksum".
std::string publishFile(const fs::path& source, const PackageSettings& settings,
                        const std::string& prefix, const std::string& broken, Json::Value& resource,
                        const std::string& deployId) {
  if (!isNear(source, settings.folder)) return source.string() + " is not beside its manifest";
  const bool isFolder = fs::is_directory(source);
  if (!isFolder && !fs::is_regular_file(source)) return source.string() + " does not exist";
  const std::string relative = deployId + "/" + resource["resourceId"].asString() + "." + prefix +
                               (isFolder ? ".zip" : source.extension().string());
  const fs::path target = fs::path(settings.webRoot) / relative;
  std::error_code error;
  fs::create_directories(target.parent_path(), error);
  if (isFolder) {
    std::string failure = zipFolder(source.string(), target.string());
    if (!failure.empty()) return failure;
  } else if (!fs::copy_file(source, target, fs::copy_options::overwrite_existing, error)) {
    return target.string() + ": " + error.message();
  }
  const std::string md5 = md5OfFile(target.string());
  if (md5.empty()) return target.string() + " can't be read";
  if (broken == "missing") fs::remove(target, error);
  resource[prefix + "KivAddress"] = settings.webUrl + "/" + relative;
  resource[prefix + "Format"] = isFolder ? "zip" : "text";
  resource[prefix + "Md5"] = broken == "checksum" ? kWrongMd5 : md5;
  return "";
}

// One resource of the manifest as a resource of the request. Throws Json::Exception for members of
// the wrong type.
std::string addResource(const Json::Value& entry, const PackageSettings& settings,
                        Json::Value& request) {
  const std::string deployId = request["deployId"].asString();
  const std::string id = entry["id"].asString();
  const std::string type = entry["type"].asString();
  if (id.empty() || type.empty()) return "a resource of the manifest lacks its id or type";
  if (id.find('/') != std::string::npos) return "'" + id + "' can't be part of a file's name";
  const bool deletes = settings.deletes || entry.get("delete", false).asBool();
  Json::Value resource(Json::objectValue);
  resource["resourceId"] = id;
  resource["resourceType"] = type;
  resource["resourceName"] = entry.get("name", id).asString();
  resource["snapshotId"] = id + "@" + deployId;
  resource["operate"] = deletes ? kDelete : kAdd;
  const std::string broken = entry.get("broken", "").asString();
  for (const char* prefix : {"config", "content"}) {
    if (deletes || !entry.isMember(prefix)) continue;
    const fs::path source = fs::path(settings.folder) / entry[prefix].asString();
    std::string failure = publishFile(source, settings, prefix, broken, resource, deployId);
    if (!failure.empty()) return failure;
  }
  request["resources"].append(resource);
  return "";
}

std::string readManifest(const std::string& folder, Json::Value& manifest) {
  const std::string path = folder + "/manifest.json";
  std::string text;
  if (!jobm::readFile(path, text)) return path + " can't be read";
  if (!jobm::json::parse(text, manifest) || !manifest.isObject())
    return path + " is not a JSON object";
  return manifest["resources"].isArray() ? "" : path + " has no list of resources";
}

}  // namespace

std::string buildPackage(const PackageSettings& settings, Package& package) {
  Json::Value manifest;
  std::string unreadable = readManifest(settings.folder, manifest);
  if (!unreadable.empty()) return unreadable;
  const Json::Value& read = manifest;
  package.request = emptyRequest(kAdd);
  package.request["resources"] = Json::Value(Json::arrayValue);
  try {
    package.name = read.get("name", fs::path(settings.folder).filename().string()).asString();
    for (const Json::Value& entry : read["resources"]) {
      std::string failure = addResource(entry, settings, package.request);
      if (!failure.empty()) return failure;
    }
  } catch (const Json::Exception& e) {
    return settings.folder + "/manifest.json: " + e.what();
  }
  return "";
}

Package resetPackage() { return {.name = "reset", .request = emptyRequest(kReset)}; }

std::string uniqueText() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
  std::random_device device;
  return std::to_string(seconds) + "-" + std::to_string(device());
}

}  // namespace gateway
