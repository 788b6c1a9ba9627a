/// How an executor misbehaves on purpose.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace gateway {

struct Misbehaviour {
  enum class Kind { kCode, kSilent, kGarbage, kLate, kTwice, kDie };
  Kind kind = Kind::kCode;
  int value = 0;           // the code to answer, or the milliseconds to be late
  std::string resourceId;  // kCode: only for this resource; empty: for the call
};

/// Reads "METHOD=KIND", where KIND is "code:N", "code:N@RESOURCE", "late:MILLISECONDS", "silent",
/// "garbage", "twice" or "die", and adds it to `table` by method. Returns false for anything else.
bool addMisbehaviour(const std::string& text, std::map<std::string, Misbehaviour>& table);

}  // namespace gateway
