#include "support/stop.h"

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <sstream>
#include <string_view>

namespace jextest {
namespace {

/// The C library's line of a failed assertion, taken apart.
struct AssertionLine {
  std::string program;
  std::string source;
  std::string line;
  std::string function;
  std::string expression;
};

/// Moves what stands before `end` out of *rest, and `end` away. False if it is not there.
bool takeUntil(std::string_view end, std::string_view* rest, std::string* taken) {
  const size_t at = rest->find(end);
  if (at == std::string_view::npos) return false;
  *taken = rest->substr(0, at);
  rest->remove_prefix(at + end.size());
  return true;
}

std::optional<AssertionLine> parseAssertion(const std::string& text) {
  AssertionLine parts;
  std::string behind;
  std::string_view rest = text;
  const bool parsed = takeUntil(": JexHybridSlice/", &rest, &parts.program) &&
                      takeUntil(".cpp:", &rest, &parts.source) &&
                      takeUntil(": ", &rest, &parts.line) &&
                      takeUntil(": Assertion `", &rest, &parts.function) &&
                      takeUntil("' failed.", &rest, &parts.expression);
  if (!parsed || !rest.empty()) return std::nullopt;
  if (parts.line.empty() || parts.line.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  return parts;
}

}  // namespace

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

  size_t found = 0;
  for (const std::string& line : linesOf(text)) {
    if (line.find("Assertion `") == std::string::npos) continue;
    ++found;
    const auto parts = parseAssertion(line);
    ASSERT_TRUE(parts) << line;
    EXPECT_EQ(parts->program, child.programName());
    EXPECT_EQ(parts->source, stop.source) << line;
    EXPECT_NE(parts->line, "0") << line;
    EXPECT_NE(parts->function.find(stop.function), std::string::npos) << line;
    EXPECT_NE(parts->function.find('('), std::string::npos) << "no signature: " << line;
    EXPECT_EQ(parts->expression, "\"" + stop.expression + "\" == nullptr") << line;
  }
  EXPECT_EQ(found, 1u) << text;
}

}  // namespace jextest
