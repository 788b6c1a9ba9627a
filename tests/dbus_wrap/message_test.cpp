#include <DMessage.h>
#include <Utf8.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

namespace {

using quillon::DMessage;
using Message = std::shared_ptr<DMessage>;

Message newCall() {
  return DMessage::makeNewMethodCallMessage("iot.test.service", "/iot/test", "iot.test", "run");
}

// What a receiver of the message reads; the message lives as long as the one given.
DMessage readerOf(const Message& message) { return {message->raw(), DMessage::kRead}; }

TEST(Message, GivesBackInOrderWhatWasWrittenAndKeepsWhatIsReadAsAnotherType) {
  const Message call = newCall();
  call->writeInt16(-32768).writeInt32(std::numeric_limits<std::int32_t>::min());
  call->writeDouble(-0.5).writeBoolean(true).writeBoolean(false).writeString("");
  call->writeString(std::string("täxt"));
  DMessage reader = readerOf(call);
  EXPECT_EQ(reader.readString() + std::to_string(reader.readInt32()), "0");
  EXPECT_EQ(reader.readInt16(), -32768);
  EXPECT_EQ(reader.readInt16() + reader.readDouble(), 0);
  EXPECT_EQ(reader.readInt32(), std::numeric_limits<std::int32_t>::min());
  EXPECT_FALSE(reader.readBoolean());
  EXPECT_EQ(reader.readDouble(), -0.5);
  EXPECT_TRUE(reader.readBoolean());
  EXPECT_FALSE(reader.readBoolean());
  EXPECT_EQ(reader.readString(), "");
  EXPECT_EQ(reader.readString(), "täxt");
  EXPECT_EQ(reader.readString(), "") << "past the last argument";

  std::uint32_t number = 0;
  EXPECT_FALSE(readFirstUInt32(*call, number));
  const Message counted = newCall();
  counted->writeUInt32(4000000000U);
  EXPECT_TRUE(readFirstUInt32(*counted, number));
  EXPECT_EQ(number, 4000000000U);
}

// libdbus ends the process on each of these.
TEST(Message, IsNotMadeOfNamesThatBreakTheRules) {
  for (const char* destination : {"nodot", "a.ä", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(DMessage::makeNewMethodCallMessage(destination, "/p", "a.b", "m"));
  }
  struct Case {
    const char *path, *interface, *member;
  };
  const Case cases[] = {{"p", "a.b", "m"},
                        {"/p/", "a.b", "m"},
                        {"/", "a", "m"},
                        {"/", "a.1", "m"},
                        {"/", "a.b", "m.n"},
                        {nullptr, "a.b", "m"},
                        {"/", nullptr, "m"},
                        {"/", "a.b", nullptr},
                        {"/org/freedesktop/DBus/Local", "a.b", "m"},
                        {"/", "org.freedesktop.DBus.Local", "m"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    EXPECT_FALSE(DMessage::makeNewMethodCallMessage("a.b", c.path, c.interface, c.member));
    EXPECT_FALSE(DMessage::makeSignalMessage(c.path, c.interface, c.member));
  }
  const Message signal = DMessage::makeSignalMessage("/p", "a.b", "m");
  EXPECT_FALSE(signal->setPath("q") || signal->setInterface("c") ||
               signal->setDestination(nullptr));
}

TEST(Message, AnswersOnlyACallThatWasSentAndIsEmptyWhenThereIsNone) {
  const Message call = newCall();
  for (const Message& unanswerable :
       {call, DMessage::makeSignalMessage("/p", "a.b", "m"), Message{}}) {
    EXPECT_FALSE(DMessage::makeReturnMessage(unanswerable));
  }
  dbus_message_set_serial(call->raw(), 77);
  EXPECT_EQ(DMessage::makeReturnMessage(call)->getReplySerial(), 77U);
  DMessage nothing(nullptr, true, DMessage::kRead);
  EXPECT_FALSE(nothing.isSignal() || nothing.isMethodReturn());
  EXPECT_EQ(nothing.getPath() + nothing.getErrorName() + nothing.readString(), "");
  EXPECT_EQ(nothing.getReplySerial(), 0U);
}

TEST(Message, CarriesReplacementCharactersForBytesThatAreNotText) {
  const std::pair<const char*, const char*> cases[] = {
      {"caf\xE9", "caf\uFFFD"},                    // Latin-1
      {"\xD6\xD0\xB0z", "\uFFFD\u0430z"},          // GBK: the middle pair happens to be a letter
      {"a\xED\xA0\x80z", "a\uFFFD\uFFFD\uFFFDz"},  // a lone surrogate
  };
  for (const auto& [bytes, text] : cases) {
    const Message call = newCall();
    call->writeString(bytes);
    EXPECT_EQ(readerOf(call).readString(), text);
  }
}

// Every combination of the bytes at which the rules of UTF-8 turn, against libdbus's own opinion.
TEST(Message, RepairsExactlyTheTextsThatTheBusRefuses) {
  const std::string edges =
      "\x01\x7F\x80\x8F\x90\x9F\xA0\xBF\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5"
      "\xFF";
  const std::size_t count = edges.size();
  std::string text(4, ' ');
  for (std::size_t n = 0; n < count * count * count * count; ++n) {
    for (std::size_t k = 0, rest = n; k < text.size(); ++k, rest /= count) {
      text[k] = edges[rest % count];
    }
    const std::string valid = quillon::validUtf8(text);
    const bool accepted = dbus_validate_utf8(text.c_str(), nullptr);
    ASSERT_TRUE(dbus_validate_utf8(valid.c_str(), nullptr)) << n;
    ASSERT_EQ(valid == text, accepted) << n;
  }
}

}  // namespace
