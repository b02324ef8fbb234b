#include "support/stop.h"

#include <gtest/gtest.h>

#include <csignal>
#include <regex>
#include <sstream>

namespace jextest {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> linesWith(const std::string& text, const std::string& prefix) {
  std::vector<std::string> found;
  for (const std::string& line : linesOf(text)) {
    if (line.rfind(prefix, 0) == 0) found.push_back(line);
  }
  return found;
}

void expectStop(Child& child, const Stop& stop) {
  const Exit exit = child.waitForExit();
  const std::string text = child.standardError();
  EXPECT_EQ(exit.signal, SIGABRT) << "exit status " << exit.code << "\n" << text;
  const auto errors = linesWith(text, "Error: ");
  ASSERT_EQ(errors.size(), 1u) << text;
  EXPECT_EQ(errors[0], stop.error);

  static const std::regex assertion(
      "^(.*): JexHybridSlice/([A-Za-z]+)\\.cpp:([0-9]+): (.*): Assertion `(.*)' failed\\.$");
  std::smatch parts;
  std::vector<std::string> lines = linesOf(text);
  size_t found = 0;
  for (const std::string& line : lines) {
    if (line.find("Assertion `") == std::string::npos) continue;
    ++found;
    ASSERT_TRUE(std::regex_match(line, parts, assertion)) << line;
    EXPECT_EQ(parts[1], child.programName());
    EXPECT_EQ(parts[2], stop.source) << line;
    EXPECT_GT(std::stoi(parts[3]), 0) << line;
    EXPECT_NE(parts[4].str().find(stop.function), std::string::npos) << line;
    EXPECT_NE(parts[4].str().find('('), std::string::npos) << "no signature: " << line;
    if (!stop.expression.empty()) {
      EXPECT_EQ(parts[5], "\"" + stop.expression + "\" == nullptr") << line;
    }
  }
  EXPECT_EQ(found, 1u) << text;
}

}  // namespace jextest
