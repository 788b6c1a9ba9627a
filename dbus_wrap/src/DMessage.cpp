#include "dbus_wrap/DMessage.h"

#include <gateway/log_macros.h>

#include <climits>
#include <cstring>
#include <string_view>

#include "Utf8.h"

namespace quillon {
namespace {

// Room for the header's fields: names are at most 255 bytes each, paths are as long as their text.
constexpr std::size_t kHeaderBytes = 2048;
// Length, terminator and the worst alignment of a string argument.
constexpr std::size_t kStringOverhead = 12;

// libdbus ends the process on names that break the rules, so every name is checked before it gets
// there.
bool isBusName(const char* name) {
  return name != nullptr && dbus_validate_bus_name(name, nullptr);
}
// The two local names keep the rules, but a daemon drops the connection of whoever sends them.
bool isPath(const char* path) {
  return path != nullptr && dbus_validate_path(path, nullptr) &&
         std::strcmp(path, DBUS_PATH_LOCAL) != 0;
}
bool isInterface(const char* name) {
  return name != nullptr && dbus_validate_interface(name, nullptr) &&
         std::strcmp(name, DBUS_INTERFACE_LOCAL) != 0;
}
bool isMember(const char* name) { return name != nullptr && dbus_validate_member(name, nullptr); }

const char* orNull(const char* text) { return text != nullptr ? text : "(null)"; }

std::shared_ptr<DMessage> wrapOwned(DBusMessage* message) {
  return std::make_shared<DMessage>(message, true, DMessage::kWrite);
}

}  // namespace

std::shared_ptr<DMessage> DMessage::makeNewMethodCallMessage(const char* destination,
                                                             const char* path,
                                                             const char* interface,
                                                             const char* method) {
  DBusMessage* raw = nullptr;
  if (isBusName(destination) && isPath(path) && isInterface(interface) && isMember(method)) {
    raw = dbus_message_new_method_call(destination, path, interface, method);
  }
  if (raw == nullptr) {
    LOGE("make new method call message for '%s' '%s' failed.\n", orNull(path), orNull(method));
    return {};
  }
  return wrapOwned(raw);
}

std::shared_ptr<DMessage> DMessage::makeSignalMessage(const char* path, const char* interface,
                                                      const char* name) {
  DBusMessage* raw = nullptr;
  if (isPath(path) && isInterface(interface) && isMember(name)) {
    raw = dbus_message_new_signal(path, interface, name);
  }
  if (raw == nullptr) {
    LOGE("make new signal message for '%s' '%s' failed.\n", orNull(path), orNull(name));
    return {};
  }
  return wrapOwned(raw);
}

std::shared_ptr<DMessage> DMessage::makeReturnMessage(const std::shared_ptr<DMessage>& request) {
  DBusMessage* raw = nullptr;
  if (request && request->message != nullptr &&
      dbus_message_get_type(request->message) == DBUS_MESSAGE_TYPE_METHOD_CALL &&
      dbus_message_get_serial(request->message) != 0) {
    raw = dbus_message_new_method_return(request->message);
  }
  if (raw == nullptr) {
    LOGE("make new method return failed. Out of Memory.\n");
    return {};
  }
  return wrapOwned(raw);
}

DMessage::DMessage(DBusMessage* wrapped, int mode) : DMessage(wrapped, false, mode) {}

DMessage::DMessage(DBusMessage* wrapped, bool own, int mode)
    : message(wrapped), owned(own), bytes(kHeaderBytes) {
  if (mode != kRead && mode != kWrite) {
    LOGE("Unknown DMessage type: %d\n", mode);
    return;
  }
  if (message == nullptr) return;
  if (mode == kRead) {
    dbus_message_iter_init(message, &iterator);
    return;
  }
  const char* path = dbus_message_get_path(message);
  if (path != nullptr) bytes += std::strlen(path);
  dbus_message_iter_init_append(message, &iterator);
}

DMessage::~DMessage() {
  if (owned && message != nullptr) dbus_message_unref(message);
}

bool DMessage::isSignal() const {
  return message != nullptr && dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_SIGNAL;
}

bool DMessage::isMethodReturn() const {
  return message != nullptr && dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_RETURN;
}

std::string DMessage::getErrorName() const {
  const char* name = message != nullptr ? dbus_message_get_error_name(message) : nullptr;
  return name != nullptr ? name : "";
}

std::string DMessage::getPath() const {
  const char* path = message != nullptr ? dbus_message_get_path(message) : nullptr;
  return path != nullptr ? path : "";
}

std::uint32_t DMessage::getReplySerial() const {
  return message != nullptr ? dbus_message_get_reply_serial(message) : 0;
}

bool DMessage::setPath(const char* path) {
  if (isPath(path) && dbus_message_set_path(message, path)) return true;
  LOGW("path '%s' refused.\n", orNull(path));
  return false;
}

bool DMessage::setInterface(const char* interface) {
  if (isInterface(interface) && dbus_message_set_interface(message, interface)) return true;
  LOGW("interface '%s' refused.\n", orNull(interface));
  return false;
}

bool DMessage::setDestination(const char* destination) {
  if (isBusName(destination) && dbus_message_set_destination(message, destination)) return true;
  LOGW("destination '%s' refused.\n", orNull(destination));
  return false;
}

void DMessage::append(int type, const void* value, std::size_t size) {
  bytes += size;
  if (!fitsBus()) return;  // it will not be sent; no need to hold the text as well
  if (!dbus_message_iter_append_basic(&iterator, type, value)) bytes = kMaxBytes + 1;
}

DMessage& DMessage::writeInt16(std::int16_t value) {
  append(DBUS_TYPE_INT16, &value, 4);
  return *this;
}

DMessage& DMessage::writeInt32(std::int32_t value) {
  append(DBUS_TYPE_INT32, &value, 8);
  return *this;
}

DMessage& DMessage::writeUInt32(std::uint32_t value) {
  append(DBUS_TYPE_UINT32, &value, 8);
  return *this;
}

DMessage& DMessage::writeDouble(double value) {
  append(DBUS_TYPE_DOUBLE, &value, 16);
  return *this;
}

DMessage& DMessage::writeBoolean(bool value) {
  const dbus_bool_t wire = value ? TRUE : FALSE;
  append(DBUS_TYPE_BOOLEAN, &wire, 8);
  return *this;
}

DMessage& DMessage::writeString(const char* text) {
  const std::size_t length = std::strlen(text);
  if (length > INT32_MAX) {
    LOGE("write String failed, use empty string instead.\n");
    return writeString("");
  }
  // A text of a message that will never be sent is not worth checking.
  if (length > kMaxBytes || dbus_validate_utf8(text, nullptr)) {
    append(DBUS_TYPE_STRING, &text, length + kStringOverhead);
    return *this;
  }
  LOGW("text of %zu bytes is not UTF-8, invalid sequences are replaced.\n", length);
  const std::string replaced = validUtf8({text, length});
  const char* valid = replaced.c_str();
  append(DBUS_TYPE_STRING, &valid, replaced.size() + kStringOverhead);
  return *this;
}

DMessage& DMessage::writeString(const std::string& text) { return writeString(text.c_str()); }

bool DMessage::take(int type, void* value, const char* typeName, const char* reader) {
  if (message == nullptr || dbus_message_iter_get_arg_type(&iterator) != type) {
    // In the reader's name: that is who the log's readers know.
    log_print(3, "color", LOG_TAG, __FILE__, reader, __LINE__, "read DMessage value '%s' failed.\n",
              typeName);
    return false;
  }
  dbus_message_iter_get_basic(&iterator, value);
  dbus_message_iter_next(&iterator);
  return true;
}

std::int16_t DMessage::readInt16() {
  std::int16_t value = 0;
  return take(DBUS_TYPE_INT16, &value, "Int16", __func__) ? value : std::int16_t{0};
}

std::int32_t DMessage::readInt32() {
  std::int32_t value = 0;
  return take(DBUS_TYPE_INT32, &value, "Int32", __func__) ? value : 0;
}

double DMessage::readDouble() {
  double value = 0.0;
  return take(DBUS_TYPE_DOUBLE, &value, "Double", __func__) ? value : 0.0;
}

bool DMessage::readBoolean() {
  dbus_bool_t value = FALSE;
  return take(DBUS_TYPE_BOOLEAN, &value, "Boolean", __func__) && value != FALSE;
}

std::string DMessage::readString() {
  const char* value = nullptr;
  if (!take(DBUS_TYPE_STRING, static_cast<void*>(&value), "String", __func__)) return {};
  return value != nullptr ? value : "";
}

bool readFirstUInt32(const DMessage& message, std::uint32_t& value) {
  DBusMessageIter iterator;
  if (message.raw() == nullptr || !dbus_message_iter_init(message.raw(), &iterator)) return false;
  if (dbus_message_iter_get_arg_type(&iterator) != DBUS_TYPE_UINT32) return false;
  dbus_message_iter_get_basic(&iterator, &value);
  return true;
}

}  // namespace quillon
