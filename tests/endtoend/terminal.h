// A program on a terminal of its own: keys go in, and what would stand on the screen comes out.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/child.h"

namespace jextest {

class Terminal {
 public:
  /// Starts `program` as the foreground process of a new terminal. `environment` is added to ours.
  Terminal(const std::string& program, const std::vector<std::string>& arguments,
           const Child::Environment& environment);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  /// Kills the process if it still runs.
  ~Terminal();

  void type(const std::string& keys);
  /// Reads on until `text` has come; what came before it is gone then. False, with all that came in
  /// *screen, if the program ends or falls silent first.
  bool awaitText(const std::string& text, std::string* screen);
  /// Whether the terminal gathers and echoes lines itself: programs that edit lines switch that off
  /// and have to switch it on again.
  bool isCooked() const;
  Exit waitForExit();

 private:
  bool readMore();

  pid_t pid_ = -1;
  int fd_ = -1;  // the terminal's outer end
  bool reaped_ = false;
  std::string pending_;
};

}  // namespace jextest
