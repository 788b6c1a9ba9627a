#include "server.h"

#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "package/manifest.h"
#include "sight.h"

namespace gateway {
namespace {

using httplib::Request;
using httplib::Response;
using jobm::json::compact;

constexpr const char* kHost = "127.0.0.1";
constexpr const char* kFiles = "/gateway/page/files";
constexpr std::size_t kThreads = 24;  // each open page keeps one
// Only what is written shows that a page is gone.
constexpr int kQuiet = 2;  // seconds
constexpr std::size_t kLargestUpload = 64 << 20;
constexpr std::size_t kMostRows = 500;
constexpr const char* kJson = "application/json";
constexpr const char* kText = "text/plain; charset=utf-8";

// Scripts and styles come from here and nowhere else, and texts never become markup.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

// Whether people or the page itself ask. By another name than this machine's comes the page of
// another site that had its name point here.
bool isPermitted(const Request& request) {
  const std::string host = request.get_header_value("Host");
  const std::string origin = request.get_header_value("Origin");
  const std::string site = request.get_header_value("Sec-Fetch-Site");
  return host.substr(0, host.rfind(':')) == kHost &&
         (origin.empty() || origin == "http://" + host) &&
         (site.empty() || site == "none" || site == "same-origin");
}

bool isReading(const Request& request) {
  return request.method == "GET" || request.method == "HEAD";
}

void send(Response& response, const Outcome& outcome, const char* type = kText) {
  response.status = outcome.isDone ? 200 : 409;
  response.set_content(outcome.text, outcome.isDone ? type : kText);
}

Selection selectionOf(const Request& request, const Feed& feed) {
  const std::string job = request.get_param_value("job");
  Selection selection({.job = job, .resource = "", .executor = request.get_param_value("executor")},
                      request.has_param("failures"));
  selection.know(feed.executorNames());
  Json::Value order;
  for (std::size_t n = 0; !job.empty() && parsedObject(feed.order(n), order); ++n) {
    selection.learn(order);
  }
  return selection;
}

// Calls `take` with the number of each record that is asked for, and with the record.
std::size_t visit(Selection& selection, const Feed& feed, std::size_t begin, std::size_t end,
                  const std::function<void(std::size_t, const Json::Value&)>& take) {
  Json::Value record;
  for (; begin < end; ++begin) {
    if (parsedObject(feed.record(begin), record) && selection.passes(record)) take(begin, record);
  }
  return begin;
}

/// What one open page is told, as server-sent events:
///
///   start    first: {"page", the one that serves; "numbers" of the records so far, or "oldest" and
///            "count"}
///   rows     rows of new records, see rowOf()
///   order    an event of an order, as the scheduler tells it
///   state    the gateway's state, as gateway-status tells it
class Events {
 public:
  Events(Feed& given, Selection wanted, std::string name)
      : feed(given), viewer(given), selection(std::move(wanted)), page(std::move(name)) {}

  // Waits for the next events; a comment when nothing happens for long.
  std::string next() {
    if (!std::exchange(hasBegun, true)) return begin();
    const Feed::Extent extent = feed.waitBeyond(told, kQuiet);
    std::string text;
    for (; told.orders < extent.orders; ++told.orders) add(text, "order", feed.order(told.orders));
    if (std::exchange(told.states, extent.states) != extent.states)
      add(text, "state", feed.state());
    addRows(text, std::min(extent.records, told.records + kMostRows));
    return text.empty() ? ":\n\n" : text;
  }

 private:
  static void add(std::string& text, const char* name, const std::string& json) {
    const std::string data = json.substr(0, json.find_last_not_of('\n') + 1);
    text.append("event: ").append(name).append("\ndata: ").append(data).append("\n\n");
  }

  // The first page comes before anything has been read. What people are called is in the state.
  // Returns how many records there are.
  std::size_t awaitFirstState() const {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(kQuiet);
    Feed::Extent extent = feed.waitBeyond({}, kQuiet);
    while (extent.states == 0 && std::chrono::steady_clock::now() < until) {
      extent = feed.waitBeyond(extent, 1);
    }
    return extent.records;
  }

