#include <Utf8.h>

#include "dbus_wrap/DMessage.h"
#include "support/test.h"

namespace {

using quillon::DMessage;
using Message = std::shared_ptr<DMessage>;

Message callTo(const char* name, const char* path = "/", const char* interface = "a.b",
               const char* member = "m") {
  return DMessage::makeNewMethodCallMessage(name, path, interface, member);
}

TEST(Message, gives_back_in_order_what_was_written_and_keeps_what_is_read_as_another_type) {
  const Message call = callTo("a.b");
  call->writeInt16(-32768).writeInt32(-70000).writeDouble(-0.5).writeBoolean(true);
  call->writeString("text");
  DMessage reader(call->raw(), DMessage::kRead);
  EXPECT_EQ(reader.readString() + std::to_string(reader.readInt32()), "0");
  EXPECT_EQ(reader.readInt16() + reader.readInt32() + reader.readDouble(), -102768.5);
  EXPECT_TRUE(reader.readBoolean());
  EXPECT_EQ(reader.readString() + reader.readString(), "text") << "and no more";
}

// libdbus ends the process on each of these, and the daemon the connection on the local ones.
TEST(Message, is_not_made_of_names_that_break_the_rules) {
  EXPECT_FALSE(callTo("nodot") || callTo(nullptr) || callTo("a.b", nullptr));
  EXPECT_FALSE(callTo("a.b", "/", nullptr) || callTo("a.b", "/", "a.b", nullptr));
  EXPECT_FALSE(callTo("a.b", DBUS_PATH_LOCAL) || callTo("a.b", "/", DBUS_INTERFACE_LOCAL));
  EXPECT_FALSE(DMessage::makeSignalMessage(DBUS_PATH_LOCAL, "a.b", "m"));
  EXPECT_FALSE(DMessage::makeSignalMessage("/", DBUS_INTERFACE_LOCAL, "m"));
  const Message signal = DMessage::makeSignalMessage("/p", "a.b", "m");
  EXPECT_FALSE(signal->setPath("q") || signal->setInterface("c") || signal->setDestination("d"));
}

// Every combination of the bytes at which the rules of UTF-8 turn, against libdbus's own opinion.
TEST(Message, repairs_exactly_the_texts_that_the_bus_refuses) {
  const Message call = callTo("a.b");
  call->writeString("caf\xE9 a\xED\xA0\x80z");  // Latin-1 and a lone surrogate
  EXPECT_EQ(DMessage(call->raw(), DMessage::kRead).readString(), "caf\uFFFD a\uFFFD\uFFFD\uFFFDz");
  const std::string edges =
      "\x01\x7F\x80\x8F\x90\x9F\xA0\xBF\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5"
      "\xFF";
  const std::size_t count = edges.size();
  std::string text = "four";
  for (std::size_t n = 0; n < count * count * count * count; ++n) {
    std::size_t rest = n;
    for (char& byte : text) byte = edges[std::exchange(rest, rest / count) % count];
    const std::string valid = quillon::validUtf8(text);
    ASSERT_TRUE(dbus_validate_utf8(valid.c_str(), nullptr)) << n;
    ASSERT_EQ(valid == text, dbus_validate_utf8(text.c_str(), nullptr) != FALSE) << n;
  }
}

}  // namespace
