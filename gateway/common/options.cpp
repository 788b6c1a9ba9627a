#include "options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace gateway {
namespace {

void printHelp(const char* program, std::span<const OptionSpec> specs) {
  std::fprintf(stderr, "usage: %s\n", program);
  for (const OptionSpec& spec : specs) {
    const std::string left = "--" + std::string(spec.name) + " " + std::string(spec.value);
    std::fprintf(stderr, "  %-26s %s\n", left.c_str(), std::string(spec.help).c_str());
  }
}

}  // namespace

bool Options::parse(int argc, char** argv, std::span<const OptionSpec> specs) {
  const std::span<char*> args(argv, static_cast<std::size_t>(argc));
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::string_view word = args[i];
    if (!word.starts_with("--")) {
      plain.emplace_back(word);
      continue;
    }
    const std::string_view name = word.substr(2);
    const auto spec = std::ranges::find(specs, name, &OptionSpec::name);
    const bool valueMissing = spec != specs.end() && !spec->value.empty() && i + 1 == args.size();
    if (spec == specs.end() || valueMissing) {
      if (name != "help") std::fprintf(stderr, "bad option %s\n", args[i]);
      printHelp(args[0], specs);
      return false;
    }
    values[std::string(name)].emplace_back(spec->value.empty() ? "" : args[++i]);
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