  // Which records there are: from the oldest that is kept to how many there have been, or the
  // numbers of those that are asked for.
  std::string begin() {
    Json::Value start(Json::objectValue);
    start["page"] = page;
    told.records = awaitFirstState();
    selection.know(feed.executorNames());
    if (selection.isOpen()) {
      start["oldest"] = Json::Value::UInt64{feed.oldestRecord()};
      start["count"] = Json::Value::UInt64{told.records};
    } else {
      Json::Value& numbers = start["numbers"] = Json::Value(Json::arrayValue);
      visit(selection, feed, feed.oldestRecord(), told.records,
            [&](std::size_t n, const Json::Value&) { numbers.append(Json::Value::UInt64{n}); });
    }
    std::string text = "retry: 1000\n";
    add(text, "start", compact(start));
    return text;
  }

  void addRows(std::string& text, std::size_t end) {
    Json::Value rows(Json::arrayValue);
    const KnownNames names = feed.executorNames();
    selection.know(names);
    told.records = visit(selection, feed, told.records, end,
                         [&](std::size_t number, const Json::Value& record) {
                           rows.append(rowOf(number, record, names));
                         });
    if (!rows.empty()) add(text, "rows", compact(rows));
  }

  Feed& feed;
  const Feed::Viewer viewer;
  Selection selection;
  const std::string page;
  bool hasBegun = false;
  Feed::Extent told;
};

Outcome pageWith(const std::string& token, const Places& places) {
  constexpr std::string_view kMark = "@TOKEN@";
  std::string page;
  jobm::readFile(places.root + kFiles + "/page.html", page);
  const std::size_t mark = page.find(kMark);
  if (mark == std::string::npos) return {false, "There is no page."};
  return {true, page.replace(mark, kMark.size(), token)};
}

// The rows with these numbers, all of them: a page would ask again for one that is not there.
Outcome rowsOf(const Request& request, const Feed& feed) {
  Json::Value numbers;
  Json::Value rows(Json::arrayValue);
  const KnownNames names = feed.executorNames();
  jobm::json::parse(request.get_param_value("numbers"), numbers);
  for (const Json::Value& number : numbers) {
    if (!number.isUInt64() || rows.size() == kMostRows) break;
    Json::Value record;
    if (!parsedObject(feed.record(number.asUInt64()), record)) {
      record = Json::Value(Json::objectValue);
      record["kind"] = "note";
      record["text"] = "is not kept any more";
    }
    rows.append(rowOf(number.asUInt64(), record, names));
  }
  return {true, compact(rows)};
}

// When each phase of a job began.
Outcome phasesOf(const Request& request, const Feed& feed) {
  Json::Value begins(Json::objectValue);
  Selection selection = selectionOf(request, feed);
  visit(selection, feed, feed.oldestRecord(), feed.waitBeyond({}, 0).records,
        [&](std::size_t, const Json::Value& record) {
          const std::string phase = phaseOf(record);
          if (!phase.empty() && !begins.isMember(phase)) begins[phase] = record["time"];
        });
  return {true, compact(begins)};
}

Outcome recordOf(const Request& request, const Feed& feed) {
  const std::string number = request.get_param_value("n");
  const std::string text = feed.record(std::strtoull(number.c_str(), nullptr, 10));
  Json::Value record;
  if (!parsedObject(text, record)) return {false, "It is not kept any more."};
  return {true, hideSecrets(record) ? compact(record) : text};
}

void addReading(httplib::Server& server, Feed& feed, const Places& places,
                const std::string& token) {
  const auto add = [&](const char* path, const char* type,
                       const std::function<Outcome(const Request&)>& read) {
    server.Get(path, [type, read](const Request& request, Response& response) {
      send(response, read(request), type);
    });
  };
  add("/", "text/html; charset=utf-8",
      [token, &places](const Request&) { return pageWith(token, places); });
  add("/rows", kJson, [&feed](const Request& request) { return rowsOf(request, feed); });
  add("/phases", kJson, [&feed](const Request& request) { return phasesOf(request, feed); });
  add("/record", kJson, [&feed](const Request& request) { return recordOf(request, feed); });
  add("/store", kJson, [](const Request&) { return storeContent(); });
  add("/folders", kJson, [&places](const Request&) {
    return Outcome{true, compact(folders(places))};
  });
  add("/faults", kText, [&places](const Request&) { return listFaults(places); });
  add("/advice", kText, [&places](const Request&) {
    Outcome advice;
    advice.isDone = jobm::readFile(places.root + "/docs/troubleshooting.md", advice.text);
    return advice;
  });
  // Every browser asks for it.
  server.Get("/favicon.ico", [](const Request&, Response& response) { response.status = 204; });
}

void addEvents(httplib::Server& server, Feed& feed, const std::string& page) {
  server.Get("/events", [&feed, page](const Request& request, Response& response) {
    const auto events = std::make_shared<Events>(feed, selectionOf(request, feed), page);
    response.set_chunked_content_provider("text/event-stream",
                                          [events](std::size_t, httplib::DataSink& sink) {
                                            const std::string text = events->next();
                                            return sink.write(text.data(), text.size());
                                          });
  });
}

void addChanging(httplib::Server& server, const Places& places) {
  using Action = std::function<Outcome(const Places&, const Json::Value&)>;
  const auto add = [&](const char* path, const Action& action) {
    server.Post(path, [&places, action](const Request& request, Response& response) {
      Json::Value wanted;
      const bool isObject = parsedObject(request.body, wanted);
      send(response, isObject ? action(places, wanted) : Outcome{false, "That is no object."});
    });
  };
  add("/fault", playFault);
  add("/job", submitJob);
  server.Post("/upload", [&places](const Request& request, Response& response) {
    std::vector<std::pair<std::string, std::string>> files;
    for (const auto& [path, file] : request.files) files.emplace_back(path, file.content);
    send(response, takeFolder(places, request.get_param_value("name"), files));
  });
}

// Changes need the token that the page was served with.
void guard(httplib::Server& server, const std::string& token) {
  server.set_payload_max_length(kLargestUpload);
  server.set_default_headers({{"Content-Security-Policy", kPolicy},
                              {"X-Content-Type-Options", "nosniff"},
                              {"Cross-Origin-Resource-Policy", "same-origin"},
                              {"Referrer-Policy", "no-referrer"},
                              {"Cache-Control", "no-store"}});
  server.set_pre_routing_handler([token](const Request& request, Response& response) {
    const bool knowsToken = request.get_header_value("X-Token") == token;
    if (isPermitted(request) && (isReading(request) || knowsToken))
      return httplib::Server::HandlerResponse::Unhandled;
    response.status = 403;
    // The body is not read, and is not to be taken for another request.
    response.set_header("Connection", "close");
    return httplib::Server::HandlerResponse::Handled;
  });
}

}  // namespace

void servePage(Feed& feed, const Places& places, int port) {
  httplib::Server server;
  const std::string token = uniqueText() + uniqueText();
  server.new_task_queue = [] { return std::make_unique<httplib::ThreadPool>(kThreads).release(); };
  server.set_tcp_nodelay(true);
  guard(server, token);
  addReading(server, feed, places, token);
  addEvents(server, feed, token);
  addChanging(server, places);
  if (!server.set_mount_point("/", places.root + kFiles)) {
    std::fprintf(stderr, "no page in %s\n", places.root.c_str());
    return;
  }
  if (port == 0)
    port = server.bind_to_any_port(kHost);
  else if (!server.bind_to_port(kHost, port))
    port = -1;
  if (port < 0) {
    std::fputs("no port to listen on\n", stderr);
    return;
  }
  std::printf("http://%s:%d/\n", kHost, port);
  std::fflush(stdout);
  server.listen_after_bind();
}

}  // namespace gateway
