#include "neighbours.h"

#include <LoopTasks.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <gateway/config.h>
#include <json_helper.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "support.h"

namespace fuzz {

World& world() {
  static World all;
  return all;
}

const std::string* fileAt(const std::string& url) {
  if (url.size() != 3 || !url.starts_with("m:")) return nullptr;
  const auto index = static_cast<std::size_t>(static_cast<unsigned char>(url[2])) - '0';
  return index < world().files.size() ? &world().files[index] : nullptr;
}

std::shared_ptr<quillon::DMessage> makeReply(const std::string& text) {
  DBusMessage* raw = dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN);
  quillon::DMessage writer(raw, quillon::DMessage::kWrite);
  if (text.starts_with('\x01')) {
    writer.writeInt32(1);
  } else {
    writer.writeString(text);
  }
  return std::make_shared<quillon::DMessage>(raw, true, quillon::DMessage::kRead);
}

namespace {

std::string takeReply() {
  if (world().replies.empty()) return R"({"code":0,"message":"","data":[]})";
  std::string text = std::move(world().replies.front());
  world().replies.pop_front();
  return text;
}

void answerOne() {
  std::string text = takeReply();
  auto& pending = world().pending;
  const bool latest = text.starts_with('>');
  const PendingCall call = std::move(latest ? pending.back() : pending.front());
  if (latest) {
    text.erase(0, 1);
    pending.pop_back();
  } else {
    pending.pop_front();
  }
  if (text.empty() && call.member == "deployConfig") world().parserSilent = true;
  if (call.callback) call.callback(text.empty() ? nullptr : makeReply(text), call.userData);
}

// What every message promises, whoever gets it.
std::vector<std::string> textsOf(const std::shared_ptr<quillon::DMessage>& message) {
  require(message && message->raw() != nullptr && message->fitsBus(), "only whole messages go out");
  std::vector<std::string> texts;
  quillon::DMessage reader(message->raw(), quillon::DMessage::kRead);
  DBusMessageIter iterator;
  if (!dbus_message_iter_init(message->raw(), &iterator)) return texts;
  do {
    if (dbus_message_iter_get_arg_type(&iterator) != DBUS_TYPE_STRING) break;
    texts.push_back(reader.readString());
    require(dbus_validate_utf8(texts.back().c_str(), nullptr), "texts are UTF-8");
  } while (dbus_message_iter_next(&iterator));
  return texts;
}

void recordPublished(const std::vector<std::string>& texts) {
  require(texts.size() == 2, "a publication has a topic and a payload");
  require(texts[0].starts_with("/sys/key/device/"), "only this gateway's topics are used");
  Json::Value payload;
  require(texts[0].ends_with("/post_log") || jobm::json::parse(texts[1], payload),
          "what goes to the cloud is JSON");
  world().published.push_back({texts[0], texts[1]});
}

}  // namespace

void runLoop() {
  World& all = world();
  while (!all.tasks.empty() || !all.pending.empty()) {
    if (all.tasks.empty()) {
      answerOne();
      continue;
    }
    const auto task = std::move(all.tasks.front());
    all.tasks.pop_front();
    task();
  }
}

}  // namespace fuzz

// --- the bus ---------------------------------------------------------------------------------

