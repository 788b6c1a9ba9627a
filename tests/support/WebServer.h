/// A web server on loopback that misbehaves as told.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <cstddef>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

enum class Fault {
  none,
  noLength,  // the end of the body is the end of the connection
  cutShort,  // the connection ends in the middle of the body
  stall,     // half the body comes, and nothing more until the server goes
};

struct Page {
  int status = 200;
  std::string body{};
  std::string headers{};  // one further, "Name: value\r\n"
  Fault fault = Fault::none;
};

class WebServer {
 public:
  WebServer() {
    EXPECT_GT(port, 0);
    server.set_keep_alive_max_count(1);
    server.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
      answer(pageFor(request.path), response);
    });
    thread = std::thread([this] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::yield();  // before, stop() is of no effect
  }
  ~WebServer() {
    ending.set_value();
    server.stop();
    thread.join();
  }
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  /// Answers the n-th request for `path` with the n-th page, all later ones with the last. Paths
  /// that nobody serves are answered with 404.
  void serve(const std::string& path, std::vector<Page> pages) {
    const std::lock_guard guard(lock);
    served[path] = {std::move(pages), 0};
  }

  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port) + path;
  }

 private:
  struct Served {
    std::vector<Page> pages;
    std::size_t requests = 0;
  };

  Page pageFor(const std::string& path) {
    const std::lock_guard guard(lock);
    Served& now = served[path];
    const std::size_t count = now.requests++;
    if (now.pages.empty()) return {.status = 404, .body = "no page"};
    return now.pages[std::min(count, now.pages.size() - 1)];
  }

  void answer(const Page& page, httplib::Response& response) const {
    response.status = page.status;
    if (const std::size_t colon = page.headers.find(':'); colon != std::string::npos) {
      const std::size_t value = colon + 2;
      response.set_header(page.headers.substr(0, colon),
                          page.headers.substr(value, page.headers.find('\r') - value));
    }
    if (page.fault == Fault::none) return response.set_content(page.body, "text/plain");
    const bool whole = page.fault == Fault::noLength;
    const std::size_t size = whole ? page.body.size() : page.body.size() / 2;
    const auto give = [this, page, size](std::size_t offset, httplib::DataSink& sink) {
      if (offset < size) return sink.write(page.body.data() + offset, size - offset);
      if (page.fault == Fault::stall) ended.wait();
      return false;  // ends the connection
    };
    if (whole) return response.set_content_provider("text/plain", give);
    response.set_content_provider(
        page.body.size(), "text/plain",
        [give](std::size_t offset, auto, httplib::DataSink& sink) { return give(offset, sink); });
  }

  std::mutex lock;  // of what is served
  std::map<std::string, Served> served;
  std::promise<void> ending;
  const std::shared_future<void> ended = ending.get_future().share();
  httplib::Server server;
  const int port = server.bind_to_any_port("127.0.0.1");
  std::thread thread;
};

}  // namespace test
