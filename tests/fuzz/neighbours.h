/// The neighbours of the service as the fuzz targets need them, put in at link time: proxies that
/// record what is sent and answer from a script, a configuration store and a web server in memory,
/// and a watch over every file that is written. Everything above them is the real service.
#pragma once

#include <DProxy.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace fuzz {

/// A call to an executor or parser that has no answer yet.
struct PendingCall {
  std::string member;
  std::string argument;
  quillon::ReplyCallback callback;
  void* userData;
};

struct Published {
  std::string topic;
  std::string payload;
};

struct World {
  std::map<std::string, std::string> store;
  std::vector<std::string> files;
  /// Answers of executors and parsers in the order of their use. A text is the reply's argument.
  /// "" is no answer at all, "!" a call that can't even be sent, a leading 0x01 a reply whose
  /// argument is a number, and with a leading ">" the latest call is answered, not the oldest.
  /// When they are used up, every call succeeds.
  std::deque<std::string> replies;
  std::deque<PendingCall> pending;
  std::deque<std::function<void()>> tasks;  // of the loop
  std::vector<Published> published;
  std::vector<PendingCall> sent;  // to executors and parsers, without their callbacks
  bool parserSilent = false;      // a parser's answer is missing
  std::string writableRoot;       // where files may change; not watched while it is empty
};
World& world();

/// The web server's file of that URL, null when there is none.
const std::string* fileAt(const std::string& url);

/// A received message with one text; with a number instead where `text` begins with 0x01.
std::shared_ptr<quillon::DMessage> makeReply(const std::string& text);

/// Runs the loop's tasks and answers the calls until there are none.
void runLoop();

}  // namespace fuzz
