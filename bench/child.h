// A part of a bench that runs in a process of its own: this program, started anew with a role.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace bench {

/// Started by construction; ended by the end of its standard input, or by destruction. A child that
/// ends before it has said what is asked of it throws std::runtime_error.
class Child {
 public:
  Child(const std::string& role, std::vector<std::string> arguments);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// The next line that the child writes.
  nlohmann::json readLine();

  /// Hands it a line; see awaitLine().
  void writeLine(const std::string& line);

  /// Lets it end, and waits until it has.
  void finish();

 private:
  std::string role_;
  pid_t pid_ = -1;
  FILE* out_ = nullptr;
  int in_ = -1;
};

/// In the child: writes a line to whoever started it.
void report(const nlohmann::json& line);

/// In the child: waits for a line of the parent. Ends the process, whatever threads are at work,
/// when the parent lets it end.
std::string awaitLine();

/// In the child: whether awaitLine() would return (or end the process) at once.
bool lineWaits();

/// In the child: waits until the parent lets it end, then ends it, whatever threads are at work.
[[noreturn]] void awaitEnd();

}  // namespace bench
