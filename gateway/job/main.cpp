// gateway-job: submits jobs to the local gateway's scheduler and shows what becomes of them.

#include <gateway/config.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "common/options.h"
#include "digest/digest.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "outcome.h"
#include "package/manifest.h"
#include "submission.h"

namespace {

using gateway::Broker;
using gateway::Options;
using gateway::Order;
using gateway::Package;

constexpr gateway::OptionEntry kOptions[] = {
    {"encrypt", "", "encrypt the package with the device secret of the configuration store"},
    {"inline", "", "send the package inside the job instead of serving it"},
    {"job", "ID", "delete: the job with this id, by the scheduler's own order"},
    {"scheduler", "", "reset: by the scheduler's own order"},
    {"content", "TEXT", "what an order of the scheduler's own carries; default {}"},
    {"json", "", "print the result as JSON"},
    {"expect", "FILE", "succeed when the result is what FILE says, whatever that is"},
    {"no-wait", "", "leave when the order is on its way; prints the id of the deployment in it"},
    {"timeout", "SECONDS", "how long to wait for the result; default 60"},
    {"broker", "HOST:PORT", "the broker; default $GATEWAY_BROKER"},
    {"web-root", "DIR", "where the web server's files are; default $GATEWAY_WEB_ROOT"},
    {"web-url", "URL", "where the web server is; default $GATEWAY_WEB_URL"},
};

constexpr gateway::CommandEntry kCommands[] = {
    {"add FOLDER", "deploy the resources of a folder"},
    {"delete FOLDER", "remove the resources of a folder, or with --job an earlier job"},
    {"reset", "reset all executors, by a deployment or with --scheduler by the scheduler's order"},
    {"trigger TEXT", "trigger the rule engine"},
    {"watch [TOPIC]", "print MQTT messages as they pass"},
};

constexpr gateway::Program kProgram{
    "gateway-job", "submits jobs to the local gateway's scheduler",
    "Prints what became of the order, and exits with 0 only if everything succeeded, or with "
    "--expect only if "
    "the result is the one described there.\n\n"
    "A folder of resources has a manifest.json, as gateway/README.md describes it.",
    kCommands, kOptions};

constexpr int kFailed = 1;
constexpr int kStoreTimeoutMs = 10000;

int fail(const std::string& why) {
  std::fprintf(stderr, "gateway-job: %s\n", why.c_str());
  return kFailed;
}

Broker brokerOf(const Options& options) {
  const std::string text =
      options.get("broker", gateway::environment("GATEWAY_BROKER", "127.0.0.1:1883"));
  const auto colon = text.rfind(':');
  if (colon == std::string::npos) return {text, 1883};
  return {text.substr(0, colon), gateway::toNumber(text.substr(colon + 1), 1883)};
}

std::string deviceSecret() {
  char* value = nullptr;
  if (get_config(nullptr, "gw_system_devicesecret", &value, kStoreTimeoutMs) != 0) return "";
  const std::unique_ptr<char, decltype(&std::free)> owner(value, &std::free);
  return value != nullptr ? value : "";
}

// Puts the package where the gateway will find it and fills in the order for it.
std::string orderFor(const Options& options, const gateway::PackageSettings& settings,
                     const Package& package, Order& order) {
  std::string text = jobm::json::styled(package.request);
  if (options.has("encrypt")) {
    const std::string secret = deviceSecret();
    if (secret.empty()) return "the configuration store has no device secret";
    text = gateway::seal(text, secret);
    if (text.empty()) return "the package can't be encrypted";
  }
  Json::Value content(Json::objectValue);
  content["name"] = package.name;
  content["context"] = "";
  if (options.has("inline")) {
    content["type"] = "inline";
    content["content"] = text;
  } else {
    const std::string file = "/" + jobm::json::textOf(package.request, "deployId") + ".package";
    if (!jobm::writeFile(settings.webRoot + file, text))
      return settings.webRoot + file + " can't be written";
    content["type"] = "kiv";
    content["content"] = settings.webUrl + file;
  }
  order = {.ackCode = gateway::kAddJob,
           .ackContent = jobm::json::compact(content),
           .request = package.request,
           .jobId = ""};
  return "";
}

std::string makeOrder(const Options& options, const std::string& command, Order& order) {
  if (command == "reset" && options.has("scheduler")) {
    order = {.ackCode = gateway::kResetJobs,
             .ackContent = options.get("content", "{}"),
             .request = {},
             .jobId = ""};
    return "";
  }
  if (command == "delete" && options.has("job")) {
    order = {.ackCode = gateway::kDeleteJob,
             .ackContent = options.get("content", "{}"),
             .request = {},
             .jobId = options.get("job")};
    return "";
  }
  gateway::PackageSettings settings{
      .folder = options.words().size() > 1 ? options.words()[1] : "",
      .webRoot = options.get("web-root", gateway::environment("GATEWAY_WEB_ROOT", ".")),
      .webUrl = options.get("web-url", gateway::environment("GATEWAY_WEB_URL")),
      .deletes = command == "delete"};
  Package package = gateway::resetPackage();
  if (command != "reset") {
    std::string failure = gateway::buildPackage(settings, package);
    if (!failure.empty()) return failure;
  }
  return orderFor(options, settings, package, order);
}

int leaveOrder(const Broker& broker, const Order& order) {
  const std::string failure = gateway::handOver(broker, order);
  if (!failure.empty()) return fail(failure);
  const std::string deployId = jobm::json::textOf(order.request, "deployId");
  if (!deployId.empty()) std::puts(deployId.c_str());
  return 0;
}

// Returns the exit status for the last word on an order.
int judge(const Options& options, const Json::Value& result) {
  const std::string text =
      options.has("json") ? jobm::json::styled(result) : gateway::tableOf(result);
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
  if (!options.has("expect")) return gateway::succeeded(result) ? 0 : kFailed;
  std::string expectedText;
  Json::Value expected;
  if (!jobm::readFile(options.get("expect"), expectedText) ||
      !jobm::json::parse(expectedText, expected) || !expected.isObject()) {
    return fail(options.get("expect") + " is no JSON object");
  }
  const auto found = gateway::differences(result, expected);
  for (const std::string& difference : found) fail(difference);
  return found.empty() ? 0 : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const auto status = options.parse(argc, argv, kProgram)) return *status;
  const auto& words = options.words();
  const std::string command = words.empty() ? "" : words[0];
  const std::string argument = words.size() > 1 ? words[1] : "";
  const Broker broker = brokerOf(options);
  if (command == "watch")
    return fail(gateway::watchTopics(broker, argument.empty() ? "#" : argument));
  if (command == "trigger" && !argument.empty()) {
    const std::string failure = gateway::publishOnce(broker, "local/scheduler/trigger", argument);
    return failure.empty() ? 0 : fail(failure);
  }
  const bool complete = command == "reset" || ((command == "add" || command == "delete") &&
                                               (!argument.empty() || options.has("job")));
  if (!complete) return gateway::usageError(kProgram, "no command, or not all of it");
  Order order;
  Json::Value result;
  std::string failure = makeOrder(options, command, order);
  if (failure.empty() && options.has("no-wait")) return leaveOrder(broker, order);
  if (failure.empty())
    failure = gateway::submit(broker, order, options.number("timeout", 60), result);
  return failure.empty() ? judge(options, result) : fail(failure);
}
