// gateway-config: reads and writes the configuration store by hand.

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "common/options.h"
#include "config_store.h"

namespace {

constexpr int kTimeoutMs = 10000;

constexpr gateway::CommandEntry kCommands[] = {
    {"get KEY", "print the value of a key; status 1 when there is none"},
    {"set KEY VALUE", "store a value; it has survived a power cut when the program ends"},
    {"list", "print all keys with their values"},
};

constexpr gateway::Program kProgram{
    "gateway-config",
    "reads and writes the gateway's configuration store",
    "The store is the file that the environment's GATEWAY_CONFIG_DB names, by default "
    "/tarnvale/config/gateway.db. A gateway with a configuration library of its own has its own "
    "tool.",
    kCommands,
    {}};

// Output that could not be written is a failure.
int finishOutput() { return std::fflush(stdout) == 0 ? 0 : 1; }

int get(const std::string& key) {
  const auto value = config_store::get(key, kTimeoutMs).value;
  if (!value) return 1;
  std::printf("%s\n", value->c_str());
  return finishOutput();
}

int set(const std::string& key, const std::string& value) {
  const int result = config_store::set(key, value, kTimeoutMs);
  if (result == 0) return 0;
  std::fprintf(stderr, "gateway-config: '%s' was not stored (%d)\n", key.c_str(), result);
  return 1;
}

int list() {
  const auto entries = config_store::list(kTimeoutMs);
  if (!entries) return 1;
  for (const auto& [key, value] : *entries) std::printf("%s=%s\n", key.c_str(), value.c_str());
  return finishOutput();
}

int run(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  if (command == "get" && argc == 3) return get(argv[2]);
  if (command == "set" && argc == 4) return set(argv[2], argv[3]);
  if (command == "list" && argc == 2) return list();
  // Only here, because a key or a value may look like an option.
  if (argc == 2 && gateway::tellAbout(command, kProgram)) return finishOutput();
  return gateway::usageError(kProgram, "no command, or not its arguments");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "gateway-config: %s\n", e.what());
    return 1;
  }
}
