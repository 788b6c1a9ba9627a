/// A web server on loopback that misbehaves as told.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

enum class Fault {
  none,
  cutShort,  // the connection ends in the middle of the body
  stall,     // half the body comes, and nothing more until the server goes
  trickle,   // a byte comes every 20 s
  slow,      // 100 bytes come every 5 s
};

struct Page {
  int status = 200;
  std::string body{};
  std::string location{};  // of a redirect
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

  /// Returns the URL at which `page` is from now on.
  std::string serve(Page page) {
    const std::lock_guard guard(lock);
    pages.push_back(std::move(page));
    return "http://127.0.0.1:" + std::to_string(port) + "/" + std::to_string(pages.size() - 1);
  }

 private:
  Page pageFor(const std::string& path) {
    const std::lock_guard guard(lock);
    return pages.at(std::stoul(path.substr(1)));
  }

  void answer(const Page& page, httplib::Response& response) const {
    response.status = page.status;
    if (!page.location.empty()) response.set_header("Location", page.location);
    if (page.fault == Fault::none) return response.set_content(page.body, "text/plain");
    if (page.fault == Fault::trickle) return give(page.body, 1, std::chrono::seconds(20), response);
    if (page.fault == Fault::slow) return give(page.body, 100, std::chrono::seconds(5), response);
    const std::size_t half = page.body.size() / 2;
    const auto giveHalf = [this, page, half](std::size_t offset, auto, httplib::DataSink& sink) {
      if (offset < half) return sink.write(page.body.data() + offset, half - offset);
      if (page.fault == Fault::stall) ended.wait();
      return false;  // ends the connection
    };
    response.set_content_provider(page.body.size(), "text/plain", giveHalf);
  }

  // A little at a time, with a pause behind it.
  void give(const std::string& body, std::size_t bytes, std::chrono::seconds pause,
            httplib::Response& response) const {
    const auto next = [=, this](std::size_t offset, auto, httplib::DataSink& sink) {
      const std::string part = body.substr(offset, bytes);
      return sink.write(part.data(), part.size()) &&
             ended.wait_for(pause) == std::future_status::timeout;
    };
    response.set_content_provider(body.size(), "text/plain", next);
  }

  std::mutex lock;  // of the pages
  std::vector<Page> pages;
  std::promise<void> ending;
  const std::shared_future<void> ended = ending.get_future().share();
  httplib::Server server;
  const int port = server.bind_to_any_port("127.0.0.1");
  std::thread thread;
};

}  // namespace test
