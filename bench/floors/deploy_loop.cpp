#include "deploy_loop.h"

#include <curl/curl.h>
#include <openssl/evp.h>
#include <sqlite3.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "support/bus.h"
#include "support/process.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kRoot = "/tarnvale/run/floor";
constexpr const char* kStore = "/tarnvale/run/floor.db";
constexpr std::size_t kBytes = 1024;

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

class Store {
 public:
  Store() {
    sqlite3* raw = nullptr;
    require(sqlite3_open(kStore, &raw) == SQLITE_OK, "no store");
    database.reset(raw);
    sqlite3_exec(raw,
                 "PRAGMA journal_mode=WAL;PRAGMA synchronous=FULL;"
                 "CREATE TABLE IF NOT EXISTS config(key TEXT PRIMARY KEY, value TEXT NOT NULL)",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* prepared = nullptr;
    sqlite3_prepare_v2(raw, "INSERT OR REPLACE INTO config VALUES(?1,?2)", -1, &prepared, nullptr);
    statement.reset(prepared);
  }

  void write(const std::string& key, const std::string& value) {
    sqlite3_bind_text(statement.get(), 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    sqlite3_bind_text(statement.get(), 2, value.data(), static_cast<int>(value.size()),
                      SQLITE_STATIC);
    require(sqlite3_step(statement.get()) == SQLITE_DONE, "a write failed");
    sqlite3_reset(statement.get());
  }

 private:
  std::unique_ptr<sqlite3, CloseDatabase> database;
  std::unique_ptr<sqlite3_stmt, Finalize> statement;
};

struct CleanUp {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

void fetch(const std::string& url, const std::string& path) {
  const std::unique_ptr<CURL, CleanUp> handle(curl_easy_init());
  const std::unique_ptr<FILE, CloseFile> file(std::fopen(path.c_str(), "w"));
  curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, file.get());
  require(curl_easy_perform(handle.get()) == CURLE_OK, "a download failed");
}

std::string read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void deployOne(Store& store, std::size_t number, int port) {
  const std::string name = "r" + std::to_string(number);
  const std::string directory = std::string(kRoot) + "/" + name;
  fs::remove_all(directory);
  const std::string inner = directory + "/" + name + ".config";
  fs::create_directories(inner);
  const std::string path = inner + "/config.json";
  fetch("http://127.0.0.1:" + std::to_string(port) + "/" + std::to_string(kBytes) + "/" +
            std::to_string(number),
        path);
  const std::string text = read(path);
  require(text.size() == kBytes, "a download is short");
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_md5(), nullptr);
  store.write("label", text);
  fs::remove(path);
}

}  // namespace

double deployLoop(std::size_t count, int port) {
  fs::create_directories(kRoot);
  curl_global_init(CURL_GLOBAL_ALL);
  Store store;
  const double begin = now();
  for (std::size_t i = 0; i < count; ++i) deployOne(store, i, port);
  return now() - begin;
}

}  // namespace bench
