/// Command lines of the programs for people: "--name value", "--flag" and plain words. One table
/// says what a program is and takes; its help, its manual page and the completion of a shell are
/// made of that.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

struct OptionEntry {
  std::string_view name;   // without the two dashes
  std::string_view value;  // what to call its value in the help; empty for a flag
  std::string_view help;
};

struct CommandEntry {
  std::string_view words;  // the command and its arguments, "delete FOLDER"
  std::string_view help;
};

struct Program {
  std::string_view name;
  std::string_view summary;  // one line, without a full stop
  std::string_view about;    // for the manual page; an empty line parts paragraphs
  std::span<const CommandEntry> commands;
  std::span<const OptionEntry> options;
};

/// Answers a word that every program understands: "--help", "--version", and "--describe", which is
/// for scripts/manual and prints the table in lines of fields that tabs part. Returns whether
/// `word` is one of them. Any thread.
bool tellAbout(std::string_view word, const Program& program);

class Options {
 public:
  /// Reads the arguments of main(). Returns nothing when the program may go on, otherwise its exit
  /// status: 0 when only words of tellAbout() were asked, 2, with a message on standard error, for
  /// an option that the program does not have or whose value is missing.
  std::optional<int> parse(int argc, char** argv, const Program& program);

  bool has(const std::string& name) const { return values.contains(name); }

  /// The last value given for `name`, or `fallback`.
  std::string get(const std::string& name, const std::string& fallback = "") const;

  /// get() as a whole number; `fallback` when absent or not a number.
  int number(const std::string& name, int fallback) const;

  /// Every value given for `name`, in order.
  std::vector<std::string> all(const std::string& name) const;

  /// The arguments that are no options, in order.
  const std::vector<std::string>& words() const { return plain; }

 private:
  std::map<std::string, std::vector<std::string>> values;
  std::vector<std::string> plain;
};

/// Says on standard error what is wrong with a command line and where to read on. Returns the exit
/// status 2.
int usageError(const Program& program, const std::string& what);

/// `text` as a whole number, or `fallback` when it is none.
int toNumber(std::string_view text, int fallback);

/// The environment's `name`, or `fallback` when it is unset or empty.
std::string environment(const char* name, const std::string& fallback = "");

}  // namespace gateway