namespace quillon {

using fuzz::world;

void postToLoop(LoopTask task) { world().tasks.push_back(std::move(task)); }

DProxy::DProxy(const char* serviceName, const char* servicePath, const char* serviceInterface)
    : wellknownName(serviceName), path(servicePath), interface(serviceInterface), connected(true) {}

DProxy::~DProxy() = default;

std::shared_ptr<DMessage> DProxy::makeMethodCall(const char* member) const {
  return DMessage::makeNewMethodCallMessage(wellknownName.c_str(), path.c_str(), interface.c_str(),
                                            member);
}

std::shared_ptr<DMessage> DProxy::makeSignal(const char* member) const {
  return DMessage::makeSignalMessage(path.c_str(), interface.c_str(), member);
}

bool DProxy::sendMessageWithReply(const std::shared_ptr<DMessage>& message, ReplyCallback callback,
                                  void* userData) {
  if (!message) return false;
  const std::vector<std::string> texts = fuzz::textsOf(message);
  if (wellknownName == "iot.bridge.mqtt" && path == "/iot/bridge/mqtt") {
    fuzz::recordPublished(texts);
    postToLoop([callback = std::move(callback), userData] {
      callback(fuzz::makeReply(R"({"code":0})"), userData);
    });
    return true;
  }
  const std::string argument = texts.empty() ? "" : texts[0];
  Json::Value payload;
  fuzz::require(texts.empty() || jobm::json::parse(argument, payload), "executors get JSON");
  const std::string member = dbus_message_get_member(message->raw());
  auto& replies = world().replies;
  if (!replies.empty() && replies.front() == "!") {
    replies.pop_front();
    if (member == "deployConfig") world().parserSilent = true;
    return false;
  }
  world().sent.push_back({member, argument, {}, nullptr});
  world().pending.push_back({member, argument, std::move(callback), userData});
  return true;
}

std::shared_ptr<DMessage> DProxy::sendMessageWithReplyBlocking(
    const std::shared_ptr<DMessage>& message) {
  static_cast<void>(fuzz::textsOf(message));
  return fuzz::makeReply(R"({"code":0})");
}

int DProxy::sendSignal(const std::shared_ptr<DMessage>& message) {
  static_cast<void>(fuzz::textsOf(message));
  return 0;
}

bool DProxy::isFor(const std::string& otherName, const std::string& otherPath,
                   const std::string& otherInterface) const {
  return wellknownName == otherName && path == otherPath && interface == otherInterface;
}

}  // namespace quillon

// --- the configuration store -----------------------------------------------------------------

int get_config(DBusConnection* /*connection*/, const char* key, char** value, int /*timeout_ms*/) {
  const auto entry = fuzz::world().store.find(key);
  if (entry == fuzz::world().store.end()) return -1;
  *value = strdup(entry->second.c_str());
  return 0;
}

int set_config(DBusConnection* /*connection*/, const char* key, const char* value,
               int /*timeout_ms*/) {
  const std::string_view name = key;
  fuzz::require(!name.starts_with("gw_system_"), "the identity is never written");
  if (name.starts_with("gw_jobm_")) {
    const bool registry = name == "gw_jobm_executors" || name == "gw_jobm_parsers";
    const bool job = name == "gw_jobm_jobId" || name == "gw_jobm_jobContent";
    fuzz::require(registry || job, "no foreign key is reserved");
    fuzz::require(!registry || fuzz::parsed(value).isObject(), "the registry stays readable");
  }
  fuzz::world().store[key] = value;
  return 0;
}

// --- the web server --------------------------------------------------------------------------

// The library declares the two variadic functions with an enumeration before the dots.
#pragma clang diagnostic ignored "-Wvarargs"

namespace {

struct FakeTransfer {
  std::string url;
  FILE* file = nullptr;
  curl_xferinfo_callback progress = nullptr;
  void* progressData = nullptr;
};

}  // namespace

CURL* curl_easy_init() { return std::make_unique<FakeTransfer>().release(); }

void curl_easy_cleanup(CURL* handle) {
  const std::unique_ptr<FakeTransfer> transfer(static_cast<FakeTransfer*>(handle));
}

#undef curl_easy_setopt
CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  auto& transfer = *static_cast<FakeTransfer*>(handle);
  va_list arguments;
  va_start(arguments, option);
  if (option == CURLOPT_URL) transfer.url = va_arg(arguments, const char*);
  if (option == CURLOPT_WRITEDATA) transfer.file = va_arg(arguments, FILE*);
  if (option == CURLOPT_XFERINFOFUNCTION) {
    transfer.progress = va_arg(arguments, curl_xferinfo_callback);
  }
  if (option == CURLOPT_XFERINFODATA) transfer.progressData = va_arg(arguments, void*);
  va_end(arguments);
  return CURLE_OK;
}

