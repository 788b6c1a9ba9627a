// Downloads, sums, archives and packages: each run is a process of its own.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "rows.h"
#include "support/bus.h"
#include "support/hex.h"
#include "support/process.h"
#include "support/web.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMiB = std::size_t{1024} * 1024;
const fs::path kFolder = "/tarnvale/bench";

using Command = std::vector<std::string>;

struct Part {
  double seconds = 0;  // inside the process
  double growth = 0;   // KiB
  double whole = 0;    // seconds, from starting the process to its end
};

Part runPart(const Command& words) {
  Command command{beside("bench-part")};
  command.insert(command.end(), words.begin(), words.end());
  const double begin = now();
  Child child(command, "/dev/null", true);
  Part part;
  const std::string output = child.readOutput();
  part.whole = now() - begin;
  const std::size_t last = output.rfind('\n', output.size() - 2);
  const char* line = output.c_str() + (last == std::string::npos ? 0 : last + 1);
  require(std::sscanf(line, "%lf %lf", &part.seconds, &part.growth) == 2, "no figures");
  return part;
}

// A text like those that are deployed: neither zeros nor noise. The same for every run.
void writeText(const fs::path& path, std::size_t bytes, unsigned seed) {
  std::mt19937 random(seed);
  std::string line;
  std::ofstream file(path, std::ios::binary);
  for (std::size_t written = 0; written < bytes; written += line.size()) {
    line = "{\"channel\":" + std::to_string(random() % 1000) +
           ",\"value\":" + std::to_string(random()) + ",\"unit\":\"kWh\"}\n";
    line.resize(std::min(line.size(), bytes - written));
    file << line;
  }
}

void emptyFolder(const fs::path& path) {
  fs::remove_all(path);
  fs::create_directories(path);
}

void unzipSide(const std::string& row, const char* side, const fs::path& archive) {
  const fs::path out = kFolder / "out";
  emptyFolder(out);
  const Part part = runPart({"unzip", side, archive, out});
  sample("unzip", row + ": s", side, part.seconds);
  sample("unzip", row + ": memory KiB", side, part.growth);
}

void unzipTools(const std::string& row, const fs::path& archive) {
  const fs::path out = kFolder / "out";
  emptyFolder(out);
  sample("unzip", row + ": s", "unzip", timeCommand({"unzip", "-q", archive, "-d", out}));
  emptyFolder(out);
  sample("unzip", row + ": s", "bsdtar", timeCommand({"bsdtar", "-xf", archive, "-C", out}));
}

fs::path archiveOf(const std::string& name, std::size_t files, std::size_t bytes) {
  const fs::path source = kFolder / name;
  emptyFolder(source);
  for (std::size_t i = 0; i < files; ++i) {
    const fs::path folder = source / ("folder" + std::to_string(i / 100));
    fs::create_directories(folder);
    writeText(folder / ("file" + std::to_string(i)), bytes, static_cast<unsigned>(i));
  }
  fs::path archive = kFolder / (name + ".zip");
  timeCommand({"bsdtar", "--format", "zip", "-cf", archive, "-C", source, "."});
  fs::remove_all(source);
  return archive;
}

}  // namespace

void download(const Options& options) {
  const Web web;
  emptyFolder(kFolder);
  const std::size_t bytes = options.scaled(1024 * kMiB);
  const fs::path file = kFolder / "file";
  for (int run = 0; run < options.runs; ++run) {
    const Part part = runPart({"download", "service", web.url(bytes, 1), file});
    require(fs::file_size(file) == bytes, "a download is short");
    sample("download", "s", "service", part.whole);
    sample("download", "memory KiB", "service", part.growth);
    fs::remove(file);
    sample("download", "s", "floor", timeCommand({"curl", "-s", "-o", file, web.url(bytes, 1)}));
    fs::remove(file);
  }
}

void checksum(const Options& options) {
  emptyFolder(kFolder);
  const fs::path file = kFolder / "file";
  writeText(file, 16 * kMiB, 1);
  for (int run = 0; run < options.runs; ++run) {
    for (const char* side : {"service", "floor"}) {
      sample("checksum", "ms", side, runPart({"checksum", side, file}).seconds * 1e3);
    }
    sample("checksum", "ms", "md5sum", timeCommand({"md5sum", file}) * 1e3);
  }
}

void unzip(const Options& options) {
  emptyFolder(kFolder);
  const std::pair<std::string, fs::path> archives[] = {
      {"1,000 files", archiveOf("many", 1000, 1024)},
      {"512 MiB", archiveOf("large", 1, options.scaled(512 * kMiB))}};
  for (int run = 0; run < options.runs; ++run) {
    for (const auto& [row, archive] : archives) {
      for (const char* side : {"service", "floor"}) unzipSide(row, side, archive);
      unzipTools(row, archive);
    }
  }
}

void decryption(const Options& options) {
  emptyFolder(kFolder);
  const fs::path plain = kFolder / "plain";
  const fs::path package = kFolder / "package";
  const fs::path output = kFolder / "output";
  // The package, as it comes over the wire, is what has 16 MiB.
  writeText(plain, 12 * kMiB - 16, 1);
  const std::string secret = "0123456789abcdef0123456789abcdef";
  const std::string cipher =
      " -aes-256-cbc -K " + hexOf(secret) + " -iv " + hexOf(secret.substr(0, 16)) + " ";
  timeCommand({"sh", "-c",
               "openssl enc" + cipher + "-in " + plain.string() + " | openssl base64 -A -out " +
                   package.string()});
  for (int run = 0; run < options.runs; ++run) {
    const Part part = runPart({"decrypt", "service", package, output, secret});
    require(fs::file_size(output) == fs::file_size(plain), "the text is wrong");
    sample("decryption", "ms", "service", part.seconds * 1e3);
    sample("decryption", "memory MiB", "service", part.growth / 1024);
    const double floor =
        timeCommand({"sh", "-c",
                     "openssl base64 -d -A -in " + package.string() + " | openssl enc -d" + cipher +
                         "-out " + output.string()});
    require(fs::file_size(output) == fs::file_size(plain), "the floor's text is wrong");
    sample("decryption", "ms", "floor", floor * 1e3);
  }
}

}  // namespace bench
