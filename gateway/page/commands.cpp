#include "commands.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "config_store.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "neighbour/child.h"
#include "package/manifest.h"
#include "util/task_unzip.h"

namespace gateway {
namespace {

namespace fs = std::filesystem;
using jobm::json::textOf;

constexpr int kStoreTimeoutMs = 2000;
constexpr const char* kManifest = "manifest.json";

Outcome runProgram(const std::vector<std::string>& command) {
  Child child(command, "/dev/null", true);
  Outcome outcome;
  std::array<char, 4096> part;
  for (ssize_t got = 0; (got = read(child.outputDescriptor(), part.data(), part.size())) > 0;) {
    outcome.text.append(part.data(), static_cast<std::size_t>(got));
  }
  outcome.isDone = child.wait() == 0;
  return outcome;
}

// With the environment that scripts/run has written for those who come from outside; there is none
// before the gateway is complete.
Outcome runInside(const Places& places, const std::vector<std::string>& words) {
  constexpr const char* kScript =
      "[ -e \"$0/environment\" ] || { echo 'The gateway is not complete yet.'; exit 1; }; "
      ". \"$0/environment\" && exec \"$@\" 2>&1";
  std::vector<std::string> command = {"bash", "-c", kScript, places.home};
  command.insert(command.end(), words.begin(), words.end());
  return runProgram(command);
}

// Programs take what begins with a dash for an option.
bool isWord(const std::string& text) { return !text.empty() && text[0] != '-'; }

fs::path uploads(const Places& places) { return fs::path(places.home) / "uploads"; }
fs::path samples(const Places& places) { return fs::path(places.root) / "gateway/samples"; }

void listFolders(const fs::path& parent, bool own, Json::Value& list) {
  std::error_code error;
  std::vector<std::string> names;
  for (fs::directory_iterator at(parent, error), end; at != end; at.increment(error)) {
    const std::string name = at->path().filename();
    std::error_code ignored;
    // One that begins with a dot is not complete.
    if (name[0] != '.' && fs::exists(at->path() / kManifest, ignored)) names.push_back(name);
  }
  std::ranges::sort(names);
  for (const std::string& name : names) {
    Json::Value folder(Json::objectValue);
    folder["name"] = name;
    folder["own"] = own;
    list.append(folder);
  }
}

// Only what folders() lists.
std::string pathOf(const Places& places, const Json::Value& request) {
  for (const Json::Value& folder : folders(places)) {
    if (folder["name"] != request["folder"] || folder["own"] != request["own"]) continue;
    const fs::path parent = folder["own"].asBool() ? uploads(places) : samples(places);
    return parent / folder["name"].asString();
  }
  return "";
}

// A path below the folder, and of nothing but names.
bool isInside(const fs::path& path) {
  return !path.empty() && path.is_relative() && path.string().find('\0') == std::string::npos &&
         std::ranges::none_of(path, [](const fs::path& name) {
           return name.empty() || name == ".." || name == ".";
         });
}

// Where the manifest is: the folder may be the archive's or the dropped folder's only entry. Empty
// without one.
fs::path findManifest(const fs::path& folder) {
  std::error_code error;
  if (fs::exists(folder / kManifest, error)) return folder;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (fs::exists(entry.path() / kManifest, error)) return entry.path();
  }
  return {};
}

std::string writeFiles(const fs::path& folder,
                       const std::vector<std::pair<std::string, std::string>>& files) {
  std::error_code error;
  for (const auto& [name, content] : files) {
    if (!isInside(name)) return "'" + name + "' is no path in a folder.";
    const fs::path path = folder / name;
    fs::create_directories(path.parent_path(), error);
    if (!jobm::writeFile(path, content)) return "'" + name + "' can't be written.";
  }
  if (files.size() != 1 || fs::path(files[0].first).extension() != ".zip") return "";
  const fs::path archive = folder / files[0].first;
  if (jobm::unzipTask(archive, folder) != 0) return "The archive can't be unpacked.";
  fs::remove(archive, error);
  return "";
}

bool isSecret(std::string key) {
  constexpr std::array kWords = {"secret", "password", "passwd", "token", "private"};
  std::ranges::transform(key, key.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::ranges::any_of(kWords,
                             [&](const char* word) { return key.find(word) != std::string::npos; });
}

}  // namespace

Json::Value folders(const Places& places) {
  Json::Value list(Json::arrayValue);
  listFolders(samples(places), false, list);
  listFolders(uploads(places), true, list);
  return list;
}

Outcome playFault(const Places& places, const Json::Value& request) {
  const std::string part = textOf(request, "part");
  const std::string fault = textOf(request, "fault");
  if (!isWord(part) || !isWord(fault)) return {false, "A fault has a part and a name."};
  return runInside(places, {"gateway-fault", "--home", places.home, part, fault});
}

Outcome listFaults(const Places& places) {
  return runProgram({places.root + "/scripts/gateway-fault", "--describe"});
}

Outcome submitJob(const Places& places, const Json::Value& request) {
  const std::string command = textOf(request, "command");
  std::vector<std::string> words = {"gateway-job", command};
  if (command == "trigger") {
    words.push_back(textOf(request, "text"));
  } else if (command == "delete" && request.isMember("jobId")) {
    words.insert(words.end(), {"--job", textOf(request, "jobId")});
  } else if (command == "add" || command == "delete") {
    words.push_back(pathOf(places, request));
  } else if (command != "reset") {
    return {false, "There is no such command."};
  }
  if (!isWord(words.back())) return {false, "There is no such folder or text."};
  if (request["scheduler"] == true) words.emplace_back("--scheduler");
  if (request["encrypt"] == true) words.emplace_back("--encrypt");
  if (command != "trigger") words.emplace_back("--no-wait");
  return runInside(places, words);
}

Outcome takeFolder(const Places& places, const std::string& name,
                   const std::vector<std::pair<std::string, std::string>>& files) {
  if (!isInside(name) || fs::path(name).has_parent_path() || files.empty()) {
    return {false, "Drop a folder with a manifest.json, or a ZIP archive of one."};
  }
  const fs::path incoming = uploads(places) / ("." + uniqueText());
  const fs::path folder = uploads(places) / name;
  std::error_code error;
  fs::create_directories(incoming, error);
  std::string failure = writeFiles(incoming, files);
  const fs::path complete = findManifest(incoming);
  if (failure.empty() && complete.empty()) failure = "There is no manifest.json in it.";
  if (failure.empty()) {
    fs::remove_all(folder, error);
    fs::rename(complete, folder, error);
    if (error) failure = error.message();
  }
  fs::remove_all(incoming, error);
  return {failure.empty(), failure.empty() ? name : failure};
}

bool hideSecrets(Json::Value& value) {
  bool found = false;
  Json::Value inner;
  if (value.isString() && jobm::json::parse(value.asString(), inner) && hideSecrets(inner)) {
    value = inner;
    found = true;
  } else if (value.isArray()) {
    for (Json::Value& one : value) found = hideSecrets(one) || found;
  } else if (value.isObject()) {
    for (const std::string& name : value.getMemberNames()) {
      const bool secret = isSecret(name);
      if (secret) value[name] = "(a secret)";
      found = secret || hideSecrets(value[name]) || found;
    }
  }
  return found;
}

Outcome storeContent() {
  const auto entries = config_store::list(kStoreTimeoutMs);
  if (!entries) return {false, "The store can't be read."};
  Json::Value content(Json::objectValue);
  for (const auto& [key, value] : *entries) content[key] = value;
  hideSecrets(content);
  return {true, jobm::json::compact(content)};
}

}  // namespace gateway
