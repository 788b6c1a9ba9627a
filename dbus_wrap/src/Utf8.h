#pragma once

#include <string>
#include <string_view>

namespace quillon {

/// `text` with every invalid sequence (overlong, surrogate, beyond U+10FFFF, cut short, stray byte)
/// replaced by U+FFFD, one for each byte sequence that can't go on. Any thread.
std::string validUtf8(std::string_view text);

}  // namespace quillon
