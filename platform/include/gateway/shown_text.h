/// Texts of others, safe to be shown: nothing in them is an order to the terminal. For any platform
/// library. Any thread; all but shownText also inside a signal handler.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace gateway {

/// How many bytes at the beginning of `text` are printable ASCII. Nearly all are, so it takes eight
/// at a time.
inline std::size_t plainLength(std::string_view text) {
  constexpr std::uint64_t kEach = 0x0101010101010101U;
  std::size_t length = 0;
  for (; length + 8 <= text.size(); length += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + length, sizeof word);
    // Each of the three terms sets the highest bit of a byte that is not: above 0x7F, below a
    // blank, 0x7F itself.
    if (((word | (word - kEach * ' ') | (word + kEach)) & (kEach << 7U)) != 0) break;
  }
  while (length < text.size() && text[length] >= ' ' && text[length] <= '~') ++length;
  return length;
}

/// The length of the UTF-8 character of several bytes at the beginning of `text`, which is not
/// empty; 0 when there is none, or one of the control characters from U+0080 to U+009F, which
/// terminals obey too.
inline std::size_t characterLength(std::string_view text) {
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

/// How many bytes at the beginning of `text` may be shown as they are. What comes then is a byte of
/// a control character or no UTF-8, for escapedByte.
inline std::size_t safeLength(std::string_view text) {
  std::size_t length = 0;
  while (true) {
    length += plainLength(text.substr(length));
    const std::size_t more = length == text.size() ? 0 : characterLength(text.substr(length));
    if (more == 0) return length;
    length += more;
  }
}

/// How many bytes of `text` are left without a UTF-8 character that is only begun at its end.
inline std::size_t wholeCharacters(std::string_view text) {
  std::size_t lead = text.size();
  for (int back = 0; back < 4 && lead > 0; ++back) {
    const auto byte = static_cast<unsigned char>(text[--lead]);
    if ((byte & 0xC0U) == 0x80U) continue;
    const std::size_t bytes = byte < 0xC0U ? 1 : byte < 0xE0U ? 2 : byte < 0xF0U ? 3 : 4;
    return lead + bytes > text.size() ? lead : text.size();
  }
  return text.size();
}

/// "\x1b" and the like.
inline std::array<char, 4> escapedByte(char c) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  return {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
}

/// All of `text` in one line: a blank for a line end, escapedByte for what may not be shown.
inline std::string shownText(std::string_view text) {
  std::string shown;
  while (true) {
    const std::size_t safe = safeLength(text);
    shown.append(text.substr(0, safe));
    if (safe == text.size()) return shown;
    const auto escaped = escapedByte(text[safe]);
    shown.append(text[safe] == '\n' ? " " : std::string_view(escaped.data(), escaped.size()));
    text.remove_prefix(safe + 1);
  }
}

}  // namespace gateway
