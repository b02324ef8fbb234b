// Runs of the command-line programs, as the tests of all of them need them.
#pragma once

#include <string>
#include <vector>

#include "support/child.h"

namespace jextest {

using Words = std::vector<std::string>;

/// A run of a program from start to end.
struct Finished {
  Words output;  // lines
  std::string error;
  Exit exit;

  bool endedWith(int code) const { return exit.signal == 0 && exit.code == code; }
};

/// Reads all that `child` prints until it closes its output, and waits for its end.
Finished finish(Child child);

Finished switchctl(const Words& arguments);

/// Lines that the commands of `shell`, a partner shell that prints JSON, list before their result.
/// Fails the test if there is no result.
Words listingOf(Child& shell, const std::string& command);

bool isOneLine(const std::string& text);

}  // namespace jextest
