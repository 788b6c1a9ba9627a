/// The text of one log record, safe to be shown: nothing in a message can be taken for another
/// record or for an order to the terminal. Any thread, also inside a signal handler.
#pragma once

#include <array>
#include <climits>
#include <cstddef>
#include <span>
#include <string_view>

namespace log_line {

/// What a pipe takes in one piece, so that records of several processes do not mix.
using Line = std::array<char, PIPE_BUF>;

/// How many bytes of a message fit between a head of `head` bytes and an end of `tail` bytes.
std::size_t roomBehind(std::size_t head, std::size_t tail);

/// Writes `text` as finish shows a message, as much of it as fits. Returns the bytes written.
std::size_t putShown(std::span<char> to, std::string_view text);

/// Finishes a line of a head and, from `head` up to `length`, a message. Afterwards
///
/// - every further line of the message begins with "  | ", which no record does;
/// - control characters and bytes that are no UTF-8 stand there as \x1b and the like;
/// - white space that only ends the message is gone, and one line end is the last byte;
/// - a message that is too long then, or of which `isCut` says that a part is missing already,
///   is cut between two characters and ends in " [cut]";
/// - `tail` follows, which is safe to be shown already.
///
/// Returns the new length.
std::size_t finish(Line& line, std::size_t head, std::size_t length, bool isCut,
                   std::string_view tail);

}  // namespace log_line
