/// What the fuzz targets share: the reading of an input, a gateway that starts anew for each one,
/// and the promises that are checked after it. The neighbours behind it (bus, configuration store,
/// web server) are in neighbours.h.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// Ends the process as a finding unless `holds`.
void require(bool holds, const char* promise);

/// An input is a text of sections, parted by lines that say "---". The first one belongs to the
/// target. Of the others, one that begins with "=" is a file that the web server has under
/// "m:0", "m:1", ...; one that begins with "?" belongs to the target, too; all the rest are what
/// the executors and parsers answer, one after the other (see neighbours.h).
struct Input {
  std::string head;
  std::vector<std::string> more;  // the sections with "?", without it

  /// Reads the input and starts a gateway with those files and answers.
  Input(const std::uint8_t* data, std::size_t size);
  /// Ends the watch over the files: what follows is written by the fuzzer.
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
};

/// `text` with "$m0", "$m1", ... replaced by the MD5 sums of the web server's files.
std::string withSums(std::string text);

/// `text` with every `from` replaced by `to`.
std::string replaced(std::string text, std::string_view from, std::string_view to);

/// `text` up to its first zero byte, which is how far C and the bus read it.
std::string upToZero(const std::string& text);

/// `text` as JSON, null for anything else.
Json::Value parsed(const std::string& text);

/// A text as it arrives after a way through JSON: invalid sequences have been replaced.
std::string overTheWire(const std::string& text);

/// Registers executors and parsers of all kinds beside the built-in ones: those that watch several
/// types, one whose address can't be called, one whose job list can't be stored.
void addNeighbours();

/// Forgets every registration, as a restart does; the configuration store stays.
void forgetRegistrations();

/// Answers everything that is outstanding, then checks that nothing is left and that the next job
/// is carried out as ever.
void settle();

/// How many complete reports there are for a deployment, and their details.
std::size_t countReports(const std::string& deployId, Json::Value& details);

}  // namespace fuzz
