// gateway-page: a page that shows the local gateway at work.

#include <csignal>
#include <cstdlib>
#include <string>

#include "common/options.h"
#include "server.h"

namespace {

constexpr gateway::OptionEntry kOptions[] = {
    {"home", "DIR", "where the gateway's files are; default $GATEWAY_HOME"},
    {"root", "DIR", "the folder with gateway/page, gateway/samples, scripts and docs"},
    {"port", "NUMBER", "the port on 127.0.0.1; default 0, a free one"},
};

constexpr gateway::Program kProgram{"gateway-page",
                                    "shows the local gateway at work in a browser",
                                    "Serves a page on the loopback interface and prints its "
                                    "address: the messages of the service as they pass, jobs "
                                    "and their results, the gateway's state, switches for its "
                                    "faults, a way to submit jobs, and the configuration "
                                    "store. While no page is open it waits for one.",
                                    {},
                                    kOptions};

}  // namespace

int main(int argc, char** argv) {
  gateway::Options options;
  if (const auto status = options.parse(argc, argv, kProgram)) return *status;
  const std::string home = options.get("home", gateway::environment("GATEWAY_HOME"));
  if (home.empty() || !options.has("root")) {
    return gateway::usageError(kProgram, "--home and --root are needed");
  }
  std::signal(SIGPIPE, SIG_IGN);
  gateway::Feed feed(home);
  gateway::servePage(feed, {.home = home, .root = options.get("root")}, options.number("port", 0));
  // The feed's thread goes on until the end.
  std::_Exit(1);
}
