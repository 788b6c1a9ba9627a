#include "misbehaviour.h"

#include "common/options.h"

namespace gateway {

bool addMisbehaviour(const std::string& text, std::map<std::string, Misbehaviour>& table) {
  static const std::map<std::string, Misbehaviour::Kind> kinds = {
      {"code", Misbehaviour::Kind::kCode},       {"silent", Misbehaviour::Kind::kSilent},
      {"garbage", Misbehaviour::Kind::kGarbage}, {"late", Misbehaviour::Kind::kLate},
      {"twice", Misbehaviour::Kind::kTwice},     {"die", Misbehaviour::Kind::kDie}};
  const auto equals = text.find('=');
  if (equals == std::string::npos) return false;
  std::string how = text.substr(equals + 1);
  Misbehaviour result;
  if (const auto at = how.find('@'); at != std::string::npos) {
    result.resourceId = how.substr(at + 1);
    how.resize(at);
  }
  const auto colon = how.find(':');
  const auto kind = kinds.find(how.substr(0, colon));
  if (kind == kinds.end()) return false;
  result.kind = kind->second;
  const bool takesNumber =
      result.kind == Misbehaviour::Kind::kCode || result.kind == Misbehaviour::Kind::kLate;
  if (takesNumber != (colon != std::string::npos)) return false;
  if (takesNumber) result.value = toNumber(how.substr(colon + 1), -1);
  if (takesNumber && result.value < 0) return false;
  table[text.substr(0, equals)] = result;
  return true;
}

}  // namespace gateway
