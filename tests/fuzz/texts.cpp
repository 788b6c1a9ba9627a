// Texts and names on their way into bus messages. Lines are names; all of it is one text.
#include <DMessage.h>
#include <Utf8.h>

#include <array>

#include "support.h"

namespace {

using quillon::DMessage;

void checkText(const std::string& text) {
  const std::string_view upToZero = text.c_str();
  const std::string valid = quillon::validUtf8(upToZero);
  fuzz::require(valid == upToZero || !dbus_validate_utf8(text.c_str(), nullptr),
                "a valid text stays as it is");
  fuzz::require(quillon::validUtf8(text).size() <= 3 * text.size(), "a byte becomes three at most");
  const auto message = DMessage::makeSignalMessage("/iot/test", "iot.test", "test");
  message->writeString(text).writeInt32(7).writeString(valid);
  DMessage reader(message->raw(), DMessage::kRead);
  fuzz::require(
      reader.readString() == valid && reader.readInt32() == 7 && reader.readString() == valid,
      "a text arrives as it was written");
}

void checkNames(std::string text) {
  std::array<std::string, 4> names;
  for (std::string& name : names) name = fuzz::take(text, "\n");
  const auto call = DMessage::makeNewMethodCallMessage(names[0].c_str(), names[1].c_str(),
                                                       names[2].c_str(), names[3].c_str());
  fuzz::require(!call || call->getPath() == std::string_view(names[1].c_str()),
                "the path is the one given");
  const auto signal = DMessage::makeSignalMessage(names[1].c_str(), "iot.test", names[3].c_str());
  if (!signal) return;
  signal->setPath(names[0].c_str());
  signal->setInterface(names[2].c_str());
  signal->setDestination(names[0].c_str());
}

}  // namespace

void fuzz::check(const std::string& input) {
  checkText(input);
  checkNames(input);
}
