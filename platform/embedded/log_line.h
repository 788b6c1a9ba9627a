/// The text of one log record, safe to be shown: nothing in a message can be taken for another
/// record or for an order to the terminal. Any thread, also inside a signal handler.
#pragma once

#include <array>
#include <climits>
#include <cstddef>

namespace log_line {

/// What a pipe takes in one piece, so that records of several processes do not mix.
using Line = std::array<char, PIPE_BUF>;

/// How many bytes of a message fit behind a head of `head` bytes.
std::size_t roomBehind(std::size_t head);

/// Finishes a line of a head and, from `head` up to `length`, a message. Afterwards
///
/// - every further line of the message begins with "  | ", which no record does;
/// - control characters and bytes that are no UTF-8 stand there as \x1b and the like;
/// - white space that only ends the message is gone, and one line end is the last byte;
/// - a message that is too long then, or of which `isCut` says that a part is missing already,
///   is cut between two characters and ends in " [cut]".
///
/// Returns the new length.
std::size_t finish(Line& line, std::size_t head, std::size_t length, bool isCut);

}  // namespace log_line
