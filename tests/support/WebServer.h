/// A web server on loopback that misbehaves as told. Written on plain sockets: a library would mend
/// what is meant to be wrong.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test {

enum class Fault {
  none,
  noLength,  // the end of the body is the end of the connection
  cutShort,  // the connection ends in the middle of the body
  slow,      // the body comes in twenty pieces, 10 ms apart
  stall,     // half the body comes, and nothing more until the client or the server goes
  noAnswer,  // the connection ends without a byte
  garbage,   // what is answered isn't HTTP
};

struct Page {
  int status = 200;
  std::string body{};
  std::string headers{};  // further ones, each with its line end
  Fault fault = Fault::none;
};

/// `size` bytes of which every eight tell their own offset, so that a lost, doubled or moved piece
/// never looks like the original.
std::string patternBody(std::size_t size);

class WebServer {
 public:
  /// Listens. Aborts the test if that fails.
  WebServer();
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  /// Answers the n-th request for `path` with the n-th page, all later ones with the last.
  void serve(const std::string& path, std::vector<Page> pages);

  /// How many requests for `path` have come. Paths that nobody serves are answered with 404.
  std::size_t requests(const std::string& path) const;

  std::string url(const std::string& path) const;

 private:
  void accept();
  void answer(int client);
  Page pageFor(const std::string& path);
  bool goesOn(int client, int milliseconds) const;
  void send(int client, const Page& page) const;

  mutable std::mutex lock;
  std::map<std::string, std::vector<Page>> pages;
  std::map<std::string, std::size_t> counts;
  std::vector<std::thread> answering;
  int socket;
  int stopping;  // an eventfd, readable from the end's beginning on
  std::thread accepting;
};

}  // namespace test
