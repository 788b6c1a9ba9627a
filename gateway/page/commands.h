/// What the page lets people do, by the programs that they have for it in a shell.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace gateway {

/// Where things are.
struct Places {
  std::string home;  // of the local gateway that runs
  std::string root;  // the folder with gateway/page, gateway/samples, scripts and docs
};

/// What became of a request: whether it was done, and what is said to people.
struct Outcome {
  bool isDone = false;
  std::string text;
};

/// The folders that can be submitted, as a list of {"name", "own"}. Any thread, as all here.
Json::Value folders(const Places& places);

/// Plays the fault of {"part", "fault"}.
Outcome playFault(const Places& places, const Json::Value& request);

/// What gateway-fault has to play.
Outcome listFaults(const Places& places);

/// Submits {"command": add, delete or reset; "folder", "encrypt"; "jobId" to delete a job;
/// "scheduler" for its own reset} or triggers {"command": "trigger", "text"}.
Outcome submitJob(const Places& places, const Json::Value& request);

/// Takes a folder of resources: its files, as pairs of path and content, or one archive of them.
Outcome takeFolder(const Places& places, const std::string& name,
                   const std::vector<std::pair<std::string, std::string>>& files);

/// The configuration store, as an object from keys to values, without those that are secret.
Outcome storeContent();

/// Replaces in `value`, and in what its texts hold where that is JSON, whatever its name says to be
/// secret. Returns whether there was any.
bool hideSecrets(Json::Value& value);

}  // namespace gateway
