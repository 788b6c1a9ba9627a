#include "status_file/status_file.h"

#include <gateway/log_macros.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "lib/file_text.h"
#include "lib/json_helper.h"

namespace jobm {
namespace {

constexpr std::chrono::seconds kPause{1};
constexpr Json::ArrayIndex kMaxOutcomes = 10;
constexpr const char* kOutcomes = "deployments";

// Written by any thread, read by the one that writes the file.
struct Status {
  std::mutex lock;
  std::condition_variable changed;
  Json::Value members{Json::objectValue};
  bool isChanged = false;
};

Status& status() {
  // Never destroyed: threads outlive static destruction.
  static auto& all = *std::make_unique<Status>().release();
  return all;
}

// Set before there is a second thread, and reset when nobody writes the file any more.
std::atomic<bool> isOn = false;

void assign(Json::Value& place, const Json::Value& value) {
  if (place == value) return;
  place = value;
  status().isChanged = true;
  status().changed.notify_one();
}

// Whoever looks on costs nobody a job: what goes wrong here stays here.
template <typename Change>
void change(const Change& make) {
  if (!isOn) return;
  try {
    const std::lock_guard guard(status().lock);
    make(status().members);
  } catch (const std::exception& e) {
    LOGW("the status file lacks a change: %s\n", e.what());
  }
}

// Sleeps until something has changed.
std::string nextText() {
  std::unique_lock guard(status().lock);
  status().changed.wait(guard, [] { return status().isChanged; });
  status().isChanged = false;
  const Json::Value members = status().members;
  guard.unlock();
  return json::styled(members);
}

// Nobody else would notice before the next change that the file lacks this one.
void putOff() {
  const std::lock_guard guard(status().lock);
  status().isChanged = true;
}

// Whoever reads sees the old file or the new one, never a part.
bool replace(const std::string& path, const std::string& text) {
  const std::string fresh = path + ".new";
  return writeFile(fresh, text) && std::rename(fresh.c_str(), path.c_str()) == 0;
}

void writeChanges(const std::string& path) {
  std::string written;
  bool wasWritten = true;
  while (true) {
    std::string text = nextText();
    if (text == written) continue;  // it changed back
    const bool isWritten = replace(path, text);
    if (!isWritten && wasWritten) {
      LOGW("%s can't be written: %s\n", path.c_str(), std::strerror(errno));
    }
    if (!isWritten) putOff();
    wasWritten = isWritten;
    written = isWritten ? std::move(text) : "";
    std::this_thread::sleep_for(kPause);
  }
}

// On the thread of its own, where an exception would end the process.
void keepWriting(const std::string& path) {
  try {
    writeChanges(path);
  } catch (const std::exception& e) {
    isOn = false;
    LOGW("%s is not written: %s\n", path.c_str(), e.what());
  }
}

// What a former process left there, over a restart, says how its last deployments ended.
void takeOverOutcomes(const std::string& path) {
  std::string text;
  Json::Value former;
  if (!readFile(path, text) || !json::parse(text, former) || !former.isObject()) return;
  const Json::Value& outcomes = std::as_const(former)[kOutcomes];
  if (outcomes.isArray() && outcomes.size() <= kMaxOutcomes) setStatus(kOutcomes, outcomes);
}

std::string folder() {
  const char* folders = std::getenv("RUNTIME_DIRECTORY");
  const std::string all = folders != nullptr ? folders : "";
  return all.substr(0, all.find(':'));
}

}  // namespace

void startStatusFile() {
  if (folder().empty()) return;
  isOn = true;
  const std::string path = folder() + "/status.json";
  takeOverOutcomes(path);
  setStatus("format", 1);
  setStatus("pid", static_cast<Json::Int64>(getpid()));
  setStatus("started", statusTime());
  try {
    std::thread(keepWriting, path).detach();
  } catch (const std::system_error& e) {
    isOn = false;
    LOGW("%s is not written: %s\n", path.c_str(), e.what());
  }
}

bool hasStatusFile() { return isOn; }

void setStatus(const char* member, const Json::Value& value) {
  change([&](Json::Value& members) { assign(members[member], value); });
}

void setStatusWord(const char* member, const std::string& word) {
  change([&](Json::Value& members) {
    if (json::textOf(members[member], "state") == word) return;
    Json::Value value;
    value["state"] = word;
    value["since"] = statusTime();
    assign(members[member], value);
  });
}

void setStatusEntry(const char* member, const std::string& name, const Json::Value& value) {
  change([&](Json::Value& members) { assign(members[member][name], value); });
}

void addStatusOutcome(Json::Value&& outcome) {
  change([&](Json::Value& members) {
    outcome["finished"] = statusTime();
    Json::Value outcomes = members[kOutcomes];
    outcomes.append(std::move(outcome));
    Json::Value removed;
    if (outcomes.size() > kMaxOutcomes) outcomes.removeIndex(0, &removed);
    assign(members[kOutcomes], outcomes);
  });
}

std::string statusTime() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  std::array<char, 32> text{};
  static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc));
  return text.data();
}

}  // namespace jobm