CURLcode curl_easy_perform(CURL* handle) {
  const auto& transfer = *static_cast<FakeTransfer*>(handle);
  if (transfer.progress != nullptr) transfer.progress(transfer.progressData, 0, 0, 0, 0);
  const std::string* file = fuzz::fileAt(transfer.url);
  if (file == nullptr) return CURLE_COULDNT_CONNECT;
  return std::fwrite(file->data(), 1, file->size(), transfer.file) == file->size()
             ? CURLE_OK
             : CURLE_WRITE_ERROR;
}

#undef curl_easy_getinfo
CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
  va_list arguments;
  va_start(arguments, info);
  const bool found = fuzz::fileAt(static_cast<FakeTransfer*>(handle)->url) != nullptr;
  long* number = va_arg(arguments, long*);
  if (info == CURLINFO_RESPONSE_CODE) *number = found ? 200 : 404;
  va_end(arguments);
  return CURLE_OK;
}

// --- the files -------------------------------------------------------------------------------

namespace {

bool isBelow(std::string_view path, std::string_view folder) {
  return path == folder || (path.starts_with(folder) && path[folder.size()] == '/');
}

// Paths are built from checked names, so none leads upwards; and with all links on the way to its
// last component followed, each is in its place.
void requireWritable(const char* path) {
  const std::string& root = fuzz::world().writableRoot;
  if (root.empty()) return;
  const bool isUpwards = (std::string(path) + "/").find("/../") != std::string::npos;
  fuzz::require(!isUpwards, "no path leads upwards");
  std::array<char, PATH_MAX> real{};
  std::string folder = path;
  const bool isFolder = folder.ends_with('/') && realpath(path, real.data()) != nullptr;
  while (!isFolder && folder.size() > 1 && folder.back() == '/') folder.pop_back();
  const std::size_t slash = folder.rfind('/');
  folder = slash == std::string::npos ? "." : folder.substr(0, slash + 1);
  if (realpath(folder.c_str(), real.data()) == nullptr) return;  // then it fails anyway
  const char* output = std::getenv("FUZZ_OUTPUT");  // where the fuzzer writes a finding
  if (output != nullptr && isBelow(real.data(), output)) return;
  // The root itself comes and goes.
  if (path == root || root.starts_with(std::string(path) + "/")) return;
  if (!isBelow(real.data(), root)) std::fprintf(stderr, "%s\n", path);
  fuzz::require(isBelow(real.data(), root), "files stay in the working tree");
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for wrapped functions
extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
int __real_mkdir(const char* path, mode_t mode);
int __real_rmdir(const char* path);
int __real_unlink(const char* path);
int __real_remove(const char* path);
int __real_rename(const char* from, const char* to);
FILE* __real_fopen(const char* path, const char* mode);

int __wrap_open(const char* path, int flags, mode_t mode) {
  if ((flags & (O_WRONLY | O_RDWR | O_CREAT)) != 0) requireWritable(path);
  return __real_open(path, flags, mode);
}
int __wrap_mkdir(const char* path, mode_t mode) {
  requireWritable(path);
  return __real_mkdir(path, mode);
}
int __wrap_rmdir(const char* path) {
  requireWritable(path);
  return __real_rmdir(path);
}
int __wrap_unlink(const char* path) {
  requireWritable(path);
  return __real_unlink(path);
}
int __wrap_remove(const char* path) {
  requireWritable(path);
  return __real_remove(path);
}
int __wrap_rename(const char* from, const char* to) {
  requireWritable(from);
  requireWritable(to);
  return __real_rename(from, to);
}
FILE* __wrap_fopen(const char* path, const char* mode) {
  if (mode[0] != 'r') requireWritable(path);
  return __real_fopen(path, mode);
}
int __wrap_system(const char* /*command*/) {
  fuzz::require(false, "nothing from outside reaches a shell");
  return -1;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
