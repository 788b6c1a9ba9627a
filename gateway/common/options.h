/// Command lines of the local gateway's programs: "--name value", "--flag" and plain words.
#pragma once

#include <map>
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

class Options {
 public:
  /// Reads the arguments of main(). Returns false, with a message and the list of options on
  /// standard error, for an option that `allowed` does not name or whose value is missing. "--help"
  /// does so too.
  bool parse(int argc, char** argv, std::span<const OptionEntry> allowed);

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

/// `text` as a whole number, or `fallback` when it is none.
int toNumber(std::string_view text, int fallback);

/// The environment's `name`, or `fallback` when it is unset or empty.
std::string environment(const char* name, const std::string& fallback = "");

}  // namespace gateway
