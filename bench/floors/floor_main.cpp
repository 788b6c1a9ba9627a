// bench-floor server SHAPE NAME ANSWER_BYTES PROXIES: serves for ever, waiting by the clock (SHAPE
//   polling) or by events (events).
// bench-floor relay SHAPE NAME ANSWER_BYTES BYTES: the same, and publishes a text of so many bytes
// for
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

int runServer(const std::vector<std::string>& words) {
  const bench::Shape shape = bench::shapeOf(words[1]);
  const auto server = bench::makeServer(shape, words[2], std::stoul(words[3]));
  std::vector<std::unique_ptr<bench::BareProxy>> proxies(std::stoul(words[4]));
  for (auto& proxy : proxies) proxy = bench::makeProxy(shape);
  return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}

int runRelay(const std::vector<std::string>& words) {
  const bench::Shape shape = bench::shapeOf(words[1]);
  const auto server = bench::makeServer(shape, words[2], std::stoul(words[3]));
  const auto proxy = bench::makeProxy(shape);
  const std::string text(std::stoul(words[4]), 'x');
  // A send that finds the polling worker reading waits no longer than it must.
  if (shape == bench::Shape::kPolling) prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
  server->onMessage = [&](DBusMessage* message) { relay(*proxy, message, text); };
  return uv_run(uv_default_loop(), UV_RUN_DEFAULT);
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words.size() == 5 && words[0] == "server") return runServer(words);
  if (words.size() == 5 && words[0] == "relay") return runRelay(words);
  if (words.size() == 3 && words[0] == "deploy") {
    std::printf("%.9f\n", bench::deployLoop(std::stoul(words[1]), std::stoi(words[2])));
    return EXIT_SUCCESS;
  }
  std::fprintf(stderr,
               "usage: bench-floor server SHAPE NAME ANSWER_BYTES PROXIES | "
               "relay SHAPE NAME ANSWER_BYTES BYTES | deploy COUNT PORT\n");
  return EXIT_FAILURE;
}
