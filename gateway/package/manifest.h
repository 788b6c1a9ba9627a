/// From a folder of resources to a deployment request and the files that it points to.
#pragma once

#include <json/value.h>

#include <string>

namespace gateway {

struct PackageSettings {
  std::string folder;    // with a manifest.json in it
  std::string webRoot;   // where files to be downloaded are put
  std::string webUrl;    // how that folder is reached, without a slash at the end
  bool deletes = false;  // ask for the removal of every resource instead
};

struct Package {
  std::string name;
  Json::Value request;  // the deployment request
};

/// Reads the manifest and puts the files of its resources below webRoot, in a folder named by the
/// deployment's id; only files from that folder and from those beside it. Returns "" and fills
/// `package`, or says what is wrong.
std::string buildPackage(const PackageSettings& settings, Package& package);

/// The request of a reset, likewise.
Package resetPackage();

/// A text that no other call, in no other process, returns: for ids.
std::string uniqueText();

}  // namespace gateway
