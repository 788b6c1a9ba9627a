/// Lines as they come: of a file that others append to, and of a program that runs beside this one.
#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "neighbour/child.h"

namespace gateway {

class Tail {
 public:
  explicit Tail(std::string path);

  /// The lines that have come since the last call.
  std::vector<std::string> lines();

 private:
  const std::string path;
  std::ifstream in;
  std::string begun;  // a line whose end is not there yet
};

/// A program that prints lines; started again when it ends, but not at once.
class LineSource {
 public:
  explicit LineSource(std::vector<std::string> command);

  /// To wait for: readable when there is more, or when the program has ended; -1 while there is
  /// none.
  int descriptor() const;

  /// The lines that have come since the last call; to be called when the descriptor is readable, or
  /// there is none.
  std::vector<std::string> lines();

 private:
  const std::vector<std::string> command;
  std::unique_ptr<Child> child;
  std::string begun;
  double endedAt;
};

/// Cuts the whole lines out of `text` and leaves what follows the last one.
std::vector<std::string> takeLines(std::string& text);

/// Runs a program to its end. Returns its exit status and everything that it wrote, in `output`.
int runProgram(const std::vector<std::string>& command, std::string& output);

}  // namespace gateway
