// The web server that job packages and resources are fetched from; loopback only.

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "common/options.h"
#include "common/trace.h"

namespace {

constexpr gateway::OptionEntry kOptions[] = {
    {"root", "DIR", "the folder to serve"},
    {"port", "NUMBER", "the port on 127.0.0.1; default 0, a free one"},
    {"certificate", "FILE", "serve over TLS, with this certificate (PEM)"},
    {"key", "FILE", "the certificate's private key (PEM)"},
    {"fault", "KIND",
     "misbehave: 404, slow (500 bytes a second), cut (in the middle of each file)"},
};

constexpr gateway::Program kProgram{
    "gateway-web",
    "the local gateway's web server",
    "Serves a folder on the loopback interface, for job packages and resources to be fetched from.",
    {},
    kOptions};

constexpr std::size_t kBytesASecond = 500;
constexpr const char* kHost = "127.0.0.1";

void logRequest(const httplib::Request& request, const httplib::Response& response) {
  const std::string what =
      request.method + " " + request.path + ": " + std::to_string(response.status);
  gateway::trace("task-dispatcher", "gateway-web", what);
}

// Sends a part of the body a second.
void sendSlowly(const httplib::Request&, httplib::Response& response) {
  const auto body = std::make_shared<std::string>(std::move(response.body));
  response.body.clear();
  response.set_content_provider(
      body->size(), "application/octet-stream",
      [body](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        return sink.write(body->data() + offset, std::min(length, kBytesASecond));
      });
}

// Announces the whole body and closes the connection behind the first half.
void cut(const httplib::Request&, httplib::Response& response) {
  const auto body = std::make_shared<std::string>(std::move(response.body));
  response.body.clear();
  response.set_content_provider(body->size(), "application/octet-stream",
                                [body](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                  return offset == 0 && body->size() > 1 &&
                                         sink.write(body->data(), body->size() / 2);
                                });
}

void hide(const httplib::Request&, httplib::Response& response) {
  response.status = 404;
  response.body.clear();
}

// Returns whether there is such a fault, or none at all.
bool misbehave(httplib::Server& server, const std::string& kind) {
  if (kind == "404") server.set_file_request_handler(hide);
  if (kind == "slow") server.set_file_request_handler(sendSlowly);
  if (kind == "cut") server.set_file_request_handler(cut);
  return kind.empty() || kind == "404" || kind == "slow" || kind == "cut";
}

std::unique_ptr<httplib::Server> makeServer(const gateway::Options& options) {
  if (!options.has("certificate")) return std::make_unique<httplib::Server>();
  return std::make_unique<httplib::SSLServer>(options.get("certificate").c_str(),
                                              options.get("key").c_str());
}

// Returns the port, -1 if it is not to be had.
int bindTo(httplib::Server& server, int port) {
  if (port == 0) return server.bind_to_any_port(kHost);
  return server.bind_to_port(kHost, port) ? port : -1;
}

}  // namespace

int main(int argc, char** argv) {
  gateway::Options options;
  if (const auto status = options.parse(argc, argv, kProgram)) return *status;
  const std::unique_ptr<httplib::Server> made = makeServer(options);
  httplib::Server& server = *made;
  if (!server.is_valid()) {
    std::fputs("--certificate and --key do not go together\n", stderr);
    return 2;
  }
  if (!server.set_mount_point("/", options.get("root"))) {
    std::fputs("--root must name a folder\n", stderr);
    return 2;
  }
  if (!misbehave(server, options.get("fault"))) {
    return gateway::usageError(kProgram, "no fault " + options.get("fault"));
  }
  server.set_logger(logRequest);
  // Over a kept connection an answer's second packet would wait 40 ms for the first one's receipt.
  server.set_tcp_nodelay(true);
  const int port = bindTo(server, options.number("port", 0));
  if (port < 0) {
    std::fputs("no port to listen on\n", stderr);
    return 1;
  }
  gateway::trace("gateway-web", "web", "listens on port " + std::to_string(port));
  return server.listen_after_bind() ? 0 : 1;
}
