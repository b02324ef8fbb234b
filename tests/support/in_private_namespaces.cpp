// The program behind scripts/in-private-namespaces, which describes it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "support/namespaces.h"

namespace {

constexpr int kUsage = 2;
constexpr int kCannot = 125;

struct Arguments {
  std::vector<std::string> keep;
  bool or_alone = false;
  char** command = nullptr;
};

Arguments parse(char** argument) {
  Arguments arguments;
  for (; *argument != nullptr; ++argument) {
    if (std::strcmp(*argument, "--or-alone") == 0) {
      arguments.or_alone = true;
    } else if (std::strcmp(*argument, "--keep") == 0 && argument[1] != nullptr) {
      arguments.keep.emplace_back(*++argument);
    } else {
      break;
    }
  }
  arguments.command = argument;
  return arguments;
}

void say(const std::string& text) {
  std::fprintf(stderr, "in-private-namespaces: %s\n", text.c_str());
}

/// False, with the reason said, if the command must not run.
bool enter(const Arguments& arguments) {
  const std::string reason = jextest::enterNamespaces(arguments.keep);
  if (reason.empty()) return true;
  say("no private world can be made here: " + reason);
  if (!arguments.or_alone) return false;
  // The turn lasts as long as the command.
  const int turn = jextest::takeTurn();
  return fcntl(turn, F_SETFD, 0) == 0;
}

}  // namespace

int main(int, char** argv) {
  const Arguments arguments = parse(argv + 1);
  if (arguments.command[0] == nullptr) return kUsage;
  try {
    if (!enter(arguments)) return kCannot;
  } catch (const std::exception& error) {
    say(error.what());
    return kCannot;
  }
  execvp(arguments.command[0], arguments.command);
  say(std::string(arguments.command[0]) + ": " + std::strerror(errno));
  return errno == ENOENT ? 127 : 126;
}
