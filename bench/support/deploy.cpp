#include "deploy.h"

#include <openssl/evp.h>

#include <array>

#include "hex.h"
#include "web.h"

namespace bench {
namespace {

std::string md5Of(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_md5(), nullptr);
  return hexOf({reinterpret_cast<const char*>(digest.data()), 16});
}

std::string resourceOf(const std::string& root, std::size_t number, int operate) {
  const std::string id = std::to_string(number);
  return R"({"operate":)" + std::to_string(operate) + R"(,"resourceType":")" +
         kTypes[number % kTypes.size()] + R"(","resourceId":"r)" + id + R"(","snapshotId":"s)" +
         id + R"(","resourceName":"resource )" + id + R"(","configKivAddress":")" + root + "/" +
         std::to_string(kResourceBytes) + "/" + id + R"(","configFormat":"text","configMd5":")" +
         md5Of(webText(kResourceBytes, number)) + "\"}";
}

}  // namespace

std::string jobsOf(const std::string& root, std::size_t count, int operate) {
  std::string request = R"({"deployId":"d","taskId":"t","deployType":0,"resources":[)";
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) request += ',';
    request += resourceOf(root, i, operate);
  }
  request += "]}";
  const std::string content =
      R"({"content":)" + quoted(request) + R"(,"type":"inline","name":"bench","context":""})";
  return R"([{"id":1,"ackCode":10201,"jobId":1,"executor":"label","ackContent":)" +
         quoted(content) + "}]";
}

std::string deleteOrders(std::size_t count) {
  std::string orders = "[";
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) orders += ',';
    const std::string id = std::to_string(i + 1);
    orders.append(R"({"id":)").append(id).append(R"(,"ackCode":10204,"jobId":)").append(id);
    orders += R"(,"executor":"ConfigManager","ackContent":"{}"})";
  }
  return orders + "]";
}

double deploy(Gateway& gateway, const Service& service, const std::string& jobs) {
  const std::string reply = heartbeatReply(gateway.takeHeartbeat(), jobs);
  gateway.forget();
  const double begin = now();
  service.send(replyTopic(), reply);
  gateway.await("no report came", [](const auto& seen) { return seen.lastReport > 0; });
  const auto published = gateway.published();
  require(published.report.find("\"success\" : false") == std::string::npos, "a resource failed");
  return published.lastReport - begin;
}

}  // namespace bench
