/// Base64 with the standard alphabet. Every function may be called from any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace jobm {

/// True when the length of `text` is a multiple of 4 and every character is of the alphabet or '='.
bool isBase64(std::string_view text);

/// Decodes `input_len` characters (a multiple of 4, else the process aborts) into `output`, which
/// holds at least three quarters of that, and sets *output_len. Both may be the same buffer.
/// Returns output.
unsigned char* base64_decode(const char* input, std::size_t input_len, unsigned char* output,
                             std::size_t* output_len);

/// Encodes `input_len` bytes (at least one) into `output`, which holds at least 4 characters for
/// every 3 bytes begun, and sets *output_len. Nothing is terminated. Returns output. Only tests
/// call this.
char* base64_encode(const unsigned char* input, std::size_t input_len, char* output,
                    std::size_t* output_len);

}  // namespace jobm
