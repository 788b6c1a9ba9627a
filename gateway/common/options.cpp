#include "options.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace gateway {
std::optional<int> Options::parse(int argc, char** argv, const Program& program) {
  const std::span<char*> args(argv, static_cast<std::size_t>(argc));
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::string_view word = args[i];
    if (!word.starts_with("--")) {
      plain.emplace_back(word);
      continue;
    }
    if (tellAbout(word, program)) return 0;
    const std::string_view name = word.substr(2);
    const auto entry = std::ranges::find(program.options, name, &OptionEntry::name);
    if (entry == program.options.end()) {
      return usageError(program, "bad option " + std::string(word));
    }
    const bool isFlag = entry->value.empty();
    if (!isFlag && i + 1 == args.size()) {
      return usageError(program, std::string(word) + " needs a value");
    }
    values[std::string(name)].emplace_back(isFlag ? "" : args[++i]);
  }
  return {};
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
