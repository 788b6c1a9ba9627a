// bench-floor server NAME ANSWER_BYTES PROXIES: serves for ever.
// bench-floor deploy COUNT PORT: prints the seconds that COUNT resources took.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bare.h"
#include "deploy_loop.h"

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words.size() == 4 && words[0] == "server") {
    const bench::BareServer server(words[1], std::stoul(words[2]));
    std::vector<std::unique_ptr<bench::BareProxy>> proxies(std::stoul(words[3]));
    for (auto& proxy : proxies) proxy = std::make_unique<bench::BareProxy>();
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
  }
  if (words.size() == 3 && words[0] == "deploy") {
    std::printf("%.9f\n", bench::deployLoop(std::stoul(words[1]), std::stoi(words[2])));
    return EXIT_SUCCESS;
  }
  std::fprintf(stderr, "usage: bench-floor server NAME ANSWER_BYTES PROXIES | deploy COUNT PORT\n");
  return EXIT_FAILURE;
}
