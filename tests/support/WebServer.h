/// A web server on loopback that misbehaves as told.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <mutex>

#include "test.h"

namespace test {

/// What it does with a connection over which it has answered.
enum class Then { keep, end, reset };

struct Page {
  int status = 200;
  std::string body = "file";
  std::string header{};     // further lines of it, with their ends
  std::size_t missing = 0;  // bytes that are promised behind the body and never come
  /// So many bytes come at once, each part with a pause behind it.
  std::size_t part = std::string::npos;
  int pauseMs = 0;
  Then then = Then::keep;
  /// Sent in place of the second answer of a connection, which is ended then.
  std::optional<std::string> lastWord{};
};

class WebServer {
 public:
  /// At any port, or at that of a server that is gone.
  explicit WebServer(int port = 0) {
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(listener, generic, length) + listen(listener, 64), 0);
    getsockname(listener, generic, &length);
    acceptor = std::thread([this] { acceptAll(); });
  }
  ~WebServer() {
    shutdown(listener, SHUT_RDWR);
    acceptor.join();
    for (const int peer : peers) shutdown(peer, SHUT_RDWR);
    for (std::thread& thread : threads) thread.join();
    for (const int peer : peers) close(peer);
    close(listener);
  }
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  int port() const { return ntohs(address.sin_port); }

  /// Returns the URL at which `page` is from now on.
  std::string serve(Page page) {
    const std::lock_guard guard(lock);
    pages.push_back(std::move(page));
    return "http://127.0.0.1:" + std::to_string(port()) + "/" + std::to_string(pages.size() - 1);
  }

  std::atomic<int> connections = 0;

 private:
  void acceptAll() {
    while (true) {
      const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (peer < 0) return;
      ++connections;
      peers.push_back(peer);
      threads.emplace_back([this, peer] { answerAll(peer); });
    }
  }

  void answerAll(int peer) {
    std::string request;
    for (bool isFirst = true;; isFirst = false, request.clear()) {
      for (char byte = 0; !request.ends_with("\r\n\r\n"); request += byte) {
        if (recv(peer, &byte, 1, 0) != 1) return;
      }
      std::unique_lock guard(lock);
      const Page page = pages.at(std::stoul(request.substr(sizeof "GET /" - 1)));
      guard.unlock();
      if (!isFirst && page.lastWord) {
        send(peer, page.lastWord->data(), page.lastWord->size(), MSG_NOSIGNAL);
        return endAs(Then::end, peer);
      }
      answer(page, peer);
    }
  }

  static void answer(const Page& page, int peer) {
    pollfd end{peer, POLLIN, 0};  // of the server, or of the client's patience
    std::string text = "HTTP/1.1 " + std::to_string(page.status) + " any\r\n" + page.header +
                       "Content-Length: " + std::to_string(page.body.size() + page.missing) +
                       "\r\n\r\n";
    std::size_t sent = 0;
    do {
      text += page.body.substr(sent, page.part);
      send(peer, text.data(), text.size(), MSG_NOSIGNAL);
      if (page.pauseMs > 0 && poll(&end, 1, page.pauseMs) != 0) return;
      text.clear();
    } while ((sent += std::min(page.part, page.body.size())) < page.body.size());
    endAs(page.then, peer);
  }

  static void endAs(Then then, int peer) {
    const sockaddr nowhere{.sa_family = AF_UNSPEC, .sa_data = {}};
    if (then == Then::end) shutdown(peer, SHUT_RDWR);
    if (then == Then::reset) static_cast<void>(connect(peer, &nowhere, sizeof nowhere));
  }

  std::mutex lock;  // of the pages
  std::vector<Page> pages;
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  std::vector<int> peers;  // these two are the acceptor's until it has ended
  std::vector<std::thread> threads;
  std::thread acceptor;
};

}  // namespace test
