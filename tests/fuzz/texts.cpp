// Texts and names on their way into bus messages. Lines are names; all of it is one text.
#include <DMessage.h>
#include <Utf8.h>

#include <array>
#include <cstring>
#include <string>

#include "support.h"

namespace {

using quillon::DMessage;

void checkText(const std::string& text) {
  const std::string upToZero = fuzz::upToZero(text);
  const bool wasValid = dbus_validate_utf8(upToZero.c_str(), nullptr) != 0;
  const std::string valid = quillon::validUtf8(upToZero);
  fuzz::require(dbus_validate_utf8(valid.c_str(), nullptr) != 0, "what is replaced is UTF-8");
  fuzz::require(!wasValid || valid == upToZero, "a valid text stays as it is");
  fuzz::require(quillon::validUtf8(text).size() <= 3 * text.size(), "a byte becomes three at most");
  const auto message = DMessage::makeSignalMessage("/iot/test", "iot.test", "test");
  message->writeString(text).writeInt32(7).writeString(valid);
  DMessage reader(message->raw(), DMessage::kRead);
  fuzz::require(
      reader.readString() == valid && reader.readInt32() == 7 && reader.readString() == valid,
      "a text arrives as it was written");
}

void checkNames(const std::string& text) {
  std::array<std::string, 4> names;
  std::size_t at = 0;
  for (std::string& name : names) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    name = text.substr(at, end - at);
    at = std::min(end + 1, text.size());
  }
  const auto call = DMessage::makeNewMethodCallMessage(names[0].c_str(), names[1].c_str(),
                                                       names[2].c_str(), names[3].c_str());
  if (call) fuzz::require(call->getPath() == fuzz::upToZero(names[1]), "the path is the one given");
  const auto signal = DMessage::makeSignalMessage(names[1].c_str(), "iot.test", names[3].c_str());
  if (!signal) return;
  signal->setPath(names[0].c_str());
  signal->setInterface(names[2].c_str());
  signal->setDestination(names[0].c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  checkText(text);
  checkNames(text);
  return 0;
}
