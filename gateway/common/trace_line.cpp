#include "trace_line.h"

#include <gateway/shown_text.h>

#include <algorithm>

namespace gateway {
namespace {

constexpr std::size_t kTimeWidth = 9;
constexpr std::size_t kNameWidth = 17;
constexpr std::size_t kLongestName = 30;
constexpr std::size_t kLongestText = 300;

// Texts of others: they must not move a terminal's cursor.
std::string cut(std::string_view text, std::size_t longest) {
  text = text.substr(0, longest);
  return shownText(text.substr(0, wholeCharacters(text)));
}

std::string column(std::string_view name) {
  std::string shown = cut(name, kLongestName);
  shown.resize(std::max(shown.size(), kNameWidth), ' ');
  return shown;
}

}  // namespace

std::string traceLine(std::string_view time, std::string_view from, std::string_view to,
                      std::string_view what) {
  std::string line(time.size() < kTimeWidth ? kTimeWidth - time.size() : 0, ' ');
  line.append(time).append("  ");
  line.append(column(from)).append(" -> ").append(column(to)).append("  ");
  line.append(cut(what, kLongestText));
  if (what.size() > kLongestText) line += " ...";
  return line + '\n';
}

}  // namespace gateway
