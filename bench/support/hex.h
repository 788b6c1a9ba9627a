#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

namespace bench {

/// Two lower-case digits a byte.
inline std::string hexOf(std::string_view bytes) {
  std::string hex;
  for (const char byte : bytes) {
    std::array<char, 3> two{};
    std::snprintf(two.data(), two.size(), "%02x", static_cast<unsigned char>(byte));
    hex += two.data();
  }
  return hex;
}

}  // namespace bench
