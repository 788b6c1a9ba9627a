/// The page over HTTP, for browsers of this machine.
#pragma once

#include <httplib.h>

#include <string>

#include "commands.h"
#include "feed.h"

namespace gateway {

class PageServer {
 public:
  PageServer(Feed& feed, Places places);

  /// Listens on a port of the loopback interface, 0: a free one. Returns the port, -1 if it is not
  /// to be had.
  int bindTo(int port);

  /// Serves for ever; false when that can't be.
  bool run();

 private:
  void addReading();
  void addChanging();
  bool isChangePermitted(const httplib::Request& request) const;
  void sendPage(httplib::Response& response) const;
  void sendRows(const httplib::Request& request, httplib::Response& response) const;
  void sendPhases(const httplib::Request& request, httplib::Response& response) const;
  void sendEvents(const httplib::Request& request, httplib::Response& response);

  Feed& feed;
  const Places places;
  const std::string token;
  httplib::Server server;
};

}  // namespace gateway
