// The two requirements end the process in every build type: what follows trusts them.
#undef NDEBUG
#include "base64.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>

namespace jobm {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The six bits of every character; those outside the alphabet, '=' among them, count as 0.
constexpr std::array<unsigned char, 256> makeReverseTable() {
  std::array<unsigned char, 256> table{};
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<unsigned char>(i);
  }
  return table;
}
constexpr std::array<unsigned char, 256> kReverse = makeReverseTable();

constexpr std::array<bool, 256> makeMemberTable() {
  std::array<bool, 256> table{};
  for (const char character : kAlphabet) table[static_cast<unsigned char>(character)] = true;
  table['='] = true;
  return table;
}
constexpr std::array<bool, 256> kMember = makeMemberTable();

/// The 24 bits of the four characters at `group`.
std::uint32_t bitsOf(const char* group) {
  std::uint32_t bits = 0;
  for (int i = 0; i < 4; ++i) bits = bits << 6 | kReverse[static_cast<unsigned char>(group[i])];
  return bits;
}

}  // namespace

bool isBase64(std::string_view text) {
  return text.size() % 4 == 0 && std::all_of(text.begin(), text.end(), [](char character) {
           return kMember[static_cast<unsigned char>(character)];
         });
}

unsigned char* base64_decode(const char* input, std::size_t input_len, unsigned char* output,
                             std::size_t* output_len) {
  assert(input_len % 4 == 0 && output);
  std::size_t length = input_len / 4 * 3;
  if (input_len > 0 && input[input_len - 1] == '=') --length;
  if (input_len > 0 && input[input_len - 2] == '=') --length;
  *output_len = length;

  const char* group = input;
  unsigned char* out = output;
  for (; length >= 3; length -= 3, group += 4) {
    const std::uint32_t bits = bitsOf(group);
    *out++ = static_cast<unsigned char>(bits >> 16);
    *out++ = static_cast<unsigned char>(bits >> 8);
    *out++ = static_cast<unsigned char>(bits);
  }
  // Of a padded last group only what belongs to the text: the output may end right behind it.
  if (length > 0) {
    const std::uint32_t bits = bitsOf(group);
    *out++ = static_cast<unsigned char>(bits >> 16);
    if (length > 1) *out = static_cast<unsigned char>(bits >> 8);
  }
  return output;
}

char* base64_encode(const unsigned char* input, std::size_t input_len, char* output,
                    std::size_t* output_len) {
  assert(input && input_len && output);
  char* out = output;
  for (std::size_t i = 0; i < input_len; i += 3) {
    const std::size_t bytes = std::min<std::size_t>(input_len - i, 3);
    std::uint32_t bits = static_cast<std::uint32_t>(input[i]) << 16;
    if (bytes > 1) bits |= static_cast<std::uint32_t>(input[i + 1]) << 8;
    if (bytes > 2) bits |= input[i + 2];
    *out++ = kAlphabet[bits >> 18];
    *out++ = kAlphabet[bits >> 12 & 63];
    *out++ = bytes > 1 ? kAlphabet[bits >> 6 & 63] : '=';
    *out++ = bytes > 2 ? kAlphabet[bits & 63] : '=';
  }
  *output_len = static_cast<std::size_t>(out - output);
  return output;
}

}  // namespace jobm
