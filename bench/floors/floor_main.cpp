// bench-floor server NAME ANSWER_BYTES PROXIES: serves for ever.
// bench-floor relay NAME ANSWER_BYTES BYTES: the same, and publishes a text of so many bytes for
//   every call (for a call of "burst" as many as its argument says), and sends a signal with one
//   for every signal that it gets.
// bench-floor deploy COUNT PORT: prints the seconds that COUNT resources took.
#include <sys/prctl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bare.h"
#include "deploy_loop.h"

namespace {

void relay(bench::BareProxy& proxy, DBusMessage* message, const std::string& text) {
  if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_SIGNAL) {
    proxy.send(bench::makeSignal("bench.relay", "event", {text}).get());
    return;
  }
  const bool isBurst = std::strcmp(dbus_message_get_member(message), "burst") == 0;
  const std::size_t count = isBurst ? std::stoul(bench::textsOf(message).at(0)) : 1;
  for (std::size_t i = 0; i < count; ++i) {
    const bench::Message call =
        bench::makeCall("iot.bridge.mqtt", "publish", {"/bench/floor", text});
    proxy.send(call.get(), [](DBusMessage*) {});
  }
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words.size() == 4 && words[0] == "server") {
    const bench::BareServer server(words[1], std::stoul(words[2]));
    std::vector<std::unique_ptr<bench::BareProxy>> proxies(std::stoul(words[3]));
    for (auto& proxy : proxies) proxy = std::make_unique<bench::BareProxy>();
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
  }
  if (words.size() == 4 && words[0] == "relay") {
    bench::BareServer server(words[1], std::stoul(words[2]));
    bench::BareProxy proxy;
    const std::string text(std::stoul(words[3]), 'x');
    // As the service's: a send that finds the worker reading waits no longer than it must.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    server.onMessage = [&](DBusMessage* message) { relay(proxy, message, text); };
    return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
  }
  if (words.size() == 3 && words[0] == "deploy") {
    std::printf("%.9f\n", bench::deployLoop(std::stoul(words[1]), std::stoi(words[2])));
    return EXIT_SUCCESS;
  }
  std::fprintf(stderr,
               "usage: bench-floor server NAME ANSWER_BYTES PROXIES | "
               "relay NAME ANSWER_BYTES BYTES | deploy COUNT PORT\n");
  return EXIT_FAILURE;
}
