#include "outcome.h"

#include <gateway/shown_text.h>

#include <algorithm>
#include <array>
#include <set>

#include "lib/json_helper.h"

namespace gateway {
namespace {

constexpr int kStatusFailed = 4;
constexpr std::size_t kColumns = 6;
using Row = std::array<std::string, kColumns>;

// A text in one line, anything else as JSON; "-" for what is not there.
std::string cell(const Json::Value& value) {
  if (value.isNull()) return "-";
  if (value.isString()) return shownText(value.asString());
  std::string text = jobm::json::compact(value);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string operation(const Json::Value& operate) {
  if (operate == 0) return "add";
  return operate == 1 ? "delete" : "-";
}

Row rowOf(const Json::Value& row) {
  return {cell(row["resourceId"]),          cell(row["resourceType"]), operation(row["operate"]),
          isSuccess(row) ? "ok" : "FAILED", cell(row["code"]),         cell(row["message"])};
}

std::string aligned(const std::vector<Row>& rows) {
  std::array<std::size_t, kColumns> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const Row& row : rows) {
    std::string line = " ";
    for (std::size_t i = 0; i < kColumns; ++i) {
      line += ' ' + row[i] + std::string(widths[i] - row[i].size() + 1, ' ');
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  }
  return text;
}

}  // namespace

bool isLastWord(const Json::Value& event) {
  const std::string kind = jobm::json::textOf(event, "event");
  const bool isDeployment = !jobm::json::textOf(event, "deployId").empty();
  return kind == "report" ||
         (kind == "status" && (!isDeployment || event["jobStatus"] == kStatusFailed));
}

// A deletion that nobody reports is no failure: only executors report them, and not every type of
// resource has one.
bool isSuccess(const Json::Value& row) {
  if (row["success"].isNull()) return row["operate"] == 1;
  return row["success"].isBool() && row["success"].asBool();
}

bool succeeded(const Json::Value& event) {
  if (jobm::json::textOf(event, "event") == "status") return event["jobStatus"] == 0;
  const Json::Value& rows = event["resources"];
  return std::all_of(rows.begin(), rows.end(), isSuccess);
}

std::string tableOf(const Json::Value& event) {
  if (jobm::json::textOf(event, "event") == "status") {
    return "  status " + cell(event["jobStatus"]) + ": " + cell(event["result"]["detail"]) + "\n";
  }
  std::vector<Row> rows = {{"resource", "type", "operation", "result", "code", "message"}};
  for (const Json::Value& row : event["resources"]) rows.push_back(rowOf(row));
  return aligned(rows);
}

std::vector<std::string> differences(const Json::Value& event, const Json::Value& expected) {
  const auto about = [](const std::string& id, const std::string& what) {
    return "'" + id + "' " + what;
  };
  std::vector<std::string> found;
  std::set<std::string> missing;
  for (const std::string& id : expected.getMemberNames()) missing.insert(id);
  for (const Json::Value& row : event["resources"]) {
    const std::string id = jobm::json::textOf(row, "resourceId");
    if (missing.erase(id) == 0) {
      found.push_back(about(id, "was not expected, or not again"));
      continue;
    }
    const Json::Value& wanted = expected[id];
    for (const std::string& name : wanted.getMemberNames()) {
      if (row[name] == wanted[name]) continue;
      const std::string seen = cell(row[name]) + ", expected " + cell(wanted[name]);
      found.push_back(about(id, "has the " + name).append(" ").append(seen));
    }
  }
  for (const std::string& id : missing) found.push_back(about(id, "has no result"));
  return found;
}

}  // namespace gateway
