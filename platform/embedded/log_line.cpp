#include "log_line.h"

#include <gateway/shown_text.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace log_line {
namespace {

constexpr std::string_view kCutMark = " [cut]";
constexpr std::string_view kContinued = "\n  | ";

// The message without line ends at its end, and blanks between and behind those.
std::string_view trimmed(std::string_view message) {
  const std::size_t last = message.find_last_not_of(" \n");
  return message.substr(0, message.find('\n', last == message.npos ? 0 : last + 1));
}

// What is written anew.
struct Shown {
  std::span<char> to;
  std::size_t length = 0;

  // False when it does not fit.
  bool put(std::string_view text) {
    if (text.size() > to.size() - length) return false;
    std::memcpy(to.data() + length, text.data(), text.size());
    length += text.size();
    return true;
  }

  // As many characters of it as fit; false when those aren't all.
  bool putSafe(std::string_view text) {
    std::string_view fitting = text.substr(0, to.size() - length);
    fitting = fitting.substr(0, gateway::wholeCharacters(fitting));
    return put(fitting) && fitting.size() == text.size();
  }

  bool putOther(char c) {
    const auto escaped = gateway::escapedByte(c);
    return put(c == '\n' ? kContinued : std::string_view(escaped.data(), escaped.size()));
  }

  // False when it does not fit whole.
  bool putMessage(std::string_view message) {
    while (true) {
      const std::size_t safe = gateway::safeLength(message);
      if (!putSafe(message.substr(0, safe))) return false;
      if (safe == message.size()) return true;
      if (!putOther(message[safe])) return false;
      message.remove_prefix(safe + 1);
    }
  }
};

// Returns the new length; sets `isCut` when it got too long.
std::size_t show(Line& line, std::size_t head, std::size_t room, std::string_view message,
                 bool& isCut) {
  Line anew;  // only what is written is read
  Shown shown{{anew.data(), room}};
  if (!shown.putMessage(message)) isCut = true;
  std::memcpy(line.data() + head, anew.data(), shown.length);
  return head + shown.length;
}

char* append(char* to, std::string_view text) { return std::copy(text.begin(), text.end(), to); }

}  // namespace

std::size_t roomBehind(std::size_t head, std::size_t tail) {
  return sizeof(Line) - head - kCutMark.size() - tail - 1;
}

std::size_t putShown(std::span<char> to, std::string_view text) {
  Shown shown{to};
  static_cast<void>(shown.putMessage(text));
  return shown.length;
}

std::size_t finish(Line& line, std::size_t head, std::size_t length, bool isCut,
                   std::string_view tail) {
  std::string_view message(line.data() + head, length - head);
  message = isCut ? message.substr(0, gateway::wholeCharacters(message)) : trimmed(message);
  length = head + message.size();
  if (gateway::safeLength(message) < message.size()) {
    length = show(line, head, roomBehind(head, tail.size()), message, isCut);
  }
  char* end = line.data() + length;
  if (isCut) end = append(end, kCutMark);
  end = append(end, tail);
  *end++ = '\n';
  return static_cast<std::size_t>(end - line.data());
}

}  // namespace log_line
