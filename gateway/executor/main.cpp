#include <cstdio>
#include <filesystem>
#include <sstream>

#include "common/options.h"
#include "executor_server.h"

namespace {

constexpr gateway::OptionEntry kOptions[] = {
    {"name", "TEXT", "executor name, for example driver_manager"},
    {"bus-name", "NAME", "bus name and interface, for example iot.driver.manager"},
    {"path", "PATH", "object path, for example /iot/driver/manager"},
    {"store-types", "A,B", "store types to register with"},
    {"watch-types", "A,B", "watch types to register with"},
    {"executor", "", "register as an executor"},
    {"parser", "", "register as a parser"},
    {"folder", "DIR", "write every call to a file in DIR"},
    {"per-resource", "", "answer deployJob with one code per resource"},
    {"report-status", "", "report every deployed resource with syncJobStatus"},
    {"fault", "METHOD=KIND",
     "misbehave: code:N, code:N@RESOURCE, late:MS, silent, garbage, twice, die"},
};

constexpr gateway::Program kProgram{"gateway-executor",
                                    "an executor or parser of the local gateway",
                                    "Takes a name on the gateway's bus, registers with "
                                    "task-dispatcher, also when that comes back, and "
                                    "answers its calls; with --fault not as it should.",
                                    {},
                                    kOptions};

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; std::getline(stream, word, ',');) words.push_back(word);
  return words;
}

bool readBehaviour(const gateway::Options& options, gateway::ExecutorBehaviour& behaviour) {
  behaviour.folder = options.get("folder");
  behaviour.perResource = options.has("per-resource");
  behaviour.reportsStatus = options.has("report-status");
  for (const std::string& text : options.all("fault")) {
    if (gateway::addMisbehaviour(text, behaviour.misbehaviours)) continue;
    std::fprintf(stderr, "bad fault %s\n", text.c_str());
    return false;
  }
  std::error_code error;
  if (!behaviour.folder.empty()) std::filesystem::create_directories(behaviour.folder, error);
  return !error;
}

}  // namespace

int main(int argc, char** argv) {
  gateway::Options options;
  if (const auto status = options.parse(argc, argv, kProgram)) return *status;
  gateway::ExecutorSettings settings{.executorName = options.get("name"),
                                     .busName = options.get("bus-name"),
                                     .path = options.get("path"),
                                     .storeType = splitAtCommas(options.get("store-types")),
                                     .watchType = splitAtCommas(options.get("watch-types")),
                                     .registerAs = {}};
  if (settings.executorName.empty() || settings.busName.empty() || settings.path.empty()) {
    return gateway::usageError(kProgram, "--name, --bus-name and --path are needed");
  }
  if (options.has("executor")) settings.registerAs.emplace_back("registerExecutor");
  if (options.has("parser")) settings.registerAs.emplace_back("registerParser");
  gateway::ExecutorBehaviour behaviour;
  if (!readBehaviour(options, behaviour)) return 2;
  gateway::ExecutorServer(std::move(settings), std::move(behaviour)).serve();
  return 0;
}
