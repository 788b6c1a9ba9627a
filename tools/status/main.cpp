// gateway-status: shows the state of a gateway's job dispatcher. Changes nothing.

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>

#include "common/options.h"
#include "lib/json_helper.h"
#include "snapshot.h"

namespace {

constexpr gateway::OptionEntry kOptions[] = {
    {"json", "", "print the state as JSON"},
    {"watch", "", "go on and print the state again whenever it has changed"},
    {"status-file", "FILE",
     "the service's; default status.json in $RUNTIME_DIRECTORY or /run/task-dispatcher"},
};

constexpr gateway::Program kProgram{
    "gateway-status",
    "shows the state of a gateway's job dispatcher",
    "Reads what the bus, the configuration store and task-dispatcher's status file tell, and "
    "changes nothing. "
    "The status is 0 when all is well, 1 when something is not, 2 when nothing can be asked.\n\n"
    "The object of --json is described in gateway-status.md, which is in docs or "
    "/usr/share/doc/task-dispatcher.",
    {},
    kOptions};

constexpr const char* kFolder = "/run/task-dispatcher";
constexpr unsigned kPauseSeconds = 1;

constexpr int kWell = 0;
constexpr int kNotWell = 1;
constexpr int kNothingToAsk = 2;

int exitStatus(const Json::Value& snapshot) {
  if (!snapshot["bus"].asBool()) return kNothingToAsk;
  return snapshot["ok"].asBool() ? kWell : kNotWell;
}

std::string textFor(const Json::Value& snapshot, const gateway::Options& options) {
  if (!options.has("json")) return gateway::textOf(snapshot);
  return options.has("watch") ? jobm::json::compact(snapshot) : jobm::json::styled(snapshot);
}

Json::Value takeSnapshot(const gateway::Options& options) {
  const std::string file = gateway::environment("RUNTIME_DIRECTORY", kFolder) + "/status.json";
  return gateway::takeSnapshot(options.get("status-file", file));
}

// False when nobody reads it any more.
bool print(const std::string& text) {
  return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

int show(const gateway::Options& options) {
  const Json::Value snapshot = takeSnapshot(options);
  return print(textFor(snapshot, options)) ? exitStatus(snapshot) : kNothingToAsk;
}

// Polls: what the bus and the store say comes without notice. For a person, and not for long.
int watch(const gateway::Options& options) {
  const bool isScreen = !options.has("json") && isatty(STDOUT_FILENO) == 1;
  std::string before;
  while (true) {
    const std::string text = textFor(takeSnapshot(options), options);
    if (text != before) {
      const char* head = isScreen ? "\x1b[H\x1b[2J" : options.has("json") ? "" : "\n";
      if (!print(head + text)) return kNothingToAsk;
    }
    before = text;
    sleep(kPauseSeconds);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    gateway::Options options;
    if (const auto status = options.parse(argc, argv, kProgram)) return *status;
    if (!options.words().empty()) {
      return gateway::usageError(kProgram, "what is '" + options.words()[0] + "'?");
    }
    return options.has("watch") ? watch(options) : show(options);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "gateway-status: %s\n", e.what());
    return kNothingToAsk;
  }
}
