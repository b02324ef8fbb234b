#include "endtoend/cli_run.h"

#include <gtest/gtest.h>

namespace jextest {
namespace {

bool isLast(const std::string& line) { return line == "<end>" || line == "<silence>"; }

}  // namespace

Finished finish(Child child) {
  Finished result;
  for (std::string line = child.readLine(); !isLast(line); line = child.readLine()) {
    result.output.push_back(line);
  }
  result.exit = child.waitForExit();
  result.error = child.standardError();
  return result;
}

Finished switchctl(const Words& arguments) { return finish(Child(JEX_SWITCHCTL, arguments)); }

Words listingOf(Child& shell, const std::string& command) {
  Words lines;
  shell.say(command);
  for (;;) {
    const std::string line = shell.readLine();
    if (isLast(line)) {
      ADD_FAILURE() << "the partner shell says " << line << " to " << command;
      return lines;
    }
    if (line.find("\"ok\":") != std::string::npos) return lines;
    lines.push_back(line);
  }
}

bool isOneLine(const std::string& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

}  // namespace jextest
