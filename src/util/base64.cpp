// The asserts stay in release builds: the code behind them relies on what they check.
#undef NDEBUG
#include "util/base64.h"

#include <endian.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>
#include <cstring>

namespace jobm {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The six bits that each character stands for; 0 for those outside the alphabet, '=' included.
constexpr std::array<unsigned char, 256> makeReverseTable() {
  std::array<unsigned char, 256> table{};
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<unsigned char>(i);
  }
  return table;
}
constexpr std::array<unsigned char, 256> kReverse = makeReverseTable();

using Byte = unsigned char;

// 0xFF for a value above `limit`, else 0.
Byte above(Byte value, Byte limit) { return value > limit ? Byte{0xFF} : Byte{0}; }

// 0 for a character of the alphabet or '=', else 0xFF.
Byte foreign(Byte c) {
  Byte is = above(static_cast<Byte>(c - 'A'), 25);
  is &= above(static_cast<Byte>(c - 'a'), 25);
  is &= above(static_cast<Byte>(c - '0'), 9);
  is &= above(static_cast<Byte>(c - '+'), 0);
  is &= above(static_cast<Byte>(c - '/'), 0);
  is &= above(static_cast<Byte>(c - '='), 0);
  return is;
}

// Two plain loops of constant length, which the compiler vectorises: a package has millions of
// characters.
constexpr std::size_t kChunk = 256;
bool isForeignIn(const char* chunk) {
  std::array<Byte, kChunk> found;
  for (std::size_t i = 0; i < kChunk; ++i) found[i] = foreign(static_cast<Byte>(chunk[i]));
  Byte any = 0;
  for (const Byte one : found) any |= one;
  return any != 0;
}

/// The 24 bits of the four characters at `group`.
std::uint32_t bitsOf(const char* group) {
  const auto bits = [group](int i) {
    return static_cast<std::uint32_t>(kReverse[static_cast<unsigned char>(group[i])]);
  };
  return bits(0) << 18 | bits(1) << 12 | bits(2) << 6 | bits(3);
}

}  // namespace

bool isBase64(std::string_view text) {
  if (text.size() % 4 != 0) return false;
  for (; text.size() >= kChunk; text.remove_prefix(kChunk)) {
    if (isForeignIn(text.data())) return false;
  }
  std::array<char, kChunk> rest;
  rest.fill('=');
  std::copy(text.begin(), text.end(), rest.begin());
  return !isForeignIn(rest.data());
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
  // Four bytes at once while they fit; the next group overwrites the fourth.
  for (; length >= 4; length -= 3, group += 4, out += 3) {
    const std::uint32_t bytes = htobe32(bitsOf(group) << 8);
    std::memcpy(out, &bytes, sizeof bytes);
  }
  for (; length >= 3; length -= 3, group += 4) {
    const std::uint32_t bits = bitsOf(group);
    *out++ = static_cast<unsigned char>(bits >> 16);
    *out++ = static_cast<unsigned char>(bits >> 8);
    *out++ = static_cast<unsigned char>(bits);
  }
  // Of a padded last group only the bytes that it encodes: the output buffer may end there.
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
