#include "trace_line.h"

#include <algorithm>

namespace gateway {
namespace {

constexpr std::size_t kTimeWidth = 9;
constexpr std::size_t kNameWidth = 17;
constexpr std::size_t kLongestName = 30;
constexpr std::size_t kLongestText = 300;

std::string padded(std::string_view text, std::size_t width) {
  std::string column(text);
  column.resize(std::max(column.size(), width), ' ');
  return column;
}

bool isControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }

}  // namespace

std::string traceLine(std::string_view time, std::string_view from, std::string_view to,
                      std::string_view what) {
  std::string line(time.size() < kTimeWidth ? kTimeWidth - time.size() : 0, ' ');
  line.append(time).append("  ");
  line.append(padded(from.substr(0, kLongestName), kNameWidth)).append(" -> ");
  line.append(padded(to.substr(0, kLongestName), kNameWidth)).append("  ");
  line.append(what.substr(0, kLongestText));
  // Texts of others must not move a terminal's cursor.
  std::ranges::replace_if(line, isControl, ' ');
  if (what.size() > kLongestText) line += " ...";
  return line + '\n';
}

}  // namespace gateway
