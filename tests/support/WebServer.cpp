#include "WebServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace test {
namespace {

constexpr std::size_t kPieces = 20;
constexpr int kPauseMs = 10;
constexpr int kForEver = -1;

int require(int result, const char* what) {
  if (result >= 0) return result;
  std::perror(what);
  std::abort();
}

/// A socket at a free port of loopback.
int boundSocket() {
  const int made = require(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  require(bind(made, reinterpret_cast<sockaddr*>(&address), sizeof address), "bind");
  return made;
}

std::string urlOf(int socket, const std::string& path) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  require(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), "getsockname");
  return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + path;
}

bool sendAll(int client, std::string_view data) {
  while (!data.empty()) {
    const ssize_t sent = ::send(client, data.data(), data.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

/// The request's head, or what came of it.
std::string readHead(int client) {
  std::string head;
  std::array<char, 4096> buffer{};
  while (head.find("\r\n\r\n") == std::string::npos) {
    const ssize_t got = recv(client, buffer.data(), buffer.size(), 0);
    if (got <= 0) break;
    head.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return head;
}

std::string headOf(const Page& page) {
  std::string head = "HTTP/1.1 " + std::to_string(page.status) + " told so\r\n" + page.headers;
  if (page.fault != Fault::noLength) {
    head += "Content-Length: " + std::to_string(page.body.size()) + "\r\n";
  }
  return head + "Connection: close\r\n\r\n";
}

}  // namespace

std::string patternBody(std::size_t size) {
  std::string body;
  body.reserve(size + 8);
  std::array<char, 9> eight{};
  while (body.size() < size) {
    std::snprintf(eight.data(), eight.size(), "%07zx\n", body.size() & 0xFFFFFFFU);
    body += eight.data();
  }
  body.resize(size);
  return body;
}

WebServer::WebServer()
    : socket(boundSocket()), stopping(require(eventfd(0, EFD_CLOEXEC), "eventfd")) {
  require(listen(socket, SOMAXCONN), "listen");
  accepting = std::thread([this] { accept(); });
}

WebServer::~WebServer() {
  eventfd_write(stopping, 1);
  accepting.join();
  for (std::thread& thread : answering) thread.join();
  close(socket);
  close(stopping);
}

void WebServer::serve(const std::string& path, std::vector<Page> pagesOfPath) {
  const std::lock_guard guard(lock);
  pages[path] = std::move(pagesOfPath);
  counts[path] = 0;
}

std::size_t WebServer::requests(const std::string& path) const {
  const std::lock_guard guard(lock);
  const auto found = counts.find(path);
  return found == counts.end() ? 0 : found->second;
}

std::string WebServer::url(const std::string& path) const { return urlOf(socket, path); }

void WebServer::accept() {
  while (goesOn(socket, kForEver)) {
    const int client = ::accept(socket, nullptr, nullptr);
    if (client >= 0) answering.emplace_back([this, client] { answer(client); });
  }
}

void WebServer::answer(int client) {
  const std::string head = readHead(client);
  const std::size_t begin = head.find(' ') + 1;
  const Page page = pageFor(head.substr(begin, head.find(' ', begin) - begin));
  send(client, page);
  close(client);
}

Page WebServer::pageFor(const std::string& path) {
  const std::lock_guard guard(lock);
  const std::size_t count = counts[path]++;
  const auto found = pages.find(path);
  if (found == pages.end() || found->second.empty()) return {.status = 404, .body = "no page"};
  return found->second[std::min(count, found->second.size() - 1)];
}

/// Waits for something to read from `fd`. False when this server is to end.
bool WebServer::goesOn(int fd, int milliseconds) const {
  std::array<pollfd, 2> wanted{{{stopping, POLLIN, 0}, {fd, POLLIN, 0}}};
  poll(wanted.data(), wanted.size(), milliseconds);
  return wanted[0].revents == 0;
}

void WebServer::send(int client, const Page& page) const {
  if (page.fault == Fault::noAnswer) return;
  if (page.fault == Fault::garbage) {
    sendAll(client, "220 this is no web server\r\n");
    return;
  }
  if (!sendAll(client, headOf(page))) return;
  std::string_view body = page.body;
  if (page.fault == Fault::cutShort || page.fault == Fault::stall) {
    sendAll(client, body.substr(0, body.size() / 2));
    if (page.fault == Fault::stall) goesOn(client, kForEver);
    return;
  }
  const bool slow = page.fault == Fault::slow;
  const std::size_t piece = slow ? body.size() / kPieces + 1 : body.size();
  while (!body.empty()) {
    if (!sendAll(client, body.substr(0, piece))) return;
    body.remove_prefix(std::min(piece, body.size()));
    if (slow && !goesOn(client, kPauseMs)) return;
  }
}

}  // namespace test
