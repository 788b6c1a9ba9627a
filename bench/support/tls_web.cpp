#include "tls_web.h"

#include <httplib.h>

#include <filesystem>

#include "bus.h"
#include "process.h"
#include "web.h"

namespace bench {
namespace {

constexpr const char* kFolder = "/tarnvale/bench/certificates";
constexpr const char* kCertificate = "/tarnvale/bench/certificates/ca-certificates.crt";
constexpr const char* kKey = "/tarnvale/bench/key.pem";

void makeCertificate() {
  std::filesystem::create_directories(kFolder);
  timeCommand({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
               "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1",
               "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", kKey, "-out", kCertificate});
}

}  // namespace

TlsWeb::TlsWeb() {
  makeCertificate();
  server = std::make_unique<httplib::SSLServer>(kCertificate, kKey);
  server->set_keep_alive_max_count(1000000);
  server->set_keep_alive_timeout(60);
  server->set_tcp_nodelay(true);
  server->Get(R"(/(\d+)/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    response.set_content(webText(std::stoul(request.matches[1]), std::stoul(request.matches[2])),
                         "application/json");
  });
  portNumber = server->bind_to_any_port("127.0.0.1");
  require(portNumber > 0, "no web server");
  thread = std::thread([this] { server->listen_after_bind(); });
}

TlsWeb::~TlsWeb() {
  server->stop();
  thread.join();
}

std::vector<std::string> TlsWeb::trusting() {
  // A view of the file system in which nobody else's certificate is where the system keeps them.
  return {"unshare",
          "--mount",
          "bash",
          "-c",
          R"(mount --bind "$1" "$2" && shift 2 && exec "$@")",
          "bash",
          kFolder,
          "/etc/ssl/certs"};
}

}  // namespace bench
