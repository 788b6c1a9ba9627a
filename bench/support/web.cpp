#include "web.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "bus.h"

namespace bench {
namespace {

constexpr std::size_t kMiB = std::size_t{1024} * 1024;

bool sendAll(int peer, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::string readRequest(int peer) {
  std::string request;
  char buffer[2048];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t got = recv(peer, buffer, sizeof buffer, 0);
    if (got <= 0) return {};
    request.append(buffer, static_cast<std::size_t>(got));
  }
  return request;
}

void answer(int peer) {
  std::size_t size = 0;
  std::size_t seed = 0;
  if (std::sscanf(readRequest(peer).c_str(), "GET /%zu/%zu", &size, &seed) != 2) return;
  const std::string head =
      "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(size) +
      "\r\n\r\n";
  const std::string body = webText(std::min(size, kMiB), seed);
  if (size <= kMiB) {
    sendAll(peer, head + body);
    return;
  }
  if (!sendAll(peer, head)) return;
  for (std::size_t left = size; left > 0;) {
    const std::string_view part = std::string_view(body).substr(0, left);
    if (!sendAll(peer, part)) return;
    left -= part.size();
  }
}

}  // namespace

std::string webText(std::size_t size, std::size_t seed) {
  std::string text = R"({"number":)" + std::to_string(seed) + R"(,"text":")";
  if (text.size() + 2 < size) text.resize(size - 2, 'x');
  return (text + "\"}").substr(0, size);
}

Web::Web() : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  require(bind(listener, generic, length) == 0 && listen(listener, 64) == 0, "no web server");
  getsockname(listener, generic, &length);
  portNumber = ntohs(address.sin_port);
  thread = std::thread([this] { serve(); });
}

Web::~Web() {
  stopping = true;
  shutdown(listener, SHUT_RDWR);
  thread.join();
  close(listener);
}

std::string Web::root() const { return "http://127.0.0.1:" + std::to_string(portNumber); }

std::string Web::url(std::size_t size, std::size_t seed) const {
  return root() + "/" + std::to_string(size) + "/" + std::to_string(seed);
}

void Web::serve() {
  while (!stopping) {
    const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (peer < 0) continue;
    const int yes = 1;
    setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    answer(peer);
    close(peer);
  }
}

}  // namespace bench
