// What a program tells of itself.

#include <cstdio>
#include <initializer_list>

#include "options.h"

namespace gateway {
namespace {

// Every program has these.
constexpr OptionEntry kCommon[] = {
    {"help", "", "print this list"},
    {"version", "", "print the version"},
};

constexpr std::size_t kColumn = 28;

std::string leftOf(const OptionEntry& option) {
  std::string left = "--" + std::string(option.name);
  if (!option.value.empty()) left.append(" ").append(option.value);
  return left;
}

void printEntry(const std::string& left, std::string_view help) {
  std::string line = "  " + left;
  // A left side that is too long for its column gets a line of its own.
  if (line.size() + 2 > kColumn)
    line += '\n' + std::string(kColumn, ' ');
  else
    line.resize(kColumn, ' ');
  std::printf("%s%s\n", line.c_str(), std::string(help).c_str());
}

void printHelp(const Program& program) {
  const char* words = program.commands.empty() ? "" : " COMMAND";
  std::printf("usage: %s%s [OPTION...]\n%s\n", program.name.data(), words, program.summary.data());
  if (!program.commands.empty()) std::puts("\ncommands:");
  for (const CommandEntry& entry : program.commands) {
    printEntry(std::string(entry.words), entry.help);
  }
  std::puts("\noptions:");
  for (const auto& options : {program.options, std::span<const OptionEntry>(kCommon)}) {
    for (const OptionEntry& entry : options) printEntry(leftOf(entry), entry.help);
  }
}

void printFields(std::initializer_list<std::string_view> fields) {
  std::string line;
  for (const std::string_view field : fields) {
    if (!line.empty()) line += '\t';
    for (const char c : field) line += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  std::puts(line.c_str());
}

void printTable(const Program& program) {
  printFields({"name", program.name});
  printFields({"summary", program.summary});
  printFields({"about", program.about});
  for (const CommandEntry& entry : program.commands) {
    printFields({"command", entry.words, entry.help});
  }
  for (const auto& options : {program.options, std::span<const OptionEntry>(kCommon)}) {
    for (const OptionEntry& entry : options) {
      printFields({"option", entry.name, entry.value, entry.help});
    }
  }
}

}  // namespace

bool tellAbout(std::string_view word, const Program& program) {
  if (word == "--help") {
    printHelp(program);
  } else if (word == "--version") {
    std::printf("%s %s\n", program.name.data(), JOBM_VERSION);
  } else if (word == "--describe") {
    printTable(program);
  } else {
    return false;
  }
  return true;
}

int usageError(const Program& program, const std::string& what) {
  std::fprintf(stderr, "%s: %s; see %s --help\n", program.name.data(), what.c_str(),
               program.name.data());
  return 2;
}

}  // namespace gateway
