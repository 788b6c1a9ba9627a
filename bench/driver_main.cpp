// bench-driver ROW [--runs N] [--short]: measures one row; without a row lists them. Must run where
// nobody else uses the service's bus and folders.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "rows/rows.h"

namespace {

using Row = void (*)(const bench::Options&);

const std::vector<std::pair<std::string, Row>> kRows{
    {"calls", bench::calls},
    {"signals", bench::signals},
    {"latency", bench::latency},
    {"deployment", bench::deployment},
    {"deletes", bench::deletes},
    {"download", bench::download},
    {"checksum", bench::checksum},
    {"unzip", bench::unzip},
    {"decryption", bench::decryption},
    {"start", bench::start},
    {"registrations", bench::registrations},
    {"remote", bench::remote},
    {"unconfigured", bench::unconfigured},
    {"idle-3", bench::idle3},
    {"idle-20", bench::idle20},
    {"idle-100", bench::idle100},
};

Row rowOf(const std::string& name) {
  for (const auto& [known, row] : kRows) {
    if (known == name) return row;
  }
  return nullptr;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) {
    for (const auto& entry : kRows) std::printf("%s\n", entry.first.c_str());
    return EXIT_SUCCESS;
  }
  const Row row = rowOf(arguments[1]);
  bench::Options options;
  for (int i = 2; i < count; ++i) {
    const std::string word = arguments[i];
    if (word == "--short") options.isShort = true;
    if (word == "--runs" && i + 1 < count) options.runs = std::atoi(arguments[++i]);
  }
  if (row == nullptr || options.runs < 1) {
    std::fprintf(stderr, "usage: bench-driver [ROW [--runs N] [--short]]\n");
    return EXIT_FAILURE;
  }
  row(options);
  return EXIT_SUCCESS;
}
