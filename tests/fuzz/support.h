/// What the fuzz targets share. Each is the real service on neighbours of its own: behind the
/// proxies' hook, which records what is sent and answers from a script; a platform library whose
/// configuration store is in memory; and, put in at link time, a web server in memory and a watch
/// over every file that is changed.
#pragma once

#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dbus_wrap/DProxy.h"
#include "support/parsed.h"

namespace fuzz {

/// What is done with one input: the only function of each target.
void check(const std::string& input);

struct World {
  std::map<std::string, std::string> store;
  std::map<std::string, std::string> files;  // of the web server, by URL
  /// Answers of executors and parsers to the calls in their order. A text is the reply's argument.
  /// "" is no answer at all, "!" a call that can't even be sent, a leading 0x01 a reply whose
  /// argument is a number, and one with a leading ">" overtakes the others. When they are used up,
  /// every call succeeds.
  std::deque<std::string> replies;
  std::deque<std::function<void()>> tasks;                     // answers on their way
  std::vector<std::pair<std::string, Json::Value>> published;  // with their topics
  bool parserSilent = false;                                   // a parser's answer is missing
  bool deletionSent = false;                                   // to an executor
  std::string writableRoot;  // where files may change; not watched while it is empty
};
inline World world;

/// Ends the process as a finding unless `holds`.
void require(bool holds, const char* promise);

/// Starts a gateway for an input and returns the events that the target is to make happen. The
/// input is a text of sections, parted by lines that say "---". An event is the first one, and each
/// that begins with "?". "E" and "P" begin the registration of an executor or parser, "=" a file
/// that the web server has under "m:0", "m:1", ... "m:9"; in events "$m:0" stands for its MD5 sum.
/// The rest are what the executors and parsers answer.
std::vector<std::string> start(std::string input);

/// Forgets every registration, then restores what the configuration store has.
void restart();

/// Runs the loop's tasks, answers of calls among them, until there are none.
void runLoop();

/// Runs the loop, then checks that nothing is left and that the next job is carried out as ever.
void settle();

/// The complete reports of a deployment: which resources they name.
std::vector<std::set<std::string>> reportsOf(const std::string& deployId);

/// A received message with one text, see World::replies.
std::shared_ptr<quillon::DMessage> makeReply(const std::string& text);

/// Takes what is before the first `end` off `text`, all of it when there is none.
std::string take(std::string& text, std::string_view end);

/// Replaces every `from` in `text` by `to`.
void substitute(std::string& text, std::string_view from, const std::string& to);

using test::parsed;

}  // namespace fuzz
