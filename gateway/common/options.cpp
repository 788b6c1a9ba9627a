#include "options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace gateway {
namespace {

void printHelp(const char* program, std::span<const OptionEntry> allowed) {
  std::fprintf(stderr, "usage: %s\n", program);
  for (const OptionEntry& entry : allowed) {
    const std::string left = "--" + std::string(entry.name) + " " + std::string(entry.value);
    std::fprintf(stderr, "  %-26s %s\n", left.c_str(), std::string(entry.help).c_str());
  }
}

}  // namespace

bool Options::parse(int argc, char** argv, std::span<const OptionEntry> allowed) {
  const std::span<char*> args(argv, static_cast<std::size_t>(argc));
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::string_view word = args[i];
    if (!word.starts_with("--")) {
      plain.emplace_back(word);
      continue;
    }
    const std::string_view name = word.substr(2);
    const auto entry = std::ranges::find(allowed, name, &OptionEntry::name);
    const bool valueMissing =
        entry != allowed.end() && !entry->value.empty() && i + 1 == args.size();
    if (entry == allowed.end() || valueMissing) {
      if (name != "help") std::fprintf(stderr, "bad option %s\n", args[i]);
      printHelp(args[0], allowed);
      return false;
    }
    values[std::string(name)].emplace_back(entry->value.empty() ? "" : args[++i]);
  }
  return true;
}

std::string Options::get(const std::string& name, const std::string& fallback) const {
  const auto found = values.find(name);
  return found == values.end() ? fallback : found->second.back();
}

int Options::number(const std::string& name, int fallback) const {
  return toNumber(get(name), fallback);
}

std::vector<std::string> Options::all(const std::string& name) const {
  const auto found = values.find(name);
  return found == values.end() ? std::vector<std::string>{} : found->second;
}

int toNumber(std::string_view text, int fallback) {
  int value = fallback;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() ? value : fallback;
}

std::string environment(const char* name, const std::string& fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : fallback;
}

}  // namespace gateway
