/// Resources of deployment requests and their files.
#pragma once

#include <WebServer.h>
#include <file_text.h>
#include <json/value.h>
#include <openssl/evp.h>
#include <zip.h>

#include <array>
#include <cstdio>
#include <map>
#include <string>

namespace test {

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

/// A zip archive of names and contents.
inline std::string zipOf(const std::map<std::string, std::string>& entries) {
  const char* path = "/tmp/var/archive.zip";
  const zipFile zip = zipOpen(path, APPEND_STATUS_CREATE);
  for (const auto& [name, content] : entries) {
    const zip_fileinfo info{};
    zipOpenNewFileInZip(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, 6);
    zipWriteInFileInZip(zip, content.data(), static_cast<unsigned>(content.size()));
    zipCloseFileInZip(zip);
  }
  zipClose(zip, nullptr);
  std::string archive;
  jobm::readFile(path, archive);
  return archive;
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

/// `resource` with one of its files, "config" or "content", which `web` then has.
inline Json::Value with(WebServer& web, Json::Value resource, const std::string& prefix,
                        const std::string& format, const std::string& body) {
  const std::string sum = md5Of(body);
  Page page;
  page.body = body;
  web.serve("/" + sum, {page});
  resource[prefix + "KivAddress"] = web.url("/" + sum);
  resource[prefix + "Format"] = format;
  resource[prefix + "Md5"] = sum;
  return resource;
}

}  // namespace test
