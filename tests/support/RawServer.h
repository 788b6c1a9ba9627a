/// A web server on loopback that counts its connections and may spoil those that it keeps.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace test {

/// What it does with a connection over which it has answered.
enum class Then { keep, end, endSending, reset };

struct Manners {
  std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfile";
  Then then = Then::keep;
  /// Sent in place of the second answer of a connection, which is ended then.
  std::optional<std::string> lastWord{};
};

/// Answers every request alike.
class RawServer {
 public:
  /// At any port, or at that of a server that is gone.
  explicit RawServer(Manners kind, int port = 0)
      : manners(std::move(kind)), listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
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
  ~RawServer() {
    shutdown(listener, SHUT_RDWR);
    acceptor.join();
    for (const int peer : peers) shutdown(peer, SHUT_RDWR);
    for (std::thread& thread : threads) thread.join();
    for (const int peer : peers) close(peer);
    close(listener);
  }
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  int port() const { return ntohs(address.sin_port); }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port()) + "/file"; }

  std::atomic<int> connections = 0;

 private:
  void acceptAll() {
    while (true) {
      const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      if (peer < 0) return;
      ++connections;
      peers.push_back(peer);
      threads.emplace_back([this, peer] { serve(peer); });
    }
  }

  static bool readRequest(int peer) {
    char byte = 0;
    std::string request;
    while (!request.ends_with("\r\n\r\n")) {
      if (recv(peer, &byte, 1, 0) != 1) return false;
      request += byte;
    }
    return true;
  }

  void serve(int peer) const {
    for (bool isFirst = true; readRequest(peer); isFirst = false) {
      const bool isLast = !isFirst && manners.lastWord;
      const std::string& word = isLast ? *manners.lastWord : manners.answer;
      send(peer, word.data(), word.size(), MSG_NOSIGNAL);
      endAs(isLast ? Then::end : manners.then, peer);
    }
  }

  static void endAs(Then then, int peer) {
    const sockaddr nowhere{.sa_family = AF_UNSPEC, .sa_data = {}};
    if (then == Then::end) shutdown(peer, SHUT_RDWR);
    if (then == Then::endSending) shutdown(peer, SHUT_WR);
    if (then == Then::reset) static_cast<void>(connect(peer, &nowhere, sizeof nowhere));
  }

  const Manners manners;
  const int listener;
  sockaddr_in address{};
  std::vector<int> peers;  // these two are the acceptor's until it has ended
  std::vector<std::thread> threads;
  std::thread acceptor;
};

}  // namespace test
