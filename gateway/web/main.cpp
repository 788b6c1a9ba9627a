// The web server that job packages and resources are fetched from; loopback only.

#include <httplib.h>

#include <cstdio>
#include <memory>

#include "common/options.h"
#include "common/trace.h"

namespace {

constexpr gateway::OptionEntry kOptions[] = {
    {"root", "DIR", "the folder to serve"},
    {"port", "NUMBER", "the port on 127.0.0.1; default 0, a free one"},
    {"certificate", "FILE", "serve over TLS, with this certificate (PEM)"},
    {"key", "FILE", "the certificate's private key (PEM)"},
};

constexpr const char* kHost = "127.0.0.1";

void logRequest(const httplib::Request& request, const httplib::Response& response) {
  const std::string what =
      request.method + " " + request.path + ": " + std::to_string(response.status);
  gateway::trace("task-dispatcher", "gateway-web", what);
}

std::unique_ptr<httplib::Server> makeServer(const gateway::Options& options) {
  if (!options.has("certificate")) return std::make_unique<httplib::Server>();
  return std::make_unique<httplib::SSLServer>(options.get("certificate").c_str(),
                                              options.get("key").c_str());
}

}  // namespace

int main(int argc, char** argv) {
  gateway::Options options;
  if (!options.parse(argc, argv, kOptions)) return 2;
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
  server.set_logger(logRequest);
  // Over a kept connection an answer's second packet would wait 40 ms for the first one's receipt.
  server.set_tcp_nodelay(true);
  int port = options.number("port", 0);
  if (port == 0) {
    port = server.bind_to_any_port(kHost);
  } else if (!server.bind_to_port(kHost, port)) {
    port = -1;
  }
  if (port < 0) {
    std::fputs("no port to listen on\n", stderr);
    return 1;
  }
  gateway::trace("gateway-web", "web", "listens on port " + std::to_string(port));
  return server.listen_after_bind() ? 0 : 1;
}
