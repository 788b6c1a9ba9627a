#include "log_line.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace log_line {
namespace {

constexpr std::string_view kCutMark = " [cut]";
constexpr std::string_view kContinued = "\n  | ";

bool isPlain(char c) { return c >= ' ' && c <= '~'; }

// Whether eight bytes are all plain. Each of the three terms sets the highest bit of a byte that
// is not: above 0x7F, below a blank, 0x7F itself.
bool arePlain(const char* eight) {
  constexpr std::uint64_t kEach = 0x0101010101010101U;
  std::uint64_t word = 0;
  std::memcpy(&word, eight, sizeof word);
  return ((word | (word - kEach * ' ') | (word + kEach)) & (kEach << 7U)) == 0;
}

// How many bytes at the beginning are plain. Nearly all are, so it takes eight at a time.
std::size_t plainLength(std::string_view text) {
  std::size_t length = 0;
  while (length + 8 <= text.size() && arePlain(text.data() + length)) length += 8;
  while (length < text.size() && isPlain(text[length])) ++length;
  return length;
}

// How much of `text` is left without a UTF-8 character that is only begun at its end.
std::size_t wholeCharacters(std::string_view text) {
  std::size_t lead = text.size();
  for (int back = 0; back < 4 && lead > 0; ++back) {
    const auto byte = static_cast<unsigned char>(text[--lead]);
    if ((byte & 0xC0U) == 0x80U) continue;
    const std::size_t bytes = byte < 0xC0U ? 1 : byte < 0xE0U ? 2 : byte < 0xF0U ? 3 : 4;
    return lead + bytes > text.size() ? lead : text.size();
  }
  return text.size();
}

// The message without line ends at its end, and blanks between and behind those.
std::string_view trimmed(std::string_view message) {
  const std::size_t last = message.find_last_not_of(" \n");
  return message.substr(0, message.find('\n', last == message.npos ? 0 : last + 1));
}

// The length of the UTF-8 character of several bytes at the beginning of `text`; 0 when there is
// none, or one of the control characters from U+0080 to U+009F, which terminals obey too.
std::size_t characterLength(std::string_view text) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = at(0);
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  // Shortest forms only, no surrogates, nothing beyond U+10FFFF.
  const unsigned least = lead == 0xC2 || lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (at(1) < least || at(1) > most) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((at(i) & 0xC0U) != 0x80U) return 0;
  }
  return length;
}

std::array<char, 4> escaped(char c) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  return {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
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

  // As much of it as fits; false when that isn't all.
  bool putPlain(std::string_view text) {
    const std::string_view fitting = text.substr(0, to.size() - length);
    return put(fitting) && fitting.size() == text.size();
  }

  bool putOther(std::string_view character) {
    if (character == "\n") return put(kContinued);
    if (character.size() > 1) return put(character);
    const auto text = escaped(character[0]);
    return put({text.data(), text.size()});
  }

  // False when it does not fit whole.
  bool putMessage(std::string_view message) {
    while (true) {
      const std::size_t plain = plainLength(message);
      if (!putPlain(message.substr(0, plain))) return false;
      message.remove_prefix(plain);
      if (message.empty()) return true;
      const std::size_t taken = std::max<std::size_t>(characterLength(message), 1);
      if (!putOther(message.substr(0, taken))) return false;
      message.remove_prefix(taken);
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
  message = isCut ? message.substr(0, wholeCharacters(message)) : trimmed(message);
  length = head + message.size();
  if (plainLength(message) < message.size()) {
    length = show(line, head, roomBehind(head, tail.size()), message, isCut);
  }
  char* end = line.data() + length;
  if (isCut) end = append(end, kCutMark);
  end = append(end, tail);
  *end++ = '\n';
  return static_cast<std::size_t>(end - line.data());
}

}  // namespace log_line
