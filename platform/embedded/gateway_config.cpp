// gateway-config: reads and writes the configuration store by hand.

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "config_store.h"

namespace {

constexpr int kTimeoutMs = 10000;
constexpr int kUsage = 2;

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

int usage() {
  std::fprintf(stderr,
               "usage: gateway-config get KEY | set KEY VALUE | list\n"
               "store: $GATEWAY_CONFIG_DB, now %s\n",
               config_store::databasePath().c_str());
  return kUsage;
}

int run(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  if (command == "get" && argc == 3) return get(argv[2]);
  if (command == "set" && argc == 4) return set(argv[2], argv[3]);
  if (command == "list" && argc == 2) return list();
  return usage();
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
