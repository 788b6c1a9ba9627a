#include "Utf8.h"

namespace quillon {
namespace {

struct Lead {
  std::size_t length;  // of the whole sequence, 0 for a byte that starts none
  unsigned char low =
      0x80;  // the second byte's range, which rules out overlong forms and surrogates
  unsigned char high = 0xBF;
};

Lead leadOf(unsigned char byte) {
  if (byte < 0x80) return {1};
  if (byte >= 0xC2 && byte <= 0xDF) return {2};
  if (byte == 0xE0) return {3, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {3};
  if (byte == 0xF0) return {4, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return {4};
  if (byte == 0xF4) return {4, 0x80, 0x8F};
  return {0};
}

// How many bytes from the start of `text` belong to its first sequence, and whether that one is
// whole.
std::size_t scan(std::string_view text, bool& whole) {
  const Lead lead = leadOf(static_cast<unsigned char>(text[0]));
  whole = false;
  if (lead.length == 0) return 1;
  std::size_t at = 1;
  for (; at < lead.length && at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const unsigned char low = at == 1 ? lead.low : 0x80;
    const unsigned char high = at == 1 ? lead.high : 0xBF;
    if (byte < low || byte > high) return at;
  }
  whole = at == lead.length;
  return at;
}

}  // namespace

std::string validUtf8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    bool whole = false;
    const std::size_t length = scan(text, whole);
    if (whole) {
      result.append(text.substr(0, length));
    } else {
      result.append("\xEF\xBF\xBD");
    }
    text.remove_prefix(length);
  }
  return result;
}

}  // namespace quillon
