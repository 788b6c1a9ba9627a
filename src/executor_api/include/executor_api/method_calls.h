/// Calls to registered executors and parsers. All are sent asynchronously on the record's own
/// proxy; replies come on the listening thread. Any thread may send.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "dbus_wrap/DProxy.h"
#include "executor_api/registry.h"
#include "wire/codes.h"

namespace jobm {

/// Takes what became of a call: the executor's code, or one of ResultCode; its message; its data as
/// styled JSON text. Runs on the listening thread and must own what it uses.
using MethodResultCallback =
    std::function<void(int code, const std::string& message, const std::string& data)>;

/// The message of kNoReply.
inline constexpr const char* kNoReplyMessage = "timeout without reply";

/// What became of a call.
struct ExecutorReply {
  int code = kNoReply;
  std::string message;
  Json::Value data;
  bool answered = false;  // by the executor itself, with a readable answer
};

/// Writes a log line about one text.
using TextLog = std::function<void(const char* text)>;

/// The log lines of one kind of call: its reply is not JSON, its code is an error, its members have
/// wrong types (the exception's text).
struct ReplyLog {
  TextLog parseFailed;
  TextLog error;
  TextLog exception;
};

/// Reads an executor's own answer. Nothing for a text that is not JSON; an answer with members of
/// wrong types is logged with `exception` and is a format error.
std::optional<ExecutorReply> readAnswer(const std::string& text, const TextLog& exception);

/// Reads a reply: the executor's own answer, or one of the bus's failure texts.
ExecutorReply classifyReply(const std::string& text, const ReplyLog& log);

/// What stands for a reply that can't be read.
ExecutorReply replyFormatError();

/// Sends `message` on `proxy`; `callback` gets the reply, empty for none, and the pointer. It is
/// called exactly once, on the listening thread, never from inside this call: a send that fails at
/// once counts as no reply. The proxy is held until then.
void sendMessageWithReply(const std::shared_ptr<quillon::DProxy>& proxy,
                          const std::shared_ptr<quillon::DMessage>& message,
                          quillon::ReplyCallback callback, void* userData);

/// Calls `method` with `payload` as its argument (none when it is empty). `callback` may be empty;
/// it isn't called when no reply comes. A service whose address can't be called counts as not
/// existing, a payload that the bus doesn't take as one that can't be read.
void callMethod(const char* method, const Executor& executor, const std::string& payload,
                const MethodResultCallback& callback);

/// Has an executor initialise itself again; the answer is only logged. Nothing calls this yet.
void initExecutor(const Executor& executor);

/// Tells the executors with more than one watch type, and "driver_manager", that a batch of watched
/// resources has been processed. Listening thread.
void callOnWatchTypesFinish();

}  // namespace jobm
