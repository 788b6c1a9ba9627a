#include "main/startup.h"

#include <gateway/discovery.h>
#include <gateway/log_macros.h>
#include <pthread.h>
#include <unistd.h>
#include <uv.h>

#include <chrono>
#include <exception>
#include <string>
#include <system_error>
#include <thread>

#include "dbus_process_call/dbus_process_call.h"
#include "dbus_wrap/LoopTasks.h"
#include "engine_api/bus_control.h"
#include "executor_api/registry.h"
#include "jobm_server/jobm_server.h"
#include "main/terminate.h"
#include "runner_api/runner.h"
#include "scheduler_link/identity.h"
#include "scheduler_link/routing.h"
#include "status_file/status_file.h"
#include "sync_job_status/journal.h"
#include "util/aes/job_aes.h"
#include "util/http_download_kiv.h"
#include "wire/bus_names.h"
#include "wire/store_keys.h"

namespace jobm {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kWatchdogSeconds = 19;

void showPhase(const char* phase) { setStatusWord("phase", phase); }

std::string pathRule(const char* path) { return std::string("type='signal',path='") + path + "'"; }

void serve() {
  const std::string rules[] = {
      pathRule(bus::kScriptEngine.path), pathRule(bus::kBridge.path), pathRule(bus::kWatchdog.path),
      "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'"};
  LOGI("startListenDBusSignals begin...\n");
  JobManagerServer server(bus::kJobManager.name, bus::kJobManager.path);
  if (server.prepare() != 0) {
    // No error: another instance may own the name, and the rest of the process goes on.
    LOGI("prepare dbus server for %s failed.\n", bus::kJobManager.name);
    return;
  }
  for (const std::string& rule : rules) server.addMatchRule(rule);
  server.setRunLoop(true);
  LOGI("startListen server started...\n");
  server.start();
}

void* listeningRoutine(void*) {
  pthread_detach(pthread_self());
  try {
    serve();
  } catch (const std::exception& e) {
    LOGE("listeningRoutine Exception e = %s\n", e.what());
  }
  return nullptr;
}

// The service manager must not see a failure.
void endIfRunning() {
  if (!nameHasOwner(bus::kJobManager.name)) return;
  LOGW("%s existed, will not restart.\n", bus::kJobManager.name);
  _exit(0);
}

// A failed read counts as empty, so this also waits for the configuration store.
void waitForIdentity() {
  std::string productKey;
  std::string deviceName;
  showPhase("waiting for identity");
  do {
    std::this_thread::sleep_for(seconds(1));
    productKey = getConfig(key::kProductKey);
    deviceName = getConfig(key::kDeviceName);
  } while (productKey.empty() || deviceName.empty());
  LOGI("productKey = %s deviceName = %s\n", productKey.c_str(), deviceName.c_str());
  setDeviceInfo(productKey, deviceName);
}

// Before the cloud hears of this gateway: a job would find nobody to run it.
void restoreUntilRead() {
  showPhase("restoring registrations");
  do {
    LOGE("the registrations could not be read, trying again.\n");
    std::this_thread::sleep_for(seconds(1));
  } while (!initAllExecutors());
}

void registerUntilGranted(milliseconds pause) {
  showPhase("registering");
  do {
    registerRunner(4, 1000000000, "[ConfigManager]", "1.1");
    std::this_thread::sleep_for(pause);
  } while (getRunId() == 0);
  showPhase("registered");
  LOGI("runnerId =%lld\n ", static_cast<long long>(getRunId()));
}

// Before the first heartbeat, and with it before anything new is accepted.
void reportWhatIsLeft() {
  quillon::postToLoop([slots = readJournal()] { reportInterrupted(slots); });
}

void beatForEver(milliseconds period) {
  while (true) {
    std::this_thread::sleep_for(period);
    try {
      handleHeartbeat();
      feedDog(bus::kJobManager.name, kWatchdogSeconds);
    } catch (const std::exception& e) {
      LOGE("beatForEver Exception e = %s\n", e.what());
    }
  }
}

void startHeartbeat(milliseconds period) {
  try {
    std::thread(beatForEver, period).detach();
  } catch (const std::system_error& e) {
    LOGE("startHeartbeat Exception e = %s\n", e.what());
  }
}

void subscribeTriggers() {
  bool status = false;
  do {
    status = subscribeInvoke();
    LOGI("subscribeInvoke status =%d\n", status ? 1 : 0);
    std::this_thread::sleep_for(seconds(1));
  } while (!status);
}

}  // namespace

int listen() {
  LOGI("listen begin...\n");
  // The loop is made by its first user: now, because two threads use it from here on.
  static_cast<void>(uv_default_loop());
  pthread_t thread{};
  if (pthread_create(&thread, nullptr, listeningRoutine, nullptr) == 0) return 1;
  LOGE("pthread_create startListenSignals Error\n");
  return 0;
}

void runService(const Periods& periods) {
  installSignalHandlers();
  log_init("task-dispatcher", 1, 1, 2);
  LOGI("TaskDispatcher started...\n");
  setDeviceSecretReader([] { return getConfig(key::kDeviceSecret); });
  endIfRunning();
  startStatusFile();
  showPhase("starting");
  listen();
  const bool isRestored = initAllExecutors();
  waitForIdentity();
  if (!isRestored) restoreUntilRead();
  registerUntilGranted(periods.registration);
  reportWhatIsLeft();
  curl_init();
  startHeartbeat(periods.heartbeat);
  createThread_discovery();
  subscribeTriggers();
  while (true) pause();
}

}  // namespace jobm
