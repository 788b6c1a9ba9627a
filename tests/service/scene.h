/// Deployments through the whole scene: their resources, what a web server has of them, and what
/// becomes of them.
#pragma once

#include <WebServer.h>
#include <file_text.h>
#include <gtest/gtest.h>
#include <json_helper.h>
#include <openssl/evp.h>
#include <zip.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "communicate_scene/request.h"
#include "neighbourhood.h"

namespace test {

inline const std::filesystem::path kTree = "/tarnvale/run/downloaded-job/configmanager";

/// In upper case, which has to do as well as lower case.
inline std::string md5Of(const std::string& body) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  EVP_Digest(body.data(), body.size(), digest.data(), &length, EVP_md5(), nullptr);
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    std::array<char, 3> hex{};
    std::snprintf(hex.data(), hex.size(), "%02X", digest[i]);
    text += hex.data();
  }
  return text;
}

inline constexpr unsigned long kLink = 0120777UL << 16;

struct ZipEntry {
  std::string name;
  std::string content;
  unsigned long attributes = 0;
  int method = Z_DEFLATED;
  int times = 1;  // the content
};

inline std::string zipOf(const std::vector<ZipEntry>& entries) {
  const char* path = "/tmp/var/archive.zip";
  const zipFile zip = zipOpen(path, APPEND_STATUS_CREATE);
  for (const ZipEntry& entry : entries) {
    zip_fileinfo info{};
    info.external_fa = entry.attributes;
    zipOpenNewFileInZip(zip, entry.name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                        entry.method, Z_BEST_SPEED);
    for (int i = 0; i < entry.times; ++i) {
      zipWriteInFileInZip(zip, entry.content.data(), static_cast<unsigned>(entry.content.size()));
    }
    zipCloseFileInZip(zip);
  }
  zipClose(zip, nullptr);
  std::string archive;
  jobm::readFile(path, archive);
  return archive;
}

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

inline Json::Value detailsOf(const std::string& deployId, std::size_t n = 1, double seconds = 10) {
  return awaitResult(deployId, n, seconds)["details"];
}

class Scene : public testing::Test {
 protected:
  /// `resource` with one of its files, "config" or "content", which the web server then has.
  Json::Value with(Json::Value resource, const std::string& prefix, const std::string& format,
                   const Page& page) {
    const std::string sum = md5Of(page.body);
    const std::string path = "/" + std::to_string(++pages);
    web.serve(path, {page});
    resource[prefix + "KivAddress"] = web.url(path);
    resource[prefix + "Format"] = format;
    resource[prefix + "Md5"] = sum;
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

 private:
  int pages = 0;
};

}  // namespace test
