#include "server.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

#include "events.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "package/manifest.h"
#include "sight.h"

namespace gateway {
namespace {

using httplib::Request;
using httplib::Response;

constexpr const char* kHost = "127.0.0.1";
constexpr std::size_t kThreads = 24;  // each open page keeps one
constexpr std::size_t kLargestUpload = 64 << 20;
constexpr std::size_t kMostRows = 200;
constexpr const char* kJson = "application/json";
constexpr const char* kText = "text/plain; charset=utf-8";

// Scripts and styles come from here and nowhere else, and texts never become markup.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

// Names that lead here for certain: another name that does is somebody's who wants to come in by
// the browser.
bool isOwnHost(const std::string& host) {
  const std::string name = host.substr(0, host.rfind(':'));
  return name == kHost || name == "localhost";
}

bool isPermitted(const Request& request) {
  const std::string host = request.get_header_value("Host");
  const std::string origin = request.get_header_value("Origin");
  return isOwnHost(host) && (origin.empty() || origin == "http://" + host);
}

void send(Response& response, const Json::Value& value) {
  response.set_content(jobm::json::compact(value), kJson);
}

void send(Response& response, const Outcome& outcome) {
  response.status = outcome.isDone ? 200 : 409;
  response.set_content(outcome.text, kText);
}

std::size_t numberOf(const Request& request, const char* name) {
  return std::strtoull(request.get_param_value(name).c_str(), nullptr, 10);
}

Selection selectionOf(const Request& request, const Feed& feed) {
  const std::string job = request.get_param_value("job");
  Selection selection(
      {.job = job, .resource = "", .executor = request.get_param_value("executor")},
      {.onlyFailures = request.has_param("failures"), .routine = request.has_param("routine")},
      feed.executorNames());
  for (std::size_t number = 0; !job.empty(); ++number) {
    const std::string text = feed.order(number);
    Json::Value order;
    if (text.empty() || !jobm::json::parse(text, order)) break;
    selection.learn(order);
  }
  return selection;
}

}  // namespace

PageServer::PageServer(Feed& given, Places where)
    : feed(given), places(std::move(where)), token(uniqueText() + uniqueText()) {
  server.new_task_queue = [] { return std::make_unique<httplib::ThreadPool>(kThreads).release(); };
  server.set_tcp_nodelay(true);
  server.set_payload_max_length(kLargestUpload);
  server.set_default_headers({{"Content-Security-Policy", kPolicy},
                              {"X-Content-Type-Options", "nosniff"},
                              {"Cross-Origin-Resource-Policy", "same-origin"},
                              {"Referrer-Policy", "no-referrer"},
                              {"Cache-Control", "no-store"}});
  server.set_pre_routing_handler([](const Request& request, Response& response) {
    if (isPermitted(request)) return httplib::Server::HandlerResponse::Unhandled;
    response.status = 403;
    return httplib::Server::HandlerResponse::Handled;
  });
  server.set_mount_point("/", places.root + "/gateway/page/files");
  addReading();
  addChanging();
}

void PageServer::addReading() {
  server.Get("/", [this](const Request&, Response& response) { sendPage(response); });
  // Every browser asks for it.
  server.Get("/favicon.ico", [](const Request&, Response& response) { response.status = 204; });
  server.Get("/events",
             [this](const Request& request, Response& response) { sendEvents(request, response); });
  server.Get("/rows",
             [this](const Request& request, Response& response) { sendRows(request, response); });
  server.Get("/phases",
             [this](const Request& request, Response& response) { sendPhases(request, response); });
  server.Get("/record", [this](const Request& request, Response& response) {
    response.set_content(feed.records().at(numberOf(request, "n")), kJson);
  });
  server.Get("/store", [](const Request&, Response& response) { send(response, storeContent()); });
  server.Get("/folders",
             [this](const Request&, Response& response) { send(response, folders(places)); });
  server.Get("/faults",
             [this](const Request&, Response& response) { send(response, listFaults(places)); });
  server.Get("/advice", [this](const Request&, Response& response) {
    std::string text;
    jobm::readFile(places.root + "/docs/troubleshooting.md", text);
    response.set_content(text, kText);
  });
}

void PageServer::addChanging() {
  using Action = std::function<Outcome(const Places&, const Json::Value&)>;
  const auto add = [this](const char* path, const Action& action) {
    server.Post(path, [this, action](const Request& request, Response& response) {
      Json::Value wanted;
      if (!isChangePermitted(request)) {
        response.status = 403;
      } else if (!jobm::json::parse(request.body, wanted) || !wanted.isObject()) {
        response.status = 400;
      } else {
        send(response, action(places, wanted));
      }
    });
  };
  add("/fault", playFault);
  add("/job", submitJob);
  server.Post("/upload", [this](const Request& request, Response& response) {
    if (!isChangePermitted(request)) {
      response.status = 403;
      return;
    }
    std::vector<std::pair<std::string, std::string>> files;
    for (const auto& [path, file] : request.files) files.emplace_back(path, file.content);
    send(response, takeFolder(places, request.get_param_value("name"), files));
  });
}

bool PageServer::isChangePermitted(const Request& request) const {
  return request.get_header_value("X-Token") == token;
}

void PageServer::sendPage(Response& response) const {
  constexpr std::string_view kMark = "@TOKEN@";
  std::string page;
  jobm::readFile(places.root + "/gateway/page/files/page.html", page);
  const std::size_t mark = page.find(kMark);
  if (mark == std::string::npos) {
    response.status = 500;
    return;
  }
  response.set_content(page.replace(mark, kMark.size(), token), "text/html; charset=utf-8");
}

// The rows with these numbers, which commas part.
void PageServer::sendRows(const Request& request, Response& response) const {
  Json::Value rows(Json::arrayValue);
  const KnownNames names = feed.executorNames();
  std::string numbers = request.get_param_value("numbers");
  const auto append = [&](std::size_t number) {
    Json::Value record;
    if (jobm::json::parse(feed.records().at(number), record))
      rows.append(rowOf(number, record, names));
  };
  for (char* at = numbers.data(); *at != '\0' && rows.size() < kMostRows;
       at += *at == ',' ? 1 : 0) {
    char* end = at;
    append(std::strtoull(at, &end, 10));
    if (end == at) break;
    at = end;
  }
  send(response, rows);
}

// How long each phase took of what happened between two times.
void PageServer::sendPhases(const Request& request, Response& response) const {
  const std::string from = request.get_param_value("from");
  const std::string to = request.get_param_value("to");
  Json::Value spans(Json::objectValue);
  std::size_t number = feed.records().size();
  std::vector<Json::Value> meant;
  for (Json::Value record; number > 0; --number) {
    if (!jobm::json::parse(feed.records().at(number - 1), record)) continue;
    const std::string time = jobm::json::textOf(record, "time");
    // A note may stand behind what came later.
    if (time < from && record["kind"] != "note") break;
    if (time >= from && time <= to) meant.push_back(record);
  }
  std::ranges::for_each(meant.rbegin(), meant.rend(),
                        [&](const Json::Value& record) { addToPhases(record, spans); });
  send(response, spans);
}

void PageServer::sendEvents(const Request& request, Response& response) {
  const auto events = std::make_shared<Events>(feed, selectionOf(request, feed), token);
  response.set_chunked_content_provider("text/event-stream",
                                        [events](std::size_t, httplib::DataSink& sink) {
                                          const std::string text = events->next();
                                          return sink.write(text.data(), text.size());
                                        });
}

int PageServer::bindTo(int port) {
  if (port == 0) return server.bind_to_any_port(kHost);
  return server.bind_to_port(kHost, port) ? port : -1;
}

bool PageServer::run() { return server.listen_after_bind(); }

}  // namespace gateway
