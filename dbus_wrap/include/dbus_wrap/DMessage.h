/// One bus message with one argument iterator. A message is built and read on one thread; only the
/// shared pointer to it is handed from thread to thread.
#pragma once

#include <dbus/dbus.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace quillon {

class DMessage {
 public:
  /// Iterator modes.
  static constexpr int kRead = 0;
  static constexpr int kWrite = 1;

  /// The most that one message may carry. A daemon closes the connection of whoever sends it more
  /// than its limit: with the server's connection this process ends, with a proxy's all workers do.
  /// So larger messages never reach libdbus. The number is the limit of a daemon that was
  /// configured without one.
  static constexpr std::size_t kMaxBytes = std::size_t{32} * 1024 * 1024;

  /// A method call in write mode. The empty pointer (and an error line) when one of the four names
  /// is null, empty or breaks the bus's naming rules, or memory is short.
  static std::shared_ptr<DMessage> makeNewMethodCallMessage(const char* destination,
                                                            const char* path, const char* interface,
                                                            const char* method);

  /// A signal in write mode; fails like makeNewMethodCallMessage.
  static std::shared_ptr<DMessage> makeSignalMessage(const char* path, const char* interface,
                                                     const char* name);

  /// The method return of `request`, a received method call, in write mode. The empty pointer (and
  /// an error line) when it can't be made.
  static std::shared_ptr<DMessage> makeReturnMessage(const std::shared_ptr<DMessage>& request);

  /// Wraps a message without owning it; mode is kRead or kWrite. With any other mode an error line
  /// is written and the wrapper must neither be read nor written.
  DMessage(DBusMessage* message, int mode);

  /// Wraps a message; when `owned`, the wrapper's end releases it.
  DMessage(DBusMessage* message, bool owned, int mode);

  ~DMessage();
  DMessage(const DMessage&) = delete;
  DMessage& operator=(const DMessage&) = delete;

  /// False when no message is wrapped.
  bool isSignal() const;
  bool isMethodReturn() const;

  /// The error name, or "" of a message that has none.
  std::string getErrorName() const;

  /// The object path, or "" when the message has none or none is wrapped.
  std::string getPath() const;

  /// The serial of the call that this reply answers; 0 when it answers none or no message is
  /// wrapped.
  std::uint32_t getReplySerial() const;

  /// Set a header field. Returns false, with a warning, and leaves the field alone when the name
  /// breaks the bus's naming rules or is null.
  bool setPath(const char* path);
  bool setInterface(const char* interface);
  bool setDestination(const char* destination);

  /// Append one argument; write mode.
  DMessage& writeInt16(std::int16_t value);
  DMessage& writeInt32(std::int32_t value);
  DMessage& writeUInt32(std::uint32_t value);
  DMessage& writeDouble(double value);
  DMessage& writeBoolean(bool value);

  /// Appends a string up to its first NUL; `text` is not tested for null. Bytes that are not UTF-8
  /// become U+FFFD, with one warning. A text beyond the limit of a message makes the message
  /// unsendable.
  DMessage& writeString(const char* text);
  DMessage& writeString(const std::string& text);

  /// Read the current argument and go on to the next; read mode. An argument of another type (or
  /// none) gives 0, false or "", an error line, and stays the current one. There is no reader for
  /// UInt32; argument 0 of that type has readFirstUInt32.
  std::int16_t readInt16();
  std::int32_t readInt32();
  double readDouble();
  bool readBoolean();
  std::string readString();

  /// True when the texts written so far fit a message.
  bool fitsBus() const { return bytes <= kMaxBytes; }

  /// The wrapped message, still owned by the wrapper.
  DBusMessage* raw() const { return message; }

 private:
  void append(int type, const void* value, std::size_t size);
  bool take(int type, void* value, const char* typeName, const char* reader);

  DBusMessage* message;
  DBusMessageIter iterator{};
  bool owned;
  std::size_t bytes =
      0;  // upper bound of what the header and the arguments written take on the wire
};

/// Argument 0 of `message` as UInt32. Returns false when it is of another type. For the few replies
/// of the bus daemon that carry one.
bool readFirstUInt32(const DMessage& message, std::uint32_t& value);

}  // namespace quillon
